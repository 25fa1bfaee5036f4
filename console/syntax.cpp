#include "syntax.h"

#include "zorvhost/commands.h"

namespace zorv {

std::vector<Command> splitSyntax(const std::string& syntax) {
  std::vector<Command> out;
  for (const auto& c : zorvhost::splitCommands(syntax)) out.push_back({c.text, c.firstLine});
  return out;
}

std::string commandNameOf(const std::string& commandText) {
  return zorvhost::commandName(commandText);
}

}  // namespace zorv
