// The tokenizer: token kinds, positions, literals, numbers and the terminating period.
#include "parser/tokenizer.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

using zorvhost::parser::describeToken;
using zorvhost::parser::isTerminalPeriod;
using zorvhost::parser::positionedMessage;
using zorvhost::parser::Token;
using zorvhost::parser::TokenizeError;
using zorvhost::parser::TokenKind;
using zorvhost::parser::tokenize;
using zorvhost::parser::tokenKindName;

std::vector<Token> tokensOf(const std::string& text) {
  std::vector<Token> tokens;
  TokenizeError error;
  EXPECT_TRUE(tokenize(text, tokens, error)) << error.message;
  return tokens;
}

std::vector<TokenKind> kindsOf(const std::string& text) {
  std::vector<TokenKind> kinds;
  for (const auto& t : tokensOf(text)) kinds.push_back(t.kind);
  return kinds;
}

std::string errorOf(const std::string& text) {
  std::vector<Token> tokens{Token{}};
  TokenizeError error;
  EXPECT_FALSE(tokenize(text, tokens, error));
  EXPECT_TRUE(tokens.empty()) << "a failed tokenization must deliver no tokens";
  return positionedMessage(error.token, error.message);
}

TEST(Tokenizer, KindsTextsAndPositionsOnOneLine) {
  auto t = tokensOf("GENOSTAT /JOB NAME='my_run_1'");
  ASSERT_EQ(t.size(), 7u);
  EXPECT_EQ(t[0].kind, TokenKind::Word);
  EXPECT_EQ(t[0].text, "GENOSTAT");
  EXPECT_EQ(t[1].kind, TokenKind::Slash);
  EXPECT_EQ(t[1].column, 10);
  EXPECT_EQ(t[2].text, "JOB");
  EXPECT_EQ(t[2].column, 11);
  EXPECT_EQ(t[3].column, 15);
  EXPECT_EQ(t[4].kind, TokenKind::Equals);
  EXPECT_EQ(t[4].column, 19);
  EXPECT_EQ(t[5].kind, TokenKind::Literal);
  EXPECT_EQ(t[5].text, "'my_run_1'");
  EXPECT_EQ(t[5].value, "my_run_1");
  EXPECT_EQ(t[5].column, 20);
  EXPECT_EQ(t[5].offset, 19u);
  EXPECT_EQ(t[6].kind, TokenKind::End);
  EXPECT_EQ(t[6].line, 1);
  EXPECT_EQ(t[6].column, 30) << "the end sits just behind the last token";
}

TEST(Tokenizer, PositionsAcrossIndentedLines) {
  std::string text = "GENOSTAT\n" + std::string(40, ' ') + "/PRINT MESSAGE=100.\n";
  auto t = tokensOf(text);
  ASSERT_EQ(t.size(), 8u);
  EXPECT_EQ(t[1].kind, TokenKind::Slash);
  EXPECT_EQ(t[1].line, 2);
  EXPECT_EQ(t[1].column, 41);
  EXPECT_EQ(t[3].text, "MESSAGE");
  EXPECT_EQ(t[3].column, 48);
  EXPECT_EQ(t[5].kind, TokenKind::Number);
  EXPECT_EQ(t[5].text, "100");
  EXPECT_TRUE(t[5].integerForm);
  EXPECT_EQ(t[5].column, 56);
  EXPECT_EQ(t[6].kind, TokenKind::Terminator);
  EXPECT_EQ(t[6].column, 59);
  EXPECT_EQ(t[7].kind, TokenKind::End);
  EXPECT_EQ(t[7].line, 2);
  EXPECT_EQ(t[7].column, 60);
}

TEST(Tokenizer, PunctuationAndSymbols) {
  EXPECT_EQ(kindsOf("/ = ( ) , * ; -"),
            (std::vector<TokenKind>{TokenKind::Slash, TokenKind::Equals, TokenKind::LeftParen,
                                    TokenKind::RightParen, TokenKind::Comma, TokenKind::Symbol,
                                    TokenKind::Symbol, TokenKind::Symbol, TokenKind::End}));
  EXPECT_EQ(kindsOf(""), std::vector<TokenKind>{TokenKind::End});
  EXPECT_EQ(kindsOf(" \t\r\n\v\f"), std::vector<TokenKind>{TokenKind::End});
}

TEST(Tokenizer, LiteralsUndoDoubledQuotesAndHoldAnyByte) {
  struct Case {
    const char* text;
    const char* value;
  } cases[] = {
      {"'it''s'", "it's"},
      {"\"say \"\"hi\"\"\"", "say \"hi\""},
      {"''", ""},
      {"\"\"", ""},
      {"'a\"b'", "a\"b"},
      {"\"a'b\"", "a'b"},
      {"'C:\\data\\x.fq'", "C:\\data\\x.fq"},
      {"'/donn\xC3\xA9" "es/\xE2\x82\xAC.fq'", "/donn\xC3\xA9" "es/\xE2\x82\xAC.fq"},
      {"'a.\nb.'", "a.\nb."},
      {"'x/y=(z),'", "x/y=(z),"},
  };
  for (const auto& c : cases) {
    auto t = tokensOf(c.text);
    ASSERT_EQ(t.size(), 2u) << c.text;
    EXPECT_EQ(t[0].kind, TokenKind::Literal) << c.text;
    EXPECT_EQ(t[0].value, c.value) << c.text;
    EXPECT_EQ(t[0].text, c.text);
  }
}

