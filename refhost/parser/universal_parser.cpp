// UniversalParser: checks one command against its CommandDescriptor and fills a CommandSpec.
//
// The parser is a recursive descent over the tokens, driven entirely by the descriptors: nothing
// here knows any particular command. The first fault ends the parse; it is reported once to the
// host's client with its position and the offending token, and the CommandSpec is left empty so that a
// procedure that ignored the result would still find nothing to interpret.
#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "host/tokens.h"
#include "parser/grammar.h"
#include "parser/result.h"
#include "parser/text.h"
#include "parser/tokenizer.h"
#include "zorvhost/client.h"

using zorvhost::parser::equalsNoCase;
using zorvhost::parser::Token;
using zorvhost::parser::TokenKind;
using zorvhost::parser::toUpperAscii;
using zorvhost::parser::ValueItem;

namespace {

struct ParseFault {
  Token token;
  std::string message;
};

// A list of names also ends at a keyword of the subcommand it belongs to (none inside brackets).
struct ListContext {
  const SubComDescriptor::Impl* owner = nullptr;
};

class Engine {
 public:
  Engine(const std::vector<Token>& tokens, const CommandDescriptor::Impl& command,
         CommandSpec::Impl& out)
      : tokens_(tokens), command_(command), out_(out) {}

  void run() {
    out_.name = command_.name;
    parseCommandName();
    parseLeadingNames();
    parseSubcommands();
  }

 private:
  const Token& peek(size_t ahead = 0) const {
    size_t i = pos_ + ahead;
    return i < tokens_.size() ? tokens_[i] : tokens_.back();
  }
  const Token& next() {
    const Token& t = peek();
    if (pos_ < tokens_.size() - 1) ++pos_;
    return t;
  }
  bool at(TokenKind kind, size_t ahead = 0) const { return peek(ahead).kind == kind; }
  bool atCommandEnd() const { return at(TokenKind::End) || at(TokenKind::Terminator); }
  bool atSubcommandEnd() const { return atCommandEnd() || at(TokenKind::Slash); }

  [[noreturn]] static void fail(const Token& token, std::string message) {
    throw ParseFault{token, std::move(message)};
  }

  // ---- command level ------------------------------------------------------------------------

  void parseCommandName() {
    for (const auto& word : command_.words) {
      const Token& t = peek();
      if (t.kind != TokenKind::Word || !equalsNoCase(t.text, word)) {
        fail(t, "the command must start with " + command_.name);
      }
      next();
    }
  }

  void parseLeadingNames() {
    int count = 0;
    while (count < command_.maxLeadingNames && at(TokenKind::Word) && !at(TokenKind::Equals, 1)) {
      out_.leadingNames.push_back(next().text);
      ++count;
    }
    if (count < command_.minLeadingNames) fail(peek(), "a name is expected after " + command_.name);
  }

  void parseSubcommands() {
    bool first = true;
    while (true) {
      const Token& t = peek();
      if (t.kind == TokenKind::End) break;
      if (t.kind == TokenKind::Terminator) {
        next();
        if (!at(TokenKind::End)) fail(peek(), "text follows the end of the command");
        break;
      }
      const SubComDescriptor* desc = nullptr;
      const Token* nameToken = nullptr;
      if (t.kind == TokenKind::Slash) {
        next();
        nameToken = &peek();
        if (nameToken->kind != TokenKind::Word) fail(*nameToken, "a subcommand name is expected after '/'");
        desc = command_.findSubCom(nameToken->text);
        if (!desc) fail(*nameToken, "unknown subcommand of " + command_.name);
        next();
      } else if (first && command_.firstSubComWithoutSlash && t.kind == TokenKind::Word) {
        nameToken = &t;
        desc = command_.findSubCom(t.text);
        if (!desc) fail(t, "unknown subcommand of " + command_.name);
        next();
      } else {
        fail(t, "a subcommand starting with '/' is expected");
      }
      const SubComDescriptor::Impl& sub = desc->impl();
      if (!sub.repeatable) {
        for (const auto& given : out_.subcommands) {
          if (given->impl().name == sub.name) {
            fail(*nameToken, "subcommand /" + sub.name + " is given more than once");
          }
        }
      }
      auto obj = std::make_unique<SubComObj>();
      obj->impl().name = sub.name;
      parseSubcommandBody(sub, obj->impl());
      out_.subcommands.push_back(std::move(obj));
      first = false;
    }
    for (const auto& s : command_.subcommands) {
      const auto& sub = s.impl();
      if (!sub.required) continue;
      bool given = false;
      for (const auto& g : out_.subcommands) given = given || g->impl().name == sub.name;
      if (!given) fail(peek(), "subcommand /" + sub.name + " is required");
    }
  }

