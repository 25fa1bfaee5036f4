// One GENOSTAT command: its grammar for the host syntax parser, the interpreters that fill the job
// record from the parse result, and the command object that runs them for the entry point.
//
// Threads: the host's command thread only.
#pragma once

#include <string>

#include "entry/GenoJobSettings.h"
#include "host/parser.h"

namespace genostat::entry {

// Describes the whole command: JOB, DESCRIPTIVES, FREQUENCIES, CORRELATIONS, REGRESSION, PRINT,
// DELETE, each with its keywords, in that order.
void buildGrammar(CommandDescriptor& descriptor);

// Exact, case-sensitive keyword mappings; anything unknown gives the first value of the enum.
enum AdapterType adapterTypeFromKeyword(const std::string& keyword);
RegressionMethod regressionMethodFromKeyword(const std::string& keyword);
// The CI number as the record keeps it: C's "%f" (95 -> "95.000000").
std::string formatConfidenceInterval(double value);

// Refuses the command in the host's command-line mode (code 19) and while the job manager's queue
// is full (code 15); asks an existing manager only.
void runPreChecks();

// The interpreters. Each does nothing when its subcommand is absent or `settings` is null; the
// job interpreters throw GenomicParserException, the analysis interpreters throw nothing.
void interpretPrint(const CommandSpec& spec, GenoJobSettings* settings);
void interpretDelete(const CommandSpec& spec, GenoJobSettings* settings);
void interpretJob(const CommandSpec& spec, GenoJobSettings* settings);
void interpretDescriptives(const CommandSpec& spec, GenoJobSettings* settings);
void interpretFrequencies(const CommandSpec& spec, GenoJobSettings* settings);
void interpretCorrelations(const CommandSpec& spec, GenoJobSettings* settings);
void interpretRegression(const CommandSpec& spec, GenoJobSettings* settings);

// A submitted job's own name: at most 255 bytes, not a reserved word, not the name of an open
// dataset (in any case) nor of a pending or running job. True, or throws code 17 or 18.
bool checkJobName(const std::string& name);
// Why the job's post-job syntax could not carry `name` (as a literal and as a dataset name, blanks
// made '_'), with a name that would work; empty when it can.
std::string datasetNameFault(const std::string& name);

}  // namespace genostat::entry

// The command object of one GENOSTAT call, built on the entry's stack.
class GenoStatCommand {
 public:
  // `settings` may be null (the record could not be allocated): the command is still parsed.
  GenoStatCommand(ZORV_TokenSequence* tokens, GenoJobSettings* settings);
  GenoStatCommand(const GenoStatCommand&) = delete;
  GenoStatCommand& operator=(const GenoStatCommand&) = delete;

  // Parses the command and, when it keeps to the grammar, runs the pre-checks and the
  // interpreters. A command error is reported through the parser's message object and leaves
  // parseFailed() true; the first one ends the command.
  void parseAndInterpret();

  bool parseFailed() const { return parseFailed_; }
  GenoJobSettings* settings() const { return settings_; }

 private:
  CommandDescriptor descriptor_;
  ZORV_TokenSequence* tokens_;
  ParserMessage message_;
  bool parseFailed_ = false;
  GenoJobSettings* settings_;  // not owned
};
