// libFuzzer target of the command language: splits the input into commands and parses each one
// with GENOSTAT's grammar and with the catalogue's grammar its name selects, then reads every
// result through every getter. Beyond memory faults it checks the parser's contract: a command is
// either accepted with no error reported, or refused with exactly one error and an empty result.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "genostat_grammar.h"
#include "host/parser.h"
#include "host/tokens.h"
#include "zorvhost/client.h"
#include "zorvhost/commands.h"

namespace {

void readEverything(const ParamObj& p) {
  int i = 0;
  double d = 0;
  std::vector<double> ds;
  std::string s;
  std::vector<std::string> ss;
  std::vector<std::pair<std::string, std::string>> pairs;
  ParamObj q;
  p.getIntegerValue(i);
  p.getNumberValue(d);
  p.getNumberList(ds);
  p.getLiteral(s);
  p.getLiteralList(ss);
  p.getStringList(ss);
  p.getStringGeneric(s);
  p.getUpStringGeneric(s);
  p.getNamePairs(pairs);
  if (p.getStringAndQual(q)) readEverything(q);
}

void check(bool condition) {
  if (!condition) abort();
}

// The distinct words of the text (at most 64): the names under which results are looked up.
std::vector<std::string> wordsOf(const std::string& text) {
  std::vector<std::string> words;
  std::string word;
  auto flush = [&] {
    if (!word.empty() && words.size() < 64) {
      bool seen = false;
      for (const auto& w : words) seen = seen || w == word;
      if (!seen) words.push_back(word);
    }
    word.clear();
  };
  for (char c : text) {
    bool part = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
    if (part) {
      word.push_back(c);
    } else {
      flush();
    }
  }
  flush();
  return words;
}

void parseWith(CommandDescriptor& descriptor, const std::string& text) {
  zorvhost::setCommandText(text);
  ZORV_TokenSequence tokens(true);
  CommandSpec spec;
  int result = UniversalParser(&tokens, &spec, &descriptor).getCommandSpecifications();
  auto errors = zorvhost::takeCommandErrors();
  check(result == 0 ? errors.empty() : errors.size() == 1);
  std::vector<std::string> names;
  check(result == 0 || !spec.getLeadingNames(names));
  // Reads each result once: the first few occurrences of every subcommand and keyword that a word
  // of the text could name (repeats are capped so that a long input stays cheap).
  const std::vector<std::string> words = wordsOf(text);
  for (const auto& word : words) {
    std::vector<SubComObj*> subs = spec.getSubComObjs(word.c_str());
    check(result == 0 || subs.empty());
    if (subs.size() > 3) subs.resize(3);
    for (SubComObj* sub : subs) {
      if (ParamObj* value = sub->getValueObj()) readEverything(*value);
      for (const auto& name : words) {
        std::vector<ParamObj*> params = sub->getParamObjs(name.c_str());
        if (params.size() > 3) params.resize(3);
        for (ParamObj* p : params) readEverything(*p);
      }
    }
  }
}

CommandDescriptor& genostat() {
  static CommandDescriptor* descriptor = [] {
    auto* d = new CommandDescriptor("GENOSTAT");
    parsertest::buildGenostatGrammar(*d);
    return d;
  }();
  return *descriptor;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string syntax(reinterpret_cast<const char*>(data), size);
  zorvhost::takeCommandErrors();
  for (const auto& command : zorvhost::splitCommands(syntax)) {
    parseWith(genostat(), command.text);
    std::string name = zorvhost::commandName(command.text);
    if (const CommandDescriptor* found = zorvhost::findCommandDescriptor(name)) {
      CommandDescriptor copy(*found);
      parseWith(copy, command.text);
    }
  }
  return 0;
}