  // ---- subcommand level ---------------------------------------------------------------------

  void parseSubcommandBody(const SubComDescriptor::Impl& sub, SubComObj::Impl& out) {
    using namespace UPSpecTypes;
    switch (sub.spec) {
      case SubComBare:
        if (!atSubcommandEnd()) fail(peek(), "/" + sub.name + " takes nothing after its name");
        return;
      case SubComStandard:
        if (at(TokenKind::Equals)) fail(peek(), "unexpected '=' after subcommand /" + sub.name);
        parseParameters(sub, out);
        return;
      case SubComOptionalEquals:
        if (at(TokenKind::Equals)) {
          next();
          if (atSubcommandEnd()) fail(peek(), "a keyword of /" + sub.name + " must follow '='");
        }
        parseParameters(sub, out);
        return;
      case SubComValue:
      case SubComValueOptionalEquals:
        parseSubcommandValue(sub, out);
        return;
    }
    fail(peek(), "the grammar of /" + sub.name + " has an unknown subcommand form");
  }

  void parseSubcommandValue(const SubComDescriptor::Impl& sub, SubComObj::Impl& out) {
    if (sub.value.empty()) fail(peek(), "the grammar of /" + sub.name + " declares no value");
    const ParamDescriptor::Impl& valueDesc = sub.value.front().impl();
    bool equals = at(TokenKind::Equals);
    if (equals) {
      next();
    } else if (sub.spec == UPSpecTypes::SubComValue && (valueDesc.valueRequired || !atSubcommandEnd())) {
      fail(peek(), "'=' is expected after subcommand /" + sub.name);
    }
    auto value = std::make_unique<ParamObj>();
    value->impl().name = valueDesc.name;
    if (equals || valueDesc.valueRequired || !atSubcommandEnd()) {
      parseValue(valueDesc, value->impl(), ListContext{&sub});
    }
    out.value = std::move(value);
    if (!atSubcommandEnd()) {
      fail(peek(), "'/' or the end of the command is expected after the value of /" + sub.name);
    }
  }

  void parseParameters(const SubComDescriptor::Impl& sub, SubComObj::Impl& out) {
    while (!atSubcommandEnd()) {
      const Token& t = peek();
      if (t.kind != TokenKind::Word) fail(t, "a keyword of subcommand /" + sub.name + " is expected");
      const ParamDescriptor* desc = sub.findParam(t.text);
      if (!desc) fail(t, "unknown keyword of subcommand /" + sub.name);
      const ParamDescriptor::Impl& param = desc->impl();
      if (!param.repeatable) {
        for (const auto& given : out.params) {
          if (given->impl().name == param.name) {
            fail(t, "keyword " + param.name + " is given more than once");
          }
        }
      }
      next();
      auto obj = std::make_unique<ParamObj>();
      obj->impl().name = param.name;
      parseParameter(param, obj->impl(), sub);
      out.params.push_back(std::move(obj));
    }
  }

  // ---- parameter level ----------------------------------------------------------------------

  void parseParameter(const ParamDescriptor::Impl& param, ParamObj::Impl& out,
                      const SubComDescriptor::Impl& owner) {
    if (param.spec == UPSpecTypes::ParamSwitch) {
      if (at(TokenKind::Equals) || at(TokenKind::LeftParen)) fail(peek(), param.name + " takes no value");
      return;
    }
    bool brackets = param.brackets == UPSpecTypes::ValueInBrackets ||
                    param.spec == UPSpecTypes::ParamQualifierValue;
    if (brackets) {
      if (at(TokenKind::LeftParen)) {
        parseBracketedValue(param, out);
      } else if (param.valueRequired) {
        fail(peek(), "'(' is expected after " + param.name);
      }
      return;
    }
    if (at(TokenKind::Equals)) {
      next();
      parseValue(param, out, ListContext{&owner});
    } else if (param.valueRequired) {
      fail(peek(), "'=' is expected after " + param.name);
    }
  }

  void parseBracketedValue(const ParamDescriptor::Impl& param, ParamObj::Impl& out) {
    next();  // (
    parseValue(param, out, ListContext{nullptr});
    if (!at(TokenKind::RightParen)) fail(peek(), "')' is expected after the value of " + param.name);
    next();
  }

