// The reference host's command language beyond one procedure: splitting a syntax text into
// commands, naming a command, and the grammars of the host's own commands that the module's
// post-job syntax uses (GET DATA, DATASET NAME, DESCRIPTIVES, FREQUENCIES, REGRESSION, ...).
//
// The conventions are written down in refhost/parser/COMMAND_LANGUAGE.md.
//
// Threads: any; the catalogue is built once, on first use, and read-only afterwards.
#pragma once

#include <string>
#include <vector>

#include "host/host_api.h"
#include "host/parser.h"

namespace zorvhost {

struct CommandText {
  std::string text;   // the command without its terminating period, from the start of its first line
  int firstLine = 1;  // the line of the syntax text on which the command starts
};

// Splits a syntax text (a file, the post-job syntax) into its commands, in order. A command ends at
// a period that is the last non-blank character of a line outside a quoted literal, or at the end
// of the text. Commands that hold only blanks are left out.
ZORV_HOST_API std::vector<CommandText> splitCommands(const std::string& syntax);

// The command's name in upper case: the first two words when the catalogue declares that two-word
// name (GET DATA, NONPAR CORR, DATASET NAME), else the first word; empty when the command does not
// start with a word.
ZORV_HOST_API std::string commandName(const std::string& commandText);

// The catalogue's grammar of the host command of that name (case-insensitive), or null.
ZORV_HOST_API const CommandDescriptor* findCommandDescriptor(const std::string& name);

// The names of the commands in the catalogue, upper case.
ZORV_HOST_API std::vector<std::string> catalogueCommandNames();

}  // namespace zorvhost
