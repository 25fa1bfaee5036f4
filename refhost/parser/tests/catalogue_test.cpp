// The filled post-job syntax, command by command, against the catalogue and GENOSTAT's grammar;
// the seed corpus of the fuzzer is that syntax, so every valid seed is checked here too.
#include <gtest/gtest.h>

#include <dirent.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "genostat_grammar.h"
#include "parse_helper.h"
#include "zorvhost/commands.h"

namespace {

using parsertest::parseCommand;
using parsertest::ParseOutcome;

std::string corpusPath(const std::string& name) { return std::string(PARSER_FUZZ_CORPUS_DIR) + "/" + name; }

std::string readCorpusFile(const std::string& name) {
  std::ifstream in(corpusPath(name), std::ios::binary);
  EXPECT_TRUE(in.good()) << corpusPath(name);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::vector<std::string> corpusFiles() {
  std::vector<std::string> names;
  if (DIR* dir = opendir(PARSER_FUZZ_CORPUS_DIR)) {
    while (dirent* e = readdir(dir)) {
      std::string n = e->d_name;
      if (n.size() > 4 && n.compare(n.size() - 4, 4, ".txt") == 0) names.push_back(n);
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Parses one command of a syntax text with the grammar its name selects.
ParseOutcome parseWithItsGrammar(const std::string& text, CommandSpec& spec) {
  std::string name = zorvhost::commandName(text);
  if (name == "GENOSTAT") {
    CommandDescriptor genostat("GENOSTAT");
    parsertest::buildGenostatGrammar(genostat);
    return parseCommand(genostat, spec, text);
  }
  const CommandDescriptor* found = zorvhost::findCommandDescriptor(name);
  if (!found) {
    ParseOutcome missing;
    missing.result = -1;
    missing.errors.push_back({name, "not in the catalogue"});
    return missing;
  }
  CommandDescriptor descriptor(*found);
  return parseCommand(descriptor, spec, text);
}

class PostJobSyntax : public ::testing::Test {
 protected:
  // Parses the only command of a seed file; fails the test when there is not exactly one.
  void parseSeed(const std::string& file) {
    auto commands = zorvhost::splitCommands(readCorpusFile(file));
    ASSERT_EQ(commands.size(), 1u) << file;
    auto outcome = parseWithItsGrammar(commands[0].text, spec_);
    ASSERT_EQ(outcome.result, 0) << file << ": " << outcome.error();
  }
  ParamObj* value(const char* sub) {
    SubComObj* s = spec_.getSubComObj(sub);
    return s ? s->getValueObj() : nullptr;
  }
  ParamObj* param(const char* sub, const char* name) {
    SubComObj* s = spec_.getSubComObj(sub);
    return s ? s->getParamObj(name) : nullptr;
  }
  CommandSpec spec_;
};

TEST_F(PostJobSyntax, EveryValidSeedParsesAndEveryBadSeedIsRefused) {
  auto files = corpusFiles();
  ASSERT_GE(files.size(), 20u) << "seed corpus missing from " << PARSER_FUZZ_CORPUS_DIR;
  int commands = 0;
  for (const auto& file : files) {
    bool bad = file.rfind("bad-", 0) == 0;
    auto split = zorvhost::splitCommands(readCorpusFile(file));
    ASSERT_FALSE(split.empty()) << file;
    int failures = 0;
    for (const auto& c : split) {
      CommandSpec spec;
      auto outcome = parseWithItsGrammar(c.text, spec);
      if (!bad) {
        EXPECT_EQ(outcome.result, 0) << file << " line " << c.firstLine << ": " << outcome.error();
      }
      if (outcome.result != 0) {
        ++failures;
        EXPECT_EQ(outcome.errors.size(), 1u) << file;
      }
      ++commands;
    }
    if (bad) {
      EXPECT_EQ(failures, 1) << file << " must hold exactly one refused command";
    }
  }
  EXPECT_GT(commands, 40);
}

TEST_F(PostJobSyntax, TheWholeBlockSplitsIntoItsCommandsInOrder) {
  auto commands = zorvhost::splitCommands(readCorpusFile("13-post-job.txt"));
  std::vector<std::pair<std::string, int>> got;
  for (const auto& c : commands) got.emplace_back(zorvhost::commandName(c.text), c.firstLine);
  std::vector<std::pair<std::string, int>> expected = {
      {"GENOSTAT", 1},      {"PRESERVE", 4},     {"SET", 5},           {"GET DATA", 6},
      {"RESTORE", 43},      {"CACHE", 44},       {"EXECUTE", 45},      {"DATASET NAME", 46},
      {"DATASET ACTIVATE", 47}, {"DESCRIPTIVES", 48}, {"FREQUENCIES", 50}, {"CORRELATIONS", 57},
      {"NONPAR CORR", 62},  {"REGRESSION", 66},  {"GENOSTAT", 74}};
  EXPECT_EQ(got, expected);
}

TEST_F(PostJobSyntax, GetDataDeliversTheImportSettings) {
  auto commands = zorvhost::splitCommands(readCorpusFile("03-import-csv.txt"));
  ASSERT_EQ(commands.size(), 8u);
  auto outcome = parseWithItsGrammar(commands[2].text, spec_);
  ASSERT_EQ(outcome.result, 0) << outcome.error();
  std::string text;
  ASSERT_TRUE(value("TYPE")->getStringGeneric(text));
  EXPECT_EQ(text, "TXT");
  ASSERT_TRUE(value("FILE")->getLiteral(text));
  EXPECT_EQ(text, "/tmp/zorv-x/1731721138.csv");
  ASSERT_TRUE(value("ENCODING")->getLiteral(text));
  EXPECT_EQ(text, "UTF8");
  ASSERT_TRUE(value("DELIMITERS")->getLiteral(text));
  EXPECT_EQ(text, ",");
  ASSERT_TRUE(value("QUALIFIER")->getLiteral(text));
  EXPECT_EQ(text, "\"");
  ASSERT_TRUE(value("ARRANGEMENT")->getStringGeneric(text));
  EXPECT_EQ(text, "DELIMITED");
  int firstCase = 0;
  ASSERT_TRUE(value("FIRSTCASE")->getIntegerValue(firstCase));
  EXPECT_EQ(firstCase, 2);
  double percentage = 0;
  ASSERT_TRUE(param("DATATYPEMIN", "PERCENTAGE")->getNumberValue(percentage));
  EXPECT_DOUBLE_EQ(percentage, 95.0);
  std::vector<std::pair<std::string, std::string>> pairs;
  ASSERT_TRUE(value("VARIABLES")->getNamePairs(pairs));
  ASSERT_EQ(pairs.size(), 27u);
  EXPECT_EQ(pairs.front(), (std::pair<std::string, std::string>{"Sample", "AUTO"}));
  EXPECT_EQ(pairs[20], (std::pair<std::string, std::string>{"qc_score", "AUTO"}));
  EXPECT_EQ(pairs.back(), (std::pair<std::string, std::string>{"overrepresented_seq_count", "AUTO"}));
  EXPECT_NE(spec_.getSubComObj("MAP"), nullptr);

  ASSERT_EQ(parseWithItsGrammar(commands[6].text, spec_).result, 0);
  std::vector<std::string> names;
  ASSERT_TRUE(spec_.getLeadingNames(names));
  EXPECT_EQ(names, std::vector<std::string>{"my_run_1"});
  ASSERT_EQ(parseWithItsGrammar(commands[1].text, spec_).result, 0);
  ASSERT_TRUE(value("DECIMAL")->getStringGeneric(text));
  EXPECT_EQ(text, "DOT");
  EXPECT_FALSE(spec_.getLeadingNames(names));
}

TEST_F(PostJobSyntax, FrequenciesRepeatsNtilesAndReadsItsLists) {
  parseSeed("06-frequencies.txt");
  auto ntiles = spec_.getSubComObjs("NTILES");
  ASSERT_EQ(ntiles.size(), 2u);
  int n = 0;
  ASSERT_TRUE(ntiles[0]->getValueObj()->getIntegerValue(n));
  EXPECT_EQ(n, 4);
  ASSERT_TRUE(ntiles[1]->getValueObj()->getIntegerValue(n));
  EXPECT_EQ(n, 10);
  EXPECT_EQ(spec_.getSubComObj("NTILES"), ntiles[0]);
  std::vector<double> p;
  ASSERT_TRUE(value("PERCENTILES")->getNumberList(p));
  EXPECT_EQ(p, (std::vector<double>{5.0, 95.5}));
  std::vector<std::string> vars;
  ASSERT_TRUE(value("VARIABLES")->getStringList(vars));
  EXPECT_EQ(vars, (std::vector<std::string>{"GC", "qc_score"}));
  EXPECT_NE(param("HISTOGRAM", "NORMAL"), nullptr);
  EXPECT_NE(param("STATISTICS", "CV"), nullptr);
  std::string order;
  ASSERT_TRUE(value("ORDER")->getStringGeneric(order));
  EXPECT_EQ(order, "ANALYSIS");
}

TEST_F(PostJobSyntax, RegressionReadsBracketedValuesAndTheMethodList) {
  parseSeed("11-regression.txt");
  double v = 0;
  ASSERT_TRUE(param("STATISTICS", "CI")->getNumberValue(v));
  EXPECT_DOUBLE_EQ(v, 90.5);
  ASSERT_TRUE(param("CRITERIA", "PIN")->getNumberValue(v));
  EXPECT_DOUBLE_EQ(v, 0.05);
  ASSERT_TRUE(param("CRITERIA", "TOLERANCE")->getNumberValue(v));
  EXPECT_DOUBLE_EQ(v, 0.0001);
  std::vector<std::string> list;
  ASSERT_TRUE(value("METHOD")->getStringList(list));
  EXPECT_EQ(list, (std::vector<std::string>{"STEPWISE", "Total_Sequences", "qc_score"}));
  ASSERT_TRUE(value("DEPENDENT")->getStringList(list));
  EXPECT_EQ(list, std::vector<std::string>{"GC"});
  ASSERT_TRUE(param("RESIDUALS", "NORMPROB")->getStringList(list));
  EXPECT_EQ(list, std::vector<std::string>{"ZRESID"});
  EXPECT_NE(spec_.getSubComObj("NOORIGIN"), nullptr);
  EXPECT_NE(param("MISSING", "LISTWISE"), nullptr);

  parseSeed("12-regression-plain.txt");
  EXPECT_EQ(param("STATISTICS", "CI"), nullptr);
  EXPECT_EQ(param("RESIDUALS", "NORMPROB"), nullptr);
  EXPECT_NE(param("RESIDUALS", "PRESS"), nullptr);
}

TEST_F(PostJobSyntax, CorrelationsAndDescriptivesReadTheirSwitches) {
  parseSeed("09-nonpar-corr.txt");
  EXPECT_NE(param("PRINT", "SPEARMAN"), nullptr);
  EXPECT_NE(param("PRINT", "ONETAIL"), nullptr);
  EXPECT_EQ(param("PRINT", "TWOTAIL"), nullptr);
  EXPECT_NE(param("MISSING", "PAIRWISE"), nullptr);
  parseSeed("05-descriptives-plain.txt");
  std::vector<std::string> vars;
  ASSERT_TRUE(value("VARIABLES")->getStringList(vars));
  EXPECT_EQ(vars, std::vector<std::string>{"Total_Sequences"});
  EXPECT_NE(param("STATISTICS", "MAX"), nullptr);
  EXPECT_EQ(param("STATISTICS", "SKEWNESS"), nullptr);
}

struct CatalogueFault {
  std::string text;
  std::string command;
  std::string message;
};

class CatalogueMalformed : public ::testing::TestWithParam<CatalogueFault> {};

TEST_P(CatalogueMalformed, IsRefusedWithAPositionedMessage) {
  CommandSpec spec;
  auto outcome = parseWithItsGrammar(GetParam().text, spec);
  EXPECT_NE(outcome.result, 0);
  ASSERT_EQ(outcome.errors.size(), 1u);
  EXPECT_EQ(outcome.errors[0].command, GetParam().command);
  EXPECT_EQ(outcome.errors[0].text, GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Errors, CatalogueMalformed,
    ::testing::Values(
        CatalogueFault{"GET DATA /FILE='a.csv'", "GET DATA",
                       "Line 1, column 23, at end of command: subcommand /TYPE is required."},
        CatalogueFault{"GET DATA /TYPE=CSV /FILE='a'", "GET DATA", "Line 1, column 16, at CSV: TYPE accepts only TXT."},
        CatalogueFault{"GET DATA /TYPE TXT /FILE='a'", "GET DATA",
                       "Line 1, column 16, at TXT: '=' is expected after subcommand /TYPE."},
        CatalogueFault{"GET DATA /TYPE=TXT /FILE='a' /VARIABLES= Sample AUTO GC", "GET DATA",
                       "Line 1, column 56, at end of command: a keyword is expected after the name GC."},
        CatalogueFault{"GET DATA /TYPE=TXT /FILE='a' /FIRSTCASE=two", "GET DATA",
                       "Line 1, column 41, at two: an integer is expected for FIRSTCASE."},
        CatalogueFault{"GET DATA /TYPE=TXT /FILE='a' /MAP=1", "GET DATA",
                       "Line 1, column 34, at =: /MAP takes nothing after its name."},
        CatalogueFault{"DATASET NAME", "DATASET NAME",
                       "Line 1, column 13, at end of command: a name is expected after DATASET NAME."},
        CatalogueFault{"DATASET NAME a b", "DATASET NAME",
                       "Line 1, column 16, at b: a subcommand starting with '/' is expected."},
        CatalogueFault{"SET DECIMAL=POINT", "SET", "Line 1, column 13, at POINT: DECIMAL accepts only DOT, COMMA."},
        CatalogueFault{"DESCRIPTIVES GC", "DESCRIPTIVES", "Line 1, column 14, at GC: unknown subcommand of DESCRIPTIVES."},
        CatalogueFault{"FREQUENCIES VARIABLES=GC /NTILES=4 5", "FREQUENCIES",
                       "Line 1, column 36, at 5: '/' or the end of the command is expected after the value of /NTILES."},
        CatalogueFault{"FREQUENCIES VARIABLES=GC /ORDER=SIZE", "FREQUENCIES",
                       "Line 1, column 33, at SIZE: ORDER accepts only ANALYSIS, VARIABLE."},
        CatalogueFault{"FREQUENCIES VARIABLES=GC /VARIABLES=x", "FREQUENCIES",
                       "Line 1, column 27, at VARIABLES: subcommand /VARIABLES is given more than once."},
        CatalogueFault{"FREQUENCIES VARIABLES=", "FREQUENCIES",
                       "Line 1, column 23, at end of command: a name is expected for VARIABLES."},
        CatalogueFault{"CORRELATIONS", "CORRELATIONS",
                       "Line 1, column 13, at end of command: subcommand /VARIABLES is required."},
        CatalogueFault{"CORRELATIONS /VARIABLES=GC /PRINT=", "CORRELATIONS",
                       "Line 1, column 35, at end of command: a keyword of /PRINT must follow '='."},
        CatalogueFault{"REGRESSION /DEPENDENT GC /CRITERIA=PIN .05", "REGRESSION",
                       "Line 1, column 40, at .05: '(' is expected after PIN."},
        CatalogueFault{"REGRESSION /DEPENDENT GC /STATISTICS CI(90", "REGRESSION",
                       "Line 1, column 43, at end of command: ')' is expected after the value of CI."},
        CatalogueFault{"REGRESSION /DEPENDENT GC /RESIDUALS NORMPROB(OOPS)", "REGRESSION",
                       "Line 1, column 46, at OOPS: NORMPROB accepts only ZRESID, ZPRED, SRESID, DRESID, ADJPRED, SDRESID."},
        CatalogueFault{"REGRESSION /DEPENDENT GC /METHOD=ENTER x /CRITERIA=PIN(.05) POUT('x')", "REGRESSION",
                       "Line 1, column 66, at 'x': a number is expected for POUT."}));

}  // namespace
