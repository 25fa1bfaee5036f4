#include "assembler.h"

#include <utility>

namespace zorv {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v'; }

bool allBlank(const std::string& s) {
  for (char c : s) {
    if (!isBlank(c)) return false;
  }
  return true;
}

}  // namespace

std::vector<Chunk> LineAssembler::addLine(std::string line) {
  ++lineNo_;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  std::vector<Chunk> out;

  if (buffer_.empty()) {
    // Blank lines between commands belong to no command.
    if (allBlank(line)) return out;
    size_t first = line.find_first_not_of(" \t");
    if (line[first] == ':') {
      size_t last = line.find_last_not_of(" \t");
      out.push_back({Chunk::Kind::ConsoleCommand, line.substr(first, last - first + 1), lineNo_});
      return out;
    }
    firstLine_ = lineNo_;
  }

  // A doubled quote inside a literal closes and reopens it, which leaves the state as it was.
  char lastNonBlank = 0;
  for (char c : line) {
    if (quote_ == 0 && (c == '\'' || c == '"')) {
      quote_ = c;
    } else if (c == quote_) {
      quote_ = 0;
    }
    if (!isBlank(c)) lastNonBlank = c;
  }
  buffer_ += line;
  buffer_ += '\n';

  if (quote_ == 0 && lastNonBlank == '.') {
    out.push_back({Chunk::Kind::Syntax, std::move(buffer_), firstLine_});
    buffer_.clear();
  }
  return out;
}

std::vector<Chunk> LineAssembler::finish() {
  // The buffer only ever starts with a line that holds more than blanks.
  std::vector<Chunk> out;
  if (!buffer_.empty()) out.push_back({Chunk::Kind::Syntax, std::move(buffer_), firstLine_});
  buffer_.clear();
  quote_ = 0;
  return out;
}

}  // namespace zorv
