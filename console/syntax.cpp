#include "syntax.h"

#if __has_include("zorvhost/commands.h")
#include "zorvhost/commands.h"
#define ZORV_HAVE_HOST_COMMANDS 1
#endif

#include <cctype>

namespace zorv {

#ifdef ZORV_HAVE_HOST_COMMANDS

std::vector<Command> splitSyntax(const std::string& syntax) {
  std::vector<Command> out;
  for (const auto& c : zorvhost::splitCommands(syntax)) out.push_back({c.text, c.firstLine});
  return out;
}

std::string commandNameOf(const std::string& commandText) {
  return zorvhost::commandName(commandText);
}

#else

// Until the host's splitter is built: commands end at a period that closes a line outside quotes.
std::vector<Command> splitSyntax(const std::string& syntax) {
  std::vector<Command> out;
  std::string current;
  int line = 1, first = 0;
  char quote = 0;
  size_t pos = 0;
  while (pos <= syntax.size()) {
    size_t eol = syntax.find('\n', pos);
    if (eol == std::string::npos) eol = syntax.size();
    std::string text = syntax.substr(pos, eol - pos);
    size_t last = std::string::npos;
    for (size_t i = 0; i < text.size(); ++i) {
      char c = text[i];
      if (quote == 0 && (c == '\'' || c == '"')) {
        quote = c;
      } else if (c == quote) {
        quote = 0;
      }
      if (!std::isspace(static_cast<unsigned char>(c))) last = i;
    }
    if (current.empty() && last == std::string::npos) {
      // blank line between commands
    } else {
      if (current.empty()) first = line;
      if (quote == 0 && last != std::string::npos && text[last] == '.') {
        current += text.substr(0, last);
        out.push_back({current, first});
        current.clear();
      } else {
        current += text + "\n";
      }
    }
    pos = eol + 1;
    ++line;
  }
  if (!current.empty()) out.push_back({current, first});
  return out;
}

std::string commandNameOf(const std::string& commandText) {
  std::vector<std::string> words;
  size_t i = 0;
  while (words.size() < 2) {
    while (i < commandText.size() && std::isspace(static_cast<unsigned char>(commandText[i]))) ++i;
    size_t start = i;
    while (i < commandText.size() && std::isalnum(static_cast<unsigned char>(commandText[i]))) ++i;
    if (i == start) break;
    std::string w = commandText.substr(start, i - start);
    for (char& c : w) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    words.push_back(w);
  }
  if (words.empty()) return "";
  if (words.size() == 2) {
    std::string two = words[0] + " " + words[1];
    if (two == "GET DATA" || two == "NONPAR CORR" || two == "DATASET NAME" ||
        two == "DATASET ACTIVATE") {
      return two;
    }
  }
  return words[0];
}

#endif

}  // namespace zorv
