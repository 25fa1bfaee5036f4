// The command language end to end: command_language.txt holds tokenizer, splitting and parse cases
// (GENOSTAT's grammar, the catalogue's, and a grammar of what neither declares), each followed by
// what it gives; the seed corpus of the fuzzer is parsed there too. See refhost/tests/golden.h.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "genostat_grammar.h"
#include "golden.h"
#include "host/parser.h"
#include "host/tokens.h"
#include "parser/result.h"
#include "parser/tokenizer.h"
#include "zorvhost/client.h"
#include "zorvhost/commands.h"

namespace {

namespace parser = zorvhost::parser;
using namespace UPSpecTypes;

std::string show(const std::string& s) { return "`" + golden::escape(s) + "`"; }
std::string show(int i) { return std::to_string(i); }
std::string show(double d) {
  std::ostringstream o;
  o << d;
  return o.str();
}
std::string show(const std::pair<std::string, std::string>& p) { return show(p.first) + ":" + show(p.second); }
template <typename T>
std::string show(const std::vector<T>& list) {
  std::string out;
  for (const auto& item : list) out += (out.empty() ? "" : ", ") + show(item);
  return "[" + out + "]";
}

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// What a getter delivers; one that answers false must leave its argument as it was.
template <typename T>
void get(std::string& out, const char* label, bool (ParamObj::*getter)(T&) const, const ParamObj& p, T value) {
  const T before = value;
  if ((p.*getter)(value)) {
    out += std::string(" ") + label + "=" + show(value);
  } else if (!(value == before)) {
    out += std::string(" ") + label + " changed its argument";
  }
}

std::string param(const ParamObj& p) {
  std::string out = p.getParamName();
  get<int>(out, "int", &ParamObj::getIntegerValue, p, -99);
  get<double>(out, "num", &ParamObj::getNumberValue, p, -99);
  get<std::vector<double>>(out, "nums", &ParamObj::getNumberList, p, {-99});
  get<std::string>(out, "lit", &ParamObj::getLiteral, p, "?");
  get<std::vector<std::string>>(out, "lits", &ParamObj::getLiteralList, p, {"?"});
  get<std::vector<std::string>>(out, "words", &ParamObj::getStringList, p, {"?"});
  get<std::string>(out, "generic", &ParamObj::getStringGeneric, p, "?");
  get<std::string>(out, "up", &ParamObj::getUpStringGeneric, p, "?");
  get<std::vector<std::pair<std::string, std::string>>>(out, "pairs", &ParamObj::getNamePairs, p, {{"?", "?"}});
  ParamObj qualifier;
  if (p.getStringAndQual(qualifier)) out += " qualifier " + param(qualifier);
  return out;
}

// The distinct names, in order, under which `list` holds objects: looked up in lower case.
template <typename List>
std::vector<std::string> namesOf(const List& list) {
  std::vector<std::string> names;
  for (const auto& item : list) {
    if (std::find(names.begin(), names.end(), lower(item->impl().name)) == names.end()) {
      names.push_back(lower(item->impl().name));
    }
  }
  return names;
}

std::string subcommand(const SubComObj& sub) {
  std::string out = "/" + sub.getSubComName() + "\n";
  if (ParamObj* value = sub.getValueObj()) {
    out += "  = " + param(*value) + "\n";
    if (sub.getParamObj(lower(value->getParamName()).c_str()) != value) out += "  (value not found by its name)\n";
  }
  for (const auto& name : namesOf(sub.impl().params)) {
    const std::vector<ParamObj*> given = sub.getParamObjs(name.c_str());
    for (ParamObj* p : given) out += "  " + param(*p) + "\n";
    if (sub.getParamObj(name.c_str()) != given.front()) out += "  (getParamObj finds another " + name + ")\n";
  }
  return out;
}

// Parses `text` into `parsed` (kept from case to case, so that a refusal must empty it). The result is
// read from copies taken before the parse result is cleared: what a procedure keeps must outlive it.
std::string parse(CommandDescriptor& descriptor, CommandSpec& parsed, const std::string& text) {
  zorvhost::takeCommandErrors();
  zorvhost::setCommandText(text);
  ZORV_TokenSequence tokens(true);
  const int result = UniversalParser(&tokens, &parsed, &descriptor).getCommandSpecifications();
  std::string out;
  for (const auto& e : zorvhost::takeCommandErrors()) out += "error " + e.command + ": " + e.text + "\n";
  std::vector<std::string> names;
  const bool hasNames = parsed.getLeadingNames(names);
  if (result != 0) {
    if (hasNames || !parsed.impl().subcommands.empty()) out += "the refused command left a result\n";
    return out.empty() ? "refused without an error" : out;
  }
  out += hasNames ? "ok, names " + show(names) + "\n" : "ok\n";
  std::vector<SubComObj> copies;
  for (const auto& name : namesOf(parsed.impl().subcommands)) {
    const std::vector<SubComObj*> given = parsed.getSubComObjs(name.c_str());
    for (SubComObj* s : given) copies.emplace_back() = *s;
    if (parsed.getSubComObj(name.c_str()) != given.front()) out += "(getSubComObj finds another " + name + ")\n";
  }
  parsed.impl().clear();
  for (const auto& s : copies) out += subcommand(SubComObj(s));
  return out;
}

// What neither GENOSTAT nor the catalogue declares: a repeatable keyword, values that may be left
// out, several leading names, and faults in a declared grammar itself.
CommandDescriptor testGrammar() {
  CommandDescriptor t("TEST GRAMMAR");
  t.setLeadingNames(2, 1);  // a maximum below the minimum is raised to it
  SubComDescriptor s("S", SubComStandard, false, false);
  ParamDescriptor rep("REP", ParamInteger, false, true, NoBrackets);
  rep.setRepeatable(true);
  s.addParamDesc(rep);
  s.addParamDesc(ParamDescriptor("OPT", ParamNumber, false, false, NoBrackets));
  ParamDescriptor mixed("MIXED", ParamNameList, false, true, NoBrackets);
  mixed.addStringValue("ENTER");
  s.addParamDesc(mixed);
  s.addParamDesc(ParamDescriptor("NUMS", ParamNumberList, false, false, ValueInBrackets));
  s.addParamDesc(ParamDescriptor("WEIRD", static_cast<ParamSpec>(99), false, true, NoBrackets));
  t.addSubComDesc(s);
  SubComDescriptor maybe("MAYBE", SubComValue, false, false);
  maybe.setValueDesc(ParamDescriptor("AMOUNT", ParamNumber, false, false, NoBrackets));
  t.addSubComDesc(maybe);
  t.addSubComDesc(SubComDescriptor("NOVALUE", SubComValue, false, false));
  t.addSubComDesc(SubComDescriptor("ODD", static_cast<SubComSpec>(77), false, false));
  return t;
}

// "@grammar BY-NAME": GENOSTAT's grammar for GENOSTAT, else the catalogue's for the command's name.
std::string parseByName(CommandSpec& parsed, const std::string& text) {
  const std::string name = zorvhost::commandName(text);
  CommandDescriptor genostat("GENOSTAT");
  parsertest::buildGenostatGrammar(genostat);
  if (name == "GENOSTAT") return parse(genostat, parsed, text);
  const CommandDescriptor* found = zorvhost::findCommandDescriptor(name);
  if (!found) return "not in the catalogue: " + show(name);
  CommandDescriptor copy(*found);
  return parse(copy, parsed, text);
}

std::string tokens(const std::string& text) {
  std::vector<parser::Token> tokens{parser::Token{}};
  parser::TokenizeError error;
  if (!parser::tokenize(text, tokens, error)) {
    return "error " + parser::positionedMessage(error.token, error.message) + (tokens.empty() ? "" : " (tokens kept)");
  }
  std::string out;
  for (const auto& t : tokens) {
    out += std::to_string(t.line) + ":" + std::to_string(t.column) + " @" + std::to_string(t.offset) + " " +
           parser::tokenKindName(t.kind) + " " + show(t.text);
    if (t.value != t.text) out += " value " + show(t.value);
    if (t.kind == parser::TokenKind::Number) out += " = " + show(t.number) + (t.integerForm ? " integer" : "");
    out += "\n";
  }
  return out;
}

std::string split(const std::string& text) {
  std::string out;
  for (const auto& c : zorvhost::splitCommands(text)) {
    out += "line " + std::to_string(c.firstLine) + " " + show(zorvhost::commandName(c.text)) + ": " + show(c.text) +
           "\n";
  }
  return out.empty() ? "no command" : out;
}

// Every seed of the fuzzer, command by command: the valid ones parse, each bad one holds one refusal.
std::string corpus() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(PARSER_FUZZ_CORPUS_DIR)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  std::string out;
  for (const auto& file : files) {
    out += file.filename().string() + "\n";
    for (const auto& c : zorvhost::splitCommands(golden::readFile(file.string()))) {
      CommandSpec parsed;
      std::istringstream result(parseByName(parsed, c.text));
      out += "  line " + std::to_string(c.firstLine) + " " + zorvhost::commandName(c.text) + ":\n";
      for (std::string line; std::getline(result, line);) out += "    " + line + "\n";
    }
  }
  return out;
}