  // ---- values -------------------------------------------------------------------------------

  // A list item separated by a comma must be followed by another item.
  bool takeSeparator(const ParamDescriptor::Impl& param, bool (Engine::*isItem)() const) {
    if (!at(TokenKind::Comma)) return (this->*isItem)();
    next();
    if (!(this->*isItem)()) fail(peek(), "another item of " + param.name + " must follow ','");
    return true;
  }
  bool atLiteral() const { return at(TokenKind::Literal); }
  bool atNumber() const { return at(TokenKind::Number); }

  // A word continues a list of names unless it starts the next keyword: it is followed by `=`,
  // or it is a keyword of the same subcommand.
  bool continuesNameList(const ListContext& ctx) const {
    const Token& t = peek();
    if (t.kind != TokenKind::Word || at(TokenKind::Equals, 1)) return false;
    return !(ctx.owner && ctx.owner->findParam(t.text));
  }

  ValueItem wordItem(const ParamDescriptor::Impl& param, const Token& t) const {
    ValueItem item;
    if (const std::string* value = param.findValue(t.text)) {
      item.kind = ValueItem::Kind::Keyword;
      item.text = *value;
    } else if (param.restricted && !param.values.empty()) {
      fail(t, param.name + " accepts only " + param.allowedList());
    } else {
      item.kind = ValueItem::Kind::Name;
      item.text = t.text;
    }
    return item;
  }

  static ValueItem literalItem(const Token& t) {
    ValueItem item;
    item.kind = ValueItem::Kind::Literal;
    item.text = t.value;
    return item;
  }

  static ValueItem numberItem(const Token& t) {
    ValueItem item;
    item.kind = ValueItem::Kind::Number;
    item.text = t.text;
    item.number = t.number;
    item.integerForm = t.integerForm;
    return item;
  }

  void expectLiteral(const ParamDescriptor::Impl& param) {
    if (!at(TokenKind::Literal)) fail(peek(), "a quoted literal is expected for " + param.name);
  }
  void expectNumber(const ParamDescriptor::Impl& param) {
    if (!at(TokenKind::Number)) fail(peek(), "a number is expected for " + param.name);
  }
  std::string wordKind(const ParamDescriptor::Impl& param) const {
    return param.restricted && !param.values.empty() ? "a keyword" : "a name";
  }
  void expectWord(const ParamDescriptor::Impl& param) {
    if (!at(TokenKind::Word) || at(TokenKind::Equals, 1)) {
      fail(peek(), wordKind(param) + " is expected for " + param.name);
    }
  }

  void parseValue(const ParamDescriptor::Impl& param, ParamObj::Impl& out, const ListContext& ctx) {
    using namespace UPSpecTypes;
    auto& items = out.items;
    switch (param.spec) {
      case ParamSwitch:
        return;
      case ParamLiteral:
        expectLiteral(param);
        items.push_back(literalItem(next()));
        return;
      case ParamLiteralList:
        expectLiteral(param);
        do {
          items.push_back(literalItem(next()));
        } while (takeSeparator(param, &Engine::atLiteral));
        return;
      case ParamNumber:
        expectNumber(param);
        items.push_back(numberItem(next()));
        return;
      case ParamNumberList:
        expectNumber(param);
        do {
          items.push_back(numberItem(next()));
        } while (takeSeparator(param, &Engine::atNumber));
        return;
      case ParamInteger: {
        const Token& t = peek();
        if (t.kind != TokenKind::Number || !t.integerForm) fail(t, "an integer is expected for " + param.name);
        if (t.number < static_cast<double>(INT_MIN) || t.number > static_cast<double>(INT_MAX)) {
          fail(t, "the integer for " + param.name + " is out of range");
        }
        items.push_back(numberItem(next()));
        return;
      }
      case ParamName:
        expectWord(param);
        items.push_back(wordItem(param, next()));
        return;
      case ParamNameList:
        parseNameList(param, items, ctx);
        return;
      case ParamNameKeywordPairs:
        parsePairs(param, out);
        return;
      case ParamQualifierValue: {
        const Token& t = peek();
        if (t.kind == TokenKind::Literal) {
          items.push_back(literalItem(next()));
        } else if (t.kind == TokenKind::Number) {
          items.push_back(numberItem(next()));
        } else if (t.kind == TokenKind::Word) {
          items.push_back(wordItem(param, next()));
        } else {
          fail(t, "a name or quoted literal is expected for " + param.name);
        }
        return;
      }
      case ParamKeywordQualif:
        parseQualified(param, out);
        return;
    }
    fail(peek(), "the grammar of " + param.name + " has an unknown value kind");
  }

