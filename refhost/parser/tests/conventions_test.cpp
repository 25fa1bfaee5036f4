// The machinery beyond GENOSTAT and the catalogue: descriptor forms on small grammars of their own,
// the getters' refusal of the wrong kind, ParserMessage, and faults in what the caller hands over.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "parse_helper.h"

namespace {

using namespace UPSpecTypes;
using parsertest::parseCommand;

// One subcommand /S holding a parameter of every kind.
CommandDescriptor everyKind() {
  CommandDescriptor cmd("T");
  SubComDescriptor s("S", SubComStandard, false, false);
  s.addParamDesc(ParamDescriptor("LIT", ParamLiteral, false, true, NoBrackets));
  s.addParamDesc(ParamDescriptor("LITS", ParamLiteralList, false, true, NoBrackets));
  s.addParamDesc(ParamDescriptor("NUM", ParamNumber, false, true, NoBrackets));
  s.addParamDesc(ParamDescriptor("NUMS", ParamNumberList, false, true, NoBrackets));
  s.addParamDesc(ParamDescriptor("INT", ParamInteger, false, true, NoBrackets));
  s.addParamDesc(ParamDescriptor("NAMES", ParamNameList, true, true, NoBrackets));
  ParamDescriptor mixed("MIXED", ParamNameList, false, true, NoBrackets);
  mixed.addStringValue("ENTER");
  s.addParamDesc(mixed);
  s.addParamDesc(ParamDescriptor("SW", ParamSwitch, false, false, NoBrackets));
  ParamDescriptor q("Q", ParamKeywordQualif, true, true, NoBrackets);
  q.addQualifDesc("PLAIN");
  q.addQualifDesc(ParamDescriptor("WITH", ParamQualifierValue, false, true, NoBrackets));
  s.addParamDesc(q);
  ParamDescriptor opt("OPT", ParamNumber, false, false, NoBrackets);
  s.addParamDesc(opt);
  ParamDescriptor rep("REP", ParamInteger, false, true, NoBrackets);
  rep.setRepeatable(true);
  s.addParamDesc(rep);
  cmd.addSubComDesc(s);
  return cmd;
}

class Conventions : public ::testing::Test {
 protected:
  void parseOk(CommandDescriptor& d, const std::string& text) {
    auto outcome = parseCommand(d, spec_, text);
    ASSERT_EQ(outcome.result, 0) << outcome.error();
  }
  std::string parseError(CommandDescriptor& d, const std::string& text) {
    auto outcome = parseCommand(d, spec_, text);
    EXPECT_NE(outcome.result, 0) << text;
    return outcome.error();
  }
  ParamObj* param(const char* name) { return spec_.getSubComObj("S")->getParamObj(name); }
  CommandSpec spec_;
};

TEST_F(Conventions, EachGetterAnswersOnlyForItsKindAndLeavesItsArgumentOtherwise) {
  CommandDescriptor d = everyKind();
  parseOk(d, "T /S LIT='a' LITS='b' 'c' NUM=2.5 NUMS=1 2 INT=7 NAMES=x Y MIXED=enter z SW Q=WITH(v)");
  struct Expect {
    const char* name;
    bool integer, number, numbers, literal, literals, strings, generic, upper, qual;
  } table[] = {
      {"LIT", false, false, false, true, true, false, false, true, false},
      {"LITS", false, false, false, false, true, false, false, true, false},
      {"NUM", false, true, true, false, false, false, false, true, false},
      {"NUMS", false, false, true, false, false, false, false, true, false},
      {"INT", true, true, true, false, false, false, false, true, false},
      {"NAMES", false, false, false, false, false, true, true, true, false},
      {"MIXED", false, false, false, false, false, true, true, true, false},
      {"SW", false, false, false, false, false, false, false, false, false},
      {"Q", false, false, false, false, false, true, true, true, true},
  };
  for (const auto& e : table) {
    const ParamObj* p = param(e.name);
    ASSERT_NE(p, nullptr) << e.name;
    int i = -99;
    double n = -99;
    std::vector<double> ns{-99};
    std::string s = "keep";
    std::vector<std::string> ss{"keep"};
    ParamObj q;  // a fresh object: no name until a qualifier is copied in
    EXPECT_EQ(p->getIntegerValue(i), e.integer) << e.name;
    EXPECT_EQ(p->getNumberValue(n), e.number) << e.name;
    EXPECT_EQ(p->getNumberList(ns), e.numbers) << e.name;
    EXPECT_EQ(p->getLiteral(s), e.literal) << e.name;
    EXPECT_TRUE(e.literal || s == "keep") << e.name;
    EXPECT_EQ(p->getLiteralList(ss), e.literals) << e.name;
    EXPECT_TRUE(e.literals || ss == std::vector<std::string>{"keep"}) << e.name;
    EXPECT_TRUE(e.integer || i == -99) << e.name;
    EXPECT_TRUE(e.number || n == -99) << e.name;
    EXPECT_TRUE(e.numbers || ns == std::vector<double>{-99}) << e.name;
    ss = {"keep"};
    EXPECT_EQ(p->getStringList(ss), e.strings) << e.name;
    EXPECT_TRUE(e.strings || ss == std::vector<std::string>{"keep"}) << e.name;
    s = "keep";
    EXPECT_EQ(p->getStringGeneric(s), e.generic) << e.name;
    EXPECT_TRUE(e.generic || s == "keep") << e.name;
    s = "keep";
    EXPECT_EQ(p->getUpStringGeneric(s), e.upper) << e.name;
    EXPECT_TRUE(e.upper || s == "keep") << e.name;
    EXPECT_EQ(p->getStringAndQual(q), e.qual) << e.name;
    EXPECT_TRUE(e.qual || q.getParamName().empty()) << e.name;
    std::vector<std::pair<std::string, std::string>> pairs{{"k", "K"}};
    EXPECT_FALSE(p->getNamePairs(pairs)) << e.name;
    EXPECT_EQ(pairs.size(), 1u);
    EXPECT_EQ(p->getParamName(), e.name);
  }
  std::vector<std::string> list;
  ASSERT_TRUE(param("MIXED")->getStringList(list));
  EXPECT_EQ(list, (std::vector<std::string>{"ENTER", "z"})) << "declared values as keywords, other words as names";
  std::string up;
  ASSERT_TRUE(param("LIT")->getUpStringGeneric(up));
  EXPECT_EQ(up, "A");
  ASSERT_TRUE(param("NUM")->getUpStringGeneric(up));
  EXPECT_EQ(up, "2.5");
}

TEST_F(Conventions, KeywordRepeatsFollowTheDescriptor) {
  CommandDescriptor d = everyKind();
  parseOk(d, "T /S OPT REP=1 rep=2 REP=3");
  auto reps = spec_.getSubComObj("S")->getParamObjs("REP");
  ASSERT_EQ(reps.size(), 3u);
  int v = 0;
  ASSERT_TRUE(reps[2]->getIntegerValue(v));
  EXPECT_EQ(v, 3);
  EXPECT_EQ(param("rep"), reps[0]);
  double n = 1;
  EXPECT_FALSE(param("OPT")->getNumberValue(n)) << "a keyword without its optional value holds none";
  EXPECT_EQ(param(nullptr), nullptr);
  EXPECT_EQ(spec_.getSubComObj(nullptr), nullptr);
  EXPECT_TRUE(spec_.getSubComObjs(nullptr).empty());
  EXPECT_TRUE(spec_.getSubComObj("S")->getParamObjs(nullptr).empty());
  EXPECT_EQ(spec_.getSubComObj("S")->getValueObj(), nullptr);
  EXPECT_EQ(spec_.getSubComObj("s")->getSubComName(), "S");
  EXPECT_EQ(parseError(d, "T /S OPT=1 OPT"), "Line 1, column 12, at OPT: keyword OPT is given more than once.");
}

TEST_F(Conventions, RepeatableAndRequiredSubcommands) {
  CommandDescriptor d("X");
  d.addSubComDesc(SubComDescriptor("MUST", SubComStandard, true, false));
  d.addSubComDesc(SubComDescriptor("MANY", SubComBare, false, true));
  parseOk(d, "X /MANY /MUST /MANY /many");
  EXPECT_EQ(spec_.getSubComObjs("MANY").size(), 3u);
  EXPECT_EQ(parseError(d, "X /MANY"), "Line 1, column 8, at end of command: subcommand /MUST is required.");
  EXPECT_EQ(parseError(d, "X /MUST /MUST"), "Line 1, column 10, at MUST: subcommand /MUST is given more than once.");
  EXPECT_EQ(parseError(d, "X /MUST=1"), "Line 1, column 8, at =: unexpected '=' after subcommand /MUST.");
}

TEST_F(Conventions, SubcommandValuesWithAndWithoutEquals) {
  CommandDescriptor d("X");
  d.addSubComDesc([] {
    SubComDescriptor s("EQ", SubComValue, false, false);
    s.setValueDesc(ParamDescriptor("EQ", ParamLiteral, false, true, NoBrackets));
    return s;
  }());
  d.addSubComDesc([] {
    SubComDescriptor s("OPTEQ", SubComValueOptionalEquals, false, false);
    s.setValueDesc(ParamDescriptor("LIST", ParamNameList, true, true, NoBrackets));
    return s;
  }());
  d.addSubComDesc([] {
    SubComDescriptor s("MAYBE", SubComValue, false, false);
    s.setValueDesc(ParamDescriptor("MAYBE", ParamNumber, false, false, NoBrackets));
    return s;
  }());
  parseOk(d, "X /EQ='v' /OPTEQ a b /MAYBE");
  std::vector<std::string> list;
  ASSERT_TRUE(spec_.getSubComObj("OPTEQ")->getParamObj("LIST")->getStringList(list));
  EXPECT_EQ(list, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(spec_.getSubComObj("OPTEQ")->getValueObj(), spec_.getSubComObj("OPTEQ")->getParamObj("list"));
  double n = 0;
  EXPECT_FALSE(spec_.getSubComObj("MAYBE")->getValueObj()->getNumberValue(n));
  parseOk(d, "X /OPTEQ=a /MAYBE=2");
  ASSERT_TRUE(spec_.getSubComObj("MAYBE")->getValueObj()->getNumberValue(n));
  EXPECT_EQ(n, 2);
  EXPECT_EQ(parseError(d, "X /EQ 'v'"), "Line 1, column 7, at 'v': '=' is expected after subcommand /EQ.");
  EXPECT_EQ(parseError(d, "X /EQ"), "Line 1, column 6, at end of command: '=' is expected after subcommand /EQ.");
  EXPECT_EQ(parseError(d, "X /MAYBE 2"), "Line 1, column 10, at 2: '=' is expected after subcommand /MAYBE.");
  EXPECT_EQ(parseError(d, "X /OPTEQ /EQ='v'"), "Line 1, column 10, at /: a name is expected for LIST.");
}

TEST_F(Conventions, LeadingNamesAndTheFirstSubcommandWithoutSlash) {
  CommandDescriptor d("TWO WORDS");
  d.setLeadingNames(1, 2);
  d.setFirstSubComWithoutSlash(true);
  d.addSubComDesc(SubComDescriptor("OPTS", SubComOptionalEquals, false, false));
  parseOk(d, "two  words alpha Beta OPTS");
  std::vector<std::string> names;
  ASSERT_TRUE(spec_.getLeadingNames(names));
  EXPECT_EQ(names, (std::vector<std::string>{"alpha", "Beta"}));
  ASSERT_NE(spec_.getSubComObj("OPTS"), nullptr);
  parseOk(d, "TWO WORDS alpha /OPTS");
  EXPECT_EQ(parseError(d, "TWO WORDS a b c"), "Line 1, column 15, at c: unknown subcommand of TWO WORDS.");
  EXPECT_EQ(parseError(d, "TWO WORDS a b OPTS OPTS"),
            "Line 1, column 20, at OPTS: unknown keyword of subcommand /OPTS.");
  EXPECT_EQ(parseError(d, "TWO WORDS a /OPTS OPTS"),
            "Line 1, column 19, at OPTS: unknown keyword of subcommand /OPTS.");
  EXPECT_EQ(parseError(d, "TWO WORDS a 'OPTS'"),
            "Line 1, column 13, at 'OPTS': a subcommand starting with '/' is expected.");
  EXPECT_EQ(parseError(d, "TWO"), "Line 1, column 4, at end of command: the command must start with TWO WORDS.");
  EXPECT_EQ(parseError(d, "TWO WORDS OPTS=x"),
            "Line 1, column 11, at OPTS: a name is expected after TWO WORDS.")
      << "a word followed by '=' is no name";
  EXPECT_EQ(parseError(d, "TWO WORDS a /OPTS="),
            "Line 1, column 19, at end of command: a keyword of /OPTS must follow '='.");
  d.setLeadingNames(3, 1);  // a maximum below the minimum is raised to it
  parseOk(d, "TWO WORDS a b c");
  EXPECT_EQ(parseError(d, "TWO WORDS a b"),
            "Line 1, column 14, at end of command: a name is expected after TWO WORDS.");
}

TEST_F(Conventions, BracketedValuesAndTheirOptionalForm) {
  CommandDescriptor d("X");
  SubComDescriptor s("S", SubComStandard, false, false);
  s.addParamDesc(ParamDescriptor("REQ", ParamNumberList, false, true, ValueInBrackets));
  s.addParamDesc(ParamDescriptor("OPT", ParamNameList, false, false, ValueInBrackets));
  d.addSubComDesc(s);
  parseOk(d, "X /S REQ(1, 2 3) OPT");
  std::vector<double> v;
  ASSERT_TRUE(param("REQ")->getNumberList(v));
  EXPECT_EQ(v, (std::vector<double>{1, 2, 3}));
  parseOk(d, "X /S OPT(a b) REQ(4)");
  std::vector<std::string> names;
  ASSERT_TRUE(param("OPT")->getStringList(names));
  EXPECT_EQ(names, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(parseError(d, "X /S REQ=4"), "Line 1, column 9, at =: '(' is expected after REQ.");
  EXPECT_EQ(parseError(d, "X /S OPT=a"), "Line 1, column 9, at =: a keyword of subcommand /S is expected.");
  EXPECT_EQ(parseError(d, "X /S REQ(4 a)"), "Line 1, column 12, at a: ')' is expected after the value of REQ.");
}

TEST_F(Conventions, FaultsInTheDeclaredGrammarAreReportedNotCrashed) {
  CommandDescriptor d("X");
  d.addSubComDesc(SubComDescriptor("NOVALUE", SubComValue, false, false));
  d.addSubComDesc(SubComDescriptor("ODD", static_cast<SubComSpec>(77), false, false));
  SubComDescriptor s("S", SubComStandard, false, false);
  s.addParamDesc(ParamDescriptor("WEIRD", static_cast<ParamSpec>(99), false, true, NoBrackets));
  d.addSubComDesc(s);
  EXPECT_EQ(parseError(d, "X /NOVALUE=1"), "Line 1, column 11, at =: the grammar of /NOVALUE declares no value.");
  EXPECT_EQ(parseError(d, "X /ODD"), "Line 1, column 7, at end of command: the grammar of /ODD has an unknown subcommand form.");
  EXPECT_EQ(parseError(d, "X /S WEIRD=1"), "Line 1, column 12, at 1: the grammar of WEIRD has an unknown value kind.");
}

TEST_F(Conventions, MissingPartsOfTheCallAreReported) {
  CommandDescriptor d("X");
  CommandSpec spec;
  zorvhost::takeCommandErrors();
  EXPECT_NE(UniversalParser(nullptr, &spec, nullptr).getCommandSpecifications(), 0);
  EXPECT_NE(UniversalParser(nullptr, nullptr, &d).getCommandSpecifications(), 0);
  auto errors = zorvhost::takeCommandErrors();
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[0].text, "No command descriptor was given to the parser.");
  EXPECT_EQ(errors[1].command, "X");
  EXPECT_EQ(errors[1].text, "No command result was given to the parser.");
  // No token sequence reads as an empty command.
  EXPECT_NE(UniversalParser(nullptr, &spec, &d).getCommandSpecifications(), 0);
  errors = zorvhost::takeCommandErrors();
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].text, "Line 1, column 1, at end of command: the command must start with X.");
}