TEST(CommandLanguage, EveryCaseGivesItsExpectedResult) {
  CommandSpec parsed;
  CommandDescriptor genostat("GENOSTAT"), test = testGrammar();
  parsertest::buildGenostatGrammar(genostat);
  golden::check(PARSER_TESTS_DIR "/command_language.txt", [&](const std::string& directive, const std::string* text) {
    if (!text) return directive == "@corpus" ? corpus() : std::string();
    if (directive == "@tokens") return tokens(*text);
    if (directive == "@split") return split(*text);
    if (directive == "@grammar GENOSTAT") return parse(genostat, parsed, *text);
    if (directive == "@grammar TEST") return parse(test, parsed, *text);
    if (directive == "@grammar BY-NAME") return parseByName(parsed, *text);
    ADD_FAILURE() << "a case under an unknown directive: " << directive;
    return std::string();
  });
}

TEST(CommandLanguage, MissingPartsOfTheCallAreReported) {
  CommandDescriptor d("X");
  CommandSpec parsed;
  zorvhost::takeCommandErrors();
  EXPECT_NE(UniversalParser(nullptr, &parsed, nullptr).getCommandSpecifications(), 0);
  EXPECT_NE(UniversalParser(nullptr, nullptr, &d).getCommandSpecifications(), 0);
  EXPECT_NE(UniversalParser(nullptr, &parsed, &d).getCommandSpecifications(), 0);  // no tokens: an empty command
  std::string errors;
  for (const auto& e : zorvhost::takeCommandErrors()) errors += e.command + ": " + e.text + "\n";
  EXPECT_EQ(errors,
            ": No command descriptor was given to the parser.\n"
            "X: No command result was given to the parser.\n"
            "X: Line 1, column 1, at end of command: the command must start with X.\n");
}

TEST(CommandLanguage, ParserMessageAppendsItsInsertsUnderTheCommandName) {
  zorvhost::takeCommandErrors();
  ParserMessage message;
  message.GenericError("before any name", nullptr, nullptr, nullptr, nullptr, nullptr);
  message.SetCommandName("GENOSTAT");
  message.SetProcedureTitle("GENOSTAT");
  message.GenericError("File not found: /a b.fq", "x", nullptr, "", "z", nullptr);
  message.GenericError(nullptr, "only", nullptr, nullptr, nullptr, "insert");
  message.SetCommandName(nullptr);
  message.GenericError("nameless", nullptr, nullptr, nullptr, nullptr, nullptr);
  std::string errors;
  for (const auto& e : zorvhost::takeCommandErrors()) errors += e.command + ": " + e.text + "\n";
  EXPECT_EQ(errors, ": before any name\nGENOSTAT: File not found: /a b.fq x  z\nGENOSTAT:  only insert\n: nameless\n");
}

}  // namespace
