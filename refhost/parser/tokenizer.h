// Tokenizer of the command language.
//
// Turns the text of one command into tokens with their line and column (both counted from 1, the
// column in bytes, within the command's text). The rules are written down in COMMAND_LANGUAGE.md:
// words, numbers, quoted literals (which may hold any byte, newlines included), the punctuation
// / = ( ) , and the terminating period, which is a period that is the last non-blank character of
// its line.
//
// Exported from zorvhost only so that the parser's tests can reach it; the host's procedures never
// see tokens.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/host_api.h"

namespace zorvhost {
namespace parser {

enum class TokenKind {
  Word,        // a name or keyword: GENOSTAT, qc_score, F8.2
  Number,      // 95.0, .05, -1, 1e-3
  Literal,     // 'text' or "text"; `value` holds the text without quotes, doubled quotes undone
  Slash,       // /
  Equals,      // =
  LeftParen,   // (
  RightParen,  // )
  Comma,       // ,
  Terminator,  // the period that ends the command
  Symbol,      // any other single character; no grammar accepts one
  End,         // the end of the command's text
};

// A printable name of the kind, for messages and tests ("word", "number", ...).
ZORV_HOST_API const char* tokenKindName(TokenKind kind);

struct Token {
  TokenKind kind = TokenKind::End;
  std::string text;   // the token as written (a literal with its quotes)
  std::string value;  // Literal: the unquoted text; Word and Number: as `text`
  int line = 1;
  int column = 1;
  size_t offset = 0;        // byte offset in the command's text
  double number = 0;        // Number: its value
  bool integerForm = false; // Number: written as an optionally signed run of digits
};

struct TokenizeError {
  Token token;          // where the fault starts (text: the rest of the offending token)
  std::string message;  // without position, e.g. "unterminated quoted literal"
};

// Tokenizes `text`. On success `tokens` ends with one End token and the result is true; on failure
// the result is false and `error` says where and what.
ZORV_HOST_API bool tokenize(const std::string& text, std::vector<Token>& tokens,
                            TokenizeError& error);

// Characters that may start, and continue, a word. Bytes from 0x80 on count as letters so that
// UTF-8 names pass whole.
ZORV_HOST_API bool isWordStart(unsigned char c);
ZORV_HOST_API bool isWordChar(unsigned char c);
// Blank characters: space, tab, carriage return, vertical tab, form feed (not the line feed).
ZORV_HOST_API bool isBlank(unsigned char c);
// True when text[pos] is a period that is the last non-blank character of its line.
ZORV_HOST_API bool isTerminalPeriod(const std::string& text, size_t pos);

// How a token is named in a message: its text (cut at a line feed and after 40 bytes, "..." marking
// the cut) or "end of command".
ZORV_HOST_API std::string describeToken(const Token& token);
// "Line 2, column 41, at BOGUS: unknown subcommand of GENOSTAT."
ZORV_HOST_API std::string positionedMessage(const Token& token, const std::string& message);

}  // namespace parser
}  // namespace zorvhost
