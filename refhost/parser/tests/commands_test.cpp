// Splitting a syntax text into commands, and naming commands.
#include "zorvhost/commands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using zorvhost::CommandText;
using zorvhost::commandName;
using zorvhost::splitCommands;

std::vector<std::pair<std::string, int>> split(const std::string& syntax) {
  std::vector<std::pair<std::string, int>> out;
  for (const CommandText& c : splitCommands(syntax)) out.emplace_back(c.text, c.firstLine);
  return out;
}

using Commands = std::vector<std::pair<std::string, int>>;

TEST(SplitCommands, EndsCommandsAtALinesLastPeriodAndRemovesIt) {
  EXPECT_EQ(split("PRESERVE.\nSET DECIMAL DOT.\n\nGET DATA /TYPE=TXT\n /FILE='a.csv'.\nEXECUTE"),
            (Commands{{"PRESERVE", 1},
                      {"SET DECIMAL DOT", 2},
                      {"GET DATA /TYPE=TXT\n /FILE='a.csv'", 4},
                      {"EXECUTE", 6}}));
  EXPECT_EQ(split("GET DATA /FILE='a.csv' /X=1.5 /Y. \t\n"),
            (Commands{{"GET DATA /FILE='a.csv' /X=1.5 /Y", 1}}))
      << "periods inside a line, and blanks behind the last one";
  EXPECT_EQ(split("REGRESSION\n  /RESIDUALS PRESS ."), (Commands{{"REGRESSION\n  /RESIDUALS PRESS", 1}}));
  EXPECT_EQ(split("PRESERVE.\r\nEXECUTE.\r\n"), (Commands{{"PRESERVE", 1}, {"EXECUTE", 2}}));
}

TEST(SplitCommands, KeepsTheIndentationOfTheFirstLineAndCountsSkippedLines) {
  EXPECT_EQ(split("  \n\n    PRESERVE.\n\n  \n  RESTORE.\n"),
            (Commands{{"    PRESERVE", 3}, {"  RESTORE", 6}}));
}

TEST(SplitCommands, LiteralsMayHoldPeriodsNewlinesAndDoubledQuotes) {
  EXPECT_EQ(split("GENOSTAT /JOB NAME='a.\nb.'.\nEXECUTE."),
            (Commands{{"GENOSTAT /JOB NAME='a.\nb.'", 1}, {"EXECUTE", 3}}));
  EXPECT_EQ(split("X NAME='it''s.\n' /Y.\nZ."), (Commands{{"X NAME='it''s.\n' /Y", 1}, {"Z", 3}}));
  EXPECT_EQ(split("X /Q='\"' /D=\".\".\nZ."), (Commands{{"X /Q='\"' /D=\".\"", 1}, {"Z", 2}}));
}

TEST(SplitCommands, AnUnterminatedLiteralRunsToTheEndOfTheText) {
  EXPECT_EQ(split("GENOSTAT /JOB NAME='x.\nEXECUTE."),
            (Commands{{"GENOSTAT /JOB NAME='x.\nEXECUTE.", 1}}));
}

TEST(SplitCommands, BlankCommandsAreLeftOut) {
  EXPECT_TRUE(split("").empty());
  EXPECT_TRUE(split(" \n\t\n").empty());
  EXPECT_EQ(split(".\n   .\nEXECUTE."), (Commands{{"EXECUTE", 3}}));
}

TEST(CommandName, DeclaredTwoWordNamesElseTheFirstWord) {
  EXPECT_EQ(commandName("GET DATA  /TYPE=TXT"), "GET DATA");
  EXPECT_EQ(commandName("  nonpar corr\n /VARIABLES=x"), "NONPAR CORR");
  EXPECT_EQ(commandName("DATASET NAME my_run_1"), "DATASET NAME");
  EXPECT_EQ(commandName("dataset activate my_run_1"), "DATASET ACTIVATE");
  EXPECT_EQ(commandName("SET DECIMAL DOT"), "SET");
  EXPECT_EQ(commandName("GENOSTAT\n   /JOB NAME='x'"), "GENOSTAT");
  EXPECT_EQ(commandName("genostat/PRINT"), "GENOSTAT");
  EXPECT_EQ(commandName("EXECUTE."), "EXECUTE");
  EXPECT_EQ(commandName("DATASET"), "DATASET");
  EXPECT_EQ(commandName("/JOB"), "");
  EXPECT_EQ(commandName("'x'"), "");
  EXPECT_EQ(commandName(""), "");
}

TEST(Catalogue, FindsEveryPostJobCommandIgnoringCaseAndBlanks) {
  std::vector<std::string> expected = {"GET DATA",     "DATASET NAME", "DATASET ACTIVATE", "PRESERVE",
                                       "RESTORE",      "CACHE",        "EXECUTE",          "SET",
                                       "DESCRIPTIVES", "FREQUENCIES",  "CORRELATIONS",     "NONPAR CORR",
                                       "REGRESSION"};
  const auto names = zorvhost::catalogueCommandNames();
  for (const auto& name : expected) {
    EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
  }
  for (const auto& name : expected) EXPECT_NE(zorvhost::findCommandDescriptor(name), nullptr) << name;
  EXPECT_NE(zorvhost::findCommandDescriptor("get  data"), nullptr);
  EXPECT_NE(zorvhost::findCommandDescriptor(" Nonpar Corr "), nullptr);
  EXPECT_EQ(zorvhost::findCommandDescriptor("GENOSTAT"), nullptr) << "the module declares its own";
  EXPECT_EQ(zorvhost::findCommandDescriptor("GETDATA"), nullptr);
  EXPECT_EQ(zorvhost::findCommandDescriptor(""), nullptr);
}

}  // namespace
