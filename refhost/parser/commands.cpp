// Splitting a syntax text into commands, and naming a command.
#include "zorvhost/commands.h"

#include "parser/text.h"
#include "parser/tokenizer.h"

namespace zorvhost {

namespace {

using parser::isBlank;
using parser::isTerminalPeriod;
using parser::isWordChar;
using parser::isWordStart;

bool isSpace(char c) { return c == '\n' || isBlank(static_cast<unsigned char>(c)); }

// Adds the command held by `region` (which starts at the beginning of line `line`) unless it is
// blank: leading blank lines are dropped, so that the text starts at the beginning of the line
// holding its first character, and so are trailing blanks.
void addCommand(std::vector<CommandText>& out, const std::string& region, int line) {
  size_t first = 0;
  while (first < region.size() && isSpace(region[first])) ++first;
  if (first == region.size()) return;
  size_t lineStart = 0;
  for (size_t i = 0; i < first; ++i) {
    if (region[i] == '\n') {
      ++line;
      lineStart = i + 1;
    }
  }
  size_t last = region.size();
  while (last > first && isSpace(region[last - 1])) --last;
  out.push_back({region.substr(lineStart, last - lineStart), line});
}

// The word at `pos` (after white space), upper case; `pos` moves behind it.
std::string readWord(const std::string& text, size_t& pos) {
  while (pos < text.size() && isSpace(text[pos])) ++pos;
  if (pos >= text.size() || !isWordStart(static_cast<unsigned char>(text[pos]))) return "";
  size_t start = pos;
  while (pos < text.size() && isWordChar(static_cast<unsigned char>(text[pos])) &&
         !isTerminalPeriod(text, pos)) {
    ++pos;
  }
  size_t end = pos;
  while (end > start + 1 && text[end - 1] == '.') --end;
  return parser::toUpperAscii(text.substr(start, end - start));
}

}  // namespace

std::vector<CommandText> splitCommands(const std::string& syntax) {
  std::vector<CommandText> out;
  size_t start = 0;
  int startLine = 1;
  int line = 1;
  char quote = 0;
  for (size_t i = 0; i < syntax.size(); ++i) {
    char c = syntax[i];
    if (c == '\n') {
      ++line;
      continue;
    }
    if (quote) {
      if (c == quote) {
        if (i + 1 < syntax.size() && syntax[i + 1] == quote) {
          ++i;  // a doubled quote stands for itself
        } else {
          quote = 0;
        }
      }
      continue;
    }
    if (c == '\'' || c == '"') {
      quote = c;
      continue;
    }
    if (c == '.' && isTerminalPeriod(syntax, i)) {
      addCommand(out, syntax.substr(start, i - start), startLine);
      size_t lineEnd = syntax.find('\n', i);
      if (lineEnd == std::string::npos) {
        start = syntax.size();
        i = syntax.size();
      } else {
        start = lineEnd + 1;
        i = lineEnd;
        ++line;
      }
      startLine = line;
    }
  }
  if (start < syntax.size()) addCommand(out, syntax.substr(start), startLine);
  return out;
}

std::string commandName(const std::string& commandText) {
  size_t pos = 0;
  std::string first = readWord(commandText, pos);
  if (first.empty()) return "";
  std::string second = readWord(commandText, pos);
  if (!second.empty() && findCommandDescriptor(first + " " + second)) return first + " " + second;
  return first;
}

}  // namespace zorvhost
