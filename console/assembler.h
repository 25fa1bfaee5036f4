// Cuts a stream of input lines into complete commands as the lines arrive, so that a command runs
// as soon as its last line is in, not at the end of input.
//
// A command is complete at a line whose last non-blank character is a period outside a quoted
// literal ('...' or "...", a doubled quote standing for itself), or at the end of input. A line
// that starts with ':' (after blanks) while no command is open is a console command (:jobs,
// :cancel NAME, :quit) and is handed on by itself.
#pragma once

#include <string>
#include <vector>

namespace zorv {

struct Chunk {
  enum class Kind { Syntax, ConsoleCommand };
  Kind kind;
  std::string text;  // Syntax: the command's lines, each ending in '\n'; ConsoleCommand: the line
  int firstLine;     // 1-based line of the input where the chunk starts
};

class LineAssembler {
 public:
  // One line of input without its line break (a trailing CR is dropped). Returns the chunks that
  // this line completes: none, or one.
  std::vector<Chunk> addLine(std::string line);
  // End of input: the open command, if it holds anything but blanks, as a last chunk.
  std::vector<Chunk> finish();
  // True while a command has begun and not yet ended (the prompt shows a continuation).
  bool commandOpen() const { return !buffer_.empty(); }
  // Forgets the open command (Ctrl-C at a continuation prompt); line numbers go on counting.
  void discard() {
    buffer_.clear();
    quote_ = 0;
  }

 private:
  std::string buffer_;
  int firstLine_ = 0;
  int lineNo_ = 0;
  char quote_ = 0;  // the quote character of an open literal, or 0
};

}  // namespace zorv
