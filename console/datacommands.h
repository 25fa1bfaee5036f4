// The host's commands for seeing and keeping the active dataset: LIST (its values as a table),
// DISPLAY DICTIONARY (its variables, and what each QC column means) and SAVE TRANSLATE (the
// dataset as a CSV file). Errors go to zorvhost::reportCommandError under the command's name.
#pragma once

#include <string>

#include "host/parser.h"
#include "sink.h"

namespace zorv {

void listCases(const CommandSpec& spec, OutputSink& sink);
void displayDictionary(OutputSink& sink);
void saveTranslate(const CommandSpec& spec, OutputSink& sink);

// What a QC result column holds, in a sentence; empty for a column that is not one of the 27.
std::string qcColumnMeaning(const std::string& column);

}  // namespace zorv
