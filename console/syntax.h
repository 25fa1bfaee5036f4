// The command language as the console needs it: a syntax text cut into commands, and a command's
// name. Both come from the reference host's parser (zorvhost/commands.h).
#pragma once

#include <string>
#include <vector>

namespace zorv {

struct Command {
  std::string text;  // without its terminating period
  int firstLine;     // 1-based, within the text that was split
};

std::vector<Command> splitSyntax(const std::string& syntax);
// The command's declared name in upper case ("GENOSTAT", "GET DATA"); "" when it has none.
std::string commandNameOf(const std::string& commandText);

}  // namespace zorv