TEST(Tokenizer, LiteralWithNewlineMovesTheFollowingPositions) {
  auto t = tokensOf("'a\nbc' X");
  ASSERT_EQ(t.size(), 3u);
  EXPECT_EQ(t[1].text, "X");
  EXPECT_EQ(t[1].line, 2);
  EXPECT_EQ(t[1].column, 5);
}

TEST(Tokenizer, NumbersSignedDecimalAndExponent) {
  struct Case {
    const char* text;
    double value;
    bool integer;
  } cases[] = {
      {"95.0", 95.0, false}, {".05", 0.05, false}, {"-1", -1, true},     {"+2", 2, true},
      {"1e-3", 0.001, false}, {"2E+2", 200, false}, {"-.5", -0.5, false}, {"4.5", 4.5, false},
      {"007", 7, true},      {"3. ", 3, false},
  };
  for (const auto& c : cases) {
    auto t = tokensOf(std::string(c.text) + " x");
    ASSERT_EQ(t.size(), 3u) << c.text;
    EXPECT_EQ(t[0].kind, TokenKind::Number) << c.text;
    EXPECT_DOUBLE_EQ(t[0].number, c.value) << c.text;
    EXPECT_EQ(t[0].integerForm, c.integer) << c.text;
  }
}

TEST(Tokenizer, TerminatingPeriodIsNeverPartOfANumberOrWord) {
  EXPECT_EQ(kindsOf("MESSAGE=100."),
            (std::vector<TokenKind>{TokenKind::Word, TokenKind::Equals, TokenKind::Number,
                                    TokenKind::Terminator, TokenKind::End}));
  auto t = tokensOf("ADAPTERS=NONE. \t\r\n");
  EXPECT_EQ(t[2].text, "NONE");
  EXPECT_EQ(t[3].kind, TokenKind::Terminator);
  // F8.2 is one word; a period closing a word mid-line is a symbol of its own.
  EXPECT_EQ(tokensOf("F8.2 x")[0].text, "F8.2");
  EXPECT_EQ(kindsOf("b. /X"), (std::vector<TokenKind>{TokenKind::Word, TokenKind::Symbol,
                                                      TokenKind::Slash, TokenKind::Word,
                                                      TokenKind::End}));
  EXPECT_EQ(kindsOf(". x"), (std::vector<TokenKind>{TokenKind::Symbol, TokenKind::Word, TokenKind::End}));
}

TEST(Tokenizer, WordsTakeUtf8AndHostNameCharacters) {
  auto t = tokensOf("qc_score @x#y$ \xC3\xA9t\xC3\xA9 _a1");
  ASSERT_EQ(t.size(), 5u);
  EXPECT_EQ(t[0].text, "qc_score");
  EXPECT_EQ(t[1].text, "@x#y$");
  EXPECT_EQ(t[2].text, "\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(t[3].text, "_a1");
}

TEST(Tokenizer, ErrorsArePositionedAtTheOffendingToken) {
  EXPECT_EQ(errorOf("NAME='abc"), "Line 1, column 6, at 'abc: unterminated quoted literal.");
  EXPECT_EQ(errorOf("X\n  \"it\"\"s"), "Line 2, column 3, at \"it\"\"s: unterminated quoted literal.");
  EXPECT_EQ(errorOf("NTILES=4abc /X"), "Line 1, column 8, at 4abc: invalid number.");
  EXPECT_EQ(errorOf("P=1.2.3"), "Line 1, column 3, at 1.2.3: invalid number.");
  EXPECT_EQ(errorOf("P=1e"), "Line 1, column 3, at 1e: invalid number.");
  EXPECT_EQ(errorOf("P=1e999"), "Line 1, column 3, at 1e999: number out of range.");
}

TEST(Tokenizer, DescribeTokenCutsLongAndMultiLineTexts) {
  Token end;
  end.kind = TokenKind::End;
  EXPECT_EQ(describeToken(end), "end of command");
  Token lit;
  lit.kind = TokenKind::Literal;
  lit.text = "'" + std::string(60, 'a') + "'";
  EXPECT_EQ(describeToken(lit), "'" + std::string(39, 'a') + "...");
  lit.text = "'ab\ncd'";
  EXPECT_EQ(describeToken(lit), "'ab...");
  // 39 ASCII bytes then a two-byte character across the cut: the character is dropped whole.
  lit.text = std::string(39, 'a') + "\xC3\xA9" + "zz";
  EXPECT_EQ(describeToken(lit), std::string(39, 'a') + "...");
}

TEST(Tokenizer, TerminalPeriodDetection) {
  EXPECT_TRUE(isTerminalPeriod("a. \t\r\nb", 1));
  EXPECT_TRUE(isTerminalPeriod("a.", 1));
  EXPECT_FALSE(isTerminalPeriod("a.b", 1));
  EXPECT_FALSE(isTerminalPeriod("a. x", 1));
  EXPECT_FALSE(isTerminalPeriod("a.", 0));
  EXPECT_FALSE(isTerminalPeriod("a.", 7));
}

TEST(Tokenizer, KindNamesArePrintableAndDistinct) {
  std::set<std::string> names;
  for (TokenKind k : {TokenKind::Word, TokenKind::Number, TokenKind::Literal, TokenKind::Slash,
                      TokenKind::Equals, TokenKind::LeftParen, TokenKind::RightParen,
                      TokenKind::Comma, TokenKind::Terminator, TokenKind::Symbol, TokenKind::End}) {
    names.insert(tokenKindName(k));
  }
  EXPECT_EQ(names.size(), 11u);
  EXPECT_STREQ(tokenKindName(TokenKind::End), "end of command");
}

}  // namespace
