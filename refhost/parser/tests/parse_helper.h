// Runs the parser the way a procedure does: the command text goes to the host's session, a token
// sequence reads it back, and the errors come from the host's error record.
#pragma once

#include <string>
#include <vector>

#include "host/parser.h"
#include "host/tokens.h"
#include "zorvhost/client.h"

namespace parsertest {

struct ParseOutcome {
  int result = 0;
  std::vector<zorvhost::CommandError> errors;
  // The one error text, or "" when there was none; "<n errors>" when there were several.
  std::string error() const {
    if (errors.empty()) return "";
    if (errors.size() > 1) return "<" + std::to_string(errors.size()) + " errors>";
    return errors.front().text;
  }
};

inline ParseOutcome parseCommand(CommandDescriptor& descriptor, CommandSpec& spec,
                                 const std::string& text) {
  zorvhost::takeCommandErrors();
  zorvhost::setCommandText(text);
  ZORV_TokenSequence tokens(true);
  UniversalParser parser(&tokens, &spec, &descriptor);
  ParseOutcome outcome;
  outcome.result = parser.getCommandSpecifications();
  outcome.errors = zorvhost::takeCommandErrors();
  return outcome;
}

}  // namespace parsertest