  void parseNameList(const ParamDescriptor::Impl& param, std::vector<ValueItem>& items,
                     const ListContext& ctx) {
    // The first word is always an item: VARIABLES=SKEWNESS names a variable.
    expectWord(param);
    items.push_back(wordItem(param, next()));
    while (true) {
      if (at(TokenKind::Comma)) {
        next();
        if (!at(TokenKind::Word) || at(TokenKind::Equals, 1)) {
          fail(peek(), "another item of " + param.name + " must follow ','");
        }
        items.push_back(wordItem(param, next()));
        continue;
      }
      if (!continuesNameList(ctx)) return;
      items.push_back(wordItem(param, next()));
    }
  }

  void parsePairs(const ParamDescriptor::Impl& param, ParamObj::Impl& out) {
    out.pairs = true;
    expectWord(param);
    while (at(TokenKind::Word)) {
      ValueItem name;
      name.kind = ValueItem::Kind::Name;
      name.text = next().text;
      const Token& keyword = peek();
      if (keyword.kind != TokenKind::Word) fail(keyword, "a keyword is expected after the name " + name.text);
      ValueItem item = wordItem(param, next());
      item.kind = ValueItem::Kind::Keyword;
      item.text = toUpperAscii(item.text);
      out.items.push_back(std::move(name));
      out.items.push_back(std::move(item));
      if (at(TokenKind::Comma)) {
        next();
        if (!at(TokenKind::Word)) fail(peek(), "another item of " + param.name + " must follow ','");
      }
    }
  }

  void parseQualified(const ParamDescriptor::Impl& param, ParamObj::Impl& out) {
    const Token& t = peek();
    if (t.kind != TokenKind::Word) fail(t, "a keyword is expected for " + param.name);
    const ParamDescriptor* qualifier = param.findQualifier(t.text);
    if (!qualifier) fail(t, param.name + " accepts only " + param.allowedList());
    next();
    const ParamDescriptor::Impl& q = qualifier->impl();
    ParamObj given;
    given.impl().name = q.name;
    if (q.spec == UPSpecTypes::ParamSwitch) {
      if (at(TokenKind::LeftParen)) fail(peek(), q.name + " takes no value");
    } else if (at(TokenKind::LeftParen)) {
      parseBracketedValue(q, given.impl());
    } else if (q.valueRequired) {
      fail(peek(), "'(' is expected after " + q.name);
    }
    ValueItem keyword;
    keyword.kind = ValueItem::Kind::Keyword;
    keyword.text = q.name;
    out.items.push_back(std::move(keyword));
    out.qualifier.push_back(std::move(given));
  }

  const std::vector<Token>& tokens_;
  const CommandDescriptor::Impl& command_;
  CommandSpec::Impl& out_;
  size_t pos_ = 0;
};

}  // namespace

UniversalParser::UniversalParser(ZORV_TokenSequence* tokens, CommandSpec* spec,
                                 CommandDescriptor* descriptor)
    : tokens_(tokens), spec_(spec), descriptor_(descriptor) {}

UniversalParser::~UniversalParser() = default;

int UniversalParser::getCommandSpecifications() {
  if (!descriptor_) {
    zorvhost::reportCommandError("", "No command descriptor was given to the parser.");
    return 1;
  }
  const CommandDescriptor::Impl& command = descriptor_->impl();
  if (!spec_) {
    zorvhost::reportCommandError(command.name, "No command result was given to the parser.");
    return 1;
  }
  CommandSpec::Impl& out = spec_->impl();
  out.clear();
  static const std::string kNoText;
  const std::string& text = tokens_ ? tokens_->commandText() : kNoText;

  std::vector<Token> tokens;
  zorvhost::parser::TokenizeError tokenError;
  if (!zorvhost::parser::tokenize(text, tokens, tokenError)) {
    zorvhost::reportCommandError(
        command.name, zorvhost::parser::positionedMessage(tokenError.token, tokenError.message));
    return 1;
  }
  try {
    Engine(tokens, command, out).run();
  } catch (const ParseFault& fault) {
    out.clear();
    zorvhost::reportCommandError(command.name,
                                 zorvhost::parser::positionedMessage(fault.token, fault.message));
    return 1;
  }
  return 0;
}
