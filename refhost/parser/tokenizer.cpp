// Tokenizer of the command language (rules in COMMAND_LANGUAGE.md).
#include "parser/tokenizer.h"

#include <charconv>
#include <system_error>

namespace zorvhost {
namespace parser {

namespace {

bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }

// Walks the text keeping the line and column of the current byte.
class Cursor {
 public:
  explicit Cursor(const std::string& text) : text_(text) {}

  size_t pos() const { return pos_; }
  bool atEnd() const { return pos_ >= text_.size(); }
  unsigned char at(size_t ahead = 0) const {
    size_t p = pos_ + ahead;
    return p < text_.size() ? static_cast<unsigned char>(text_[p]) : 0;
  }
  bool has(size_t ahead) const { return pos_ + ahead < text_.size(); }
  int line() const { return line_; }
  int column() const { return static_cast<int>(pos_ - lineStart_) + 1; }

  void advance(size_t count = 1) {
    for (size_t i = 0; i < count && pos_ < text_.size(); ++i) {
      if (text_[pos_] == '\n') {
        ++line_;
        lineStart_ = pos_ + 1;
      }
      ++pos_;
    }
  }

  Token start(TokenKind kind) const {
    Token t;
    t.kind = kind;
    t.line = line_;
    t.column = column();
    t.offset = pos_;
    return t;
  }