TEST_F(Conventions, CopiedResultsOutliveAReparse) {
  CommandDescriptor d = everyKind();
  parseOk(d, "T /S Q=WITH('seq') NAMES=a b");
  SubComObj copy(*spec_.getSubComObj("S"));
  ParamObj qualifier;
  ASSERT_TRUE(copy.getParamObj("Q")->getStringAndQual(qualifier));
  parseOk(d, "T /S NUM=1");
  std::string seq;
  ASSERT_TRUE(qualifier.getUpStringGeneric(seq));
  EXPECT_EQ(seq, "SEQ");
  std::vector<std::string> names;
  ASSERT_TRUE(copy.getParamObj("NAMES")->getStringList(names));
  EXPECT_EQ(names, (std::vector<std::string>{"a", "b"}));
  SubComObj assigned;
  assigned = copy;
  EXPECT_NE(assigned.getParamObj("Q"), copy.getParamObj("Q")) << "a deep copy";
  ASSERT_TRUE(assigned.getParamObj("Q")->getStringAndQual(qualifier));
  EXPECT_EQ(qualifier.getParamName(), "WITH");
}

TEST(ParserMessageTest, ReportsTextAndInsertsUnderTheCommandName) {
  zorvhost::takeCommandErrors();
  ParserMessage message;
  message.GenericError("before any name", nullptr, nullptr, nullptr, nullptr, nullptr);
  message.SetCommandName("GENOSTAT");
  message.SetProcedureTitle("GENOSTAT");
  message.GenericError("Invalid job name", nullptr, nullptr, nullptr, nullptr, nullptr);
  message.GenericError("File not found: /a b.fq", "x", nullptr, "", "z", nullptr);
  message.GenericError(nullptr, "only", nullptr, nullptr, nullptr, "insert");
  message.SetCommandName(nullptr);
  message.GenericError("nameless", nullptr, nullptr, nullptr, nullptr, nullptr);
  auto errors = zorvhost::takeCommandErrors();
  ASSERT_EQ(errors.size(), 5u);
  EXPECT_EQ(errors[0].command, "");
  EXPECT_EQ(errors[0].text, "before any name");
  EXPECT_EQ(errors[1].command, "GENOSTAT");
  EXPECT_EQ(errors[1].text, "Invalid job name");
  EXPECT_EQ(errors[2].text, "File not found: /a b.fq x  z");
  EXPECT_EQ(errors[3].text, " only insert");
  EXPECT_EQ(errors[4].command, "");
}

}  // namespace