 private:
  const std::string& text_;
  size_t pos_ = 0;
  int line_ = 1;
  size_t lineStart_ = 0;
};

bool startsNumber(const Cursor& c, const std::string& text) {
  unsigned char ch = c.at();
  auto digitAt = [&](size_t k) { return c.has(k) && isDigit(c.at(k)); };
  if (isDigit(ch)) return true;
  if (ch == '.') return digitAt(1) && !isTerminalPeriod(text, c.pos());
  if (ch == '+' || ch == '-') return digitAt(1) || (c.at(1) == '.' && digitAt(2));
  return false;
}

}  // namespace

const char* tokenKindName(TokenKind kind) {
  switch (kind) {
    case TokenKind::Word: return "word";
    case TokenKind::Number: return "number";
    case TokenKind::Literal: return "literal";
    case TokenKind::Slash: return "slash";
    case TokenKind::Equals: return "equals sign";
    case TokenKind::LeftParen: return "left parenthesis";
    case TokenKind::RightParen: return "right parenthesis";
    case TokenKind::Comma: return "comma";
    case TokenKind::Terminator: return "terminating period";
    case TokenKind::Symbol: return "symbol";
    case TokenKind::End: return "end of command";
  }
  return "unknown";
}

bool isWordStart(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '@' || c == '#' ||
         c == '$' || c >= 0x80;
}

bool isWordChar(unsigned char c) { return isWordStart(c) || isDigit(c) || c == '.'; }

bool isBlank(unsigned char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

bool isTerminalPeriod(const std::string& text, size_t pos) {
  if (pos >= text.size() || text[pos] != '.') return false;
  for (size_t i = pos + 1; i < text.size() && text[i] != '\n'; ++i) {
    if (!isBlank(static_cast<unsigned char>(text[i]))) return false;
  }
  return true;
}

bool tokenize(const std::string& text, std::vector<Token>& tokens, TokenizeError& error) {
  tokens.clear();
  Cursor c(text);
  int endLine = 1;
  int endColumn = 1;
  auto finish = [&](Token& t) {
    t.text = text.substr(t.offset, c.pos() - t.offset);
    if (t.kind != TokenKind::Literal) t.value = t.text;
    endLine = c.line();
    endColumn = c.column();
    tokens.push_back(std::move(t));
  };
  auto fail = [&](Token t, size_t length, const char* message) {
    t.text = text.substr(t.offset, length);
    t.value = t.text;
    error.token = std::move(t);
    error.message = message;
    tokens.clear();
    return false;
  };

  while (!c.atEnd()) {
    unsigned char ch = c.at();
    if (isBlank(ch) || ch == '\n') {
      c.advance();
      continue;
    }
    if (ch == '\'' || ch == '"') {
      Token t = c.start(TokenKind::Literal);
      c.advance();
      bool closed = false;
      while (!c.atEnd()) {
        if (c.at() == ch) {
          if (c.at(1) == ch && c.has(1)) {
            t.value.push_back(static_cast<char>(ch));
            c.advance(2);
            continue;
          }
          c.advance();
          closed = true;
          break;
        }
        t.value.push_back(static_cast<char>(c.at()));
        c.advance();
      }
      if (!closed) return fail(t, text.size() - t.offset, "unterminated quoted literal");
      finish(t);
      continue;
    }
    if (startsNumber(c, text)) {
      Token t = c.start(TokenKind::Number);
      size_t i = 0;
      bool digitsOnly = true;
      if (c.at(i) == '+' || c.at(i) == '-') ++i;
      while (c.has(i) && isDigit(c.at(i))) ++i;
      if (c.at(i) == '.' && c.has(i) && !isTerminalPeriod(text, c.pos() + i)) {
        digitsOnly = false;
        ++i;
        while (c.has(i) && isDigit(c.at(i))) ++i;
      }
      if ((c.at(i) == 'e' || c.at(i) == 'E') &&
          (isDigit(c.at(i + 1)) || ((c.at(i + 1) == '+' || c.at(i + 1) == '-') &&
                                    isDigit(c.at(i + 2))))) {
        digitsOnly = false;
        i += 2;
        while (c.has(i) && isDigit(c.at(i))) ++i;
      }
      if (c.has(i) && isWordChar(c.at(i)) && !isTerminalPeriod(text, c.pos() + i)) {
        while (c.has(i) && isWordChar(c.at(i)) && !isTerminalPeriod(text, c.pos() + i)) ++i;
        return fail(t, i, "invalid number");
      }
      const char* first = text.data() + t.offset;
      const char* last = first + i;
      if (*first == '+') ++first;
      double value = 0;
      auto result = std::from_chars(first, last, value);
      if (result.ec == std::errc::result_out_of_range) return fail(t, i, "number out of range");
      if (result.ec != std::errc() || result.ptr != last) return fail(t, i, "invalid number");
      t.number = value;
      t.integerForm = digitsOnly;
      c.advance(i);
      finish(t);
      continue;
    }
    if (isWordStart(ch)) {
      Token t = c.start(TokenKind::Word);
      size_t i = 0;
      while (c.has(i) && isWordChar(c.at(i)) && !isTerminalPeriod(text, c.pos() + i)) ++i;
      // A period that closes a word but not the line belongs to no word.
      while (i > 1 && c.at(i - 1) == '.') --i;
      c.advance(i);
      finish(t);
      continue;
    }
    TokenKind kind = TokenKind::Symbol;
    switch (ch) {
      case '/': kind = TokenKind::Slash; break;
      case '=': kind = TokenKind::Equals; break;
      case '(': kind = TokenKind::LeftParen; break;
      case ')': kind = TokenKind::RightParen; break;
      case ',': kind = TokenKind::Comma; break;
      case '.':
        if (isTerminalPeriod(text, c.pos())) kind = TokenKind::Terminator;
        break;
      default: break;
    }
    Token t = c.start(kind);
    c.advance();
    finish(t);
  }
  Token end;
  end.kind = TokenKind::End;
  end.line = endLine;
  end.column = endColumn;
  end.offset = text.size();
  tokens.push_back(std::move(end));
  return true;
}

std::string describeToken(const Token& token) {
  if (token.kind == TokenKind::End) return "end of command";
  constexpr size_t kMaxShown = 40;
  std::string shown = token.text;
  bool cut = false;
  size_t lineFeed = shown.find('\n');
  if (lineFeed != std::string::npos) {
    shown.resize(lineFeed);
    cut = true;
  }
  if (shown.size() > kMaxShown) {
    size_t keep = kMaxShown;
    // Never split a UTF-8 sequence: step back over continuation bytes.
    while (keep > 0 && (static_cast<unsigned char>(shown[keep]) & 0xC0) == 0x80) --keep;
    shown.resize(keep);
    cut = true;
  }
  if (cut) shown += "...";
  return shown;
}

std::string positionedMessage(const Token& token, const std::string& message) {
  return "Line " + std::to_string(token.line) + ", column " + std::to_string(token.column) +
         ", at " + describeToken(token) + ": " + message + ".";
}

}  // namespace parser
}  // namespace zorvhost
