// The host's delimited text import: records, qualifiers, the first case line, typing by the share
// of numbers, missing values, names, and every refusal with the line it names.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "zorvhost/client.h"

namespace {

using zorvhost::DatasetData;
using zorvhost::TextImportSettings;
using zorvhost::Variable;

// The settings the module's import syntax gives: comma, double quote, cases from line 2, 95 %.
TextImportSettings csvSettings(std::vector<std::string> names) {
  TextImportSettings s;
  s.delimiters = ",";
  s.qualifier = "\"";
  s.firstCase = 2;
  for (auto& n : names) s.variables.push_back({n, "AUTO"});
  return s;
}

struct Imported {
  bool ok;
  DatasetData data;
  std::vector<std::string> notes;
  std::string error;
};

Imported import(const std::string& text, const TextImportSettings& settings) {
  Imported r;
  r.ok = zorvhost::importDelimitedText(text, settings, r.data, r.notes, r.error);
  return r;
}

bool missing(double x) { return std::isnan(x); }

TEST(Import, ResultCsvWithHeaderQuotedFieldsAndCrLf) {
  auto r = import("Sample,Adapter_Type,GC\r\n\"a,1\",\"say \"\"hi\"\"\",41.5\r\nb,none,-3e2\r\n",
                  csvSettings({"Sample", "Adapter_Type", "GC"}));
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.data.cases, 2u);
  ASSERT_EQ(r.data.variables.size(), 3u);
  EXPECT_EQ(r.data.variables[0].type, Variable::Type::String);
  EXPECT_EQ(r.data.variables[0].strings, (std::vector<std::string>{"a,1", "b"}));
  EXPECT_EQ(r.data.variables[1].strings, (std::vector<std::string>{"say \"hi\"", "none"}));
  EXPECT_EQ(r.data.variables[2].type, Variable::Type::Numeric);
  EXPECT_EQ(r.data.variables[2].numbers, (std::vector<double>{41.5, -300.0}));
  EXPECT_TRUE(r.notes.empty());
}

TEST(Import, AQualifiedValueMaySpanLinesAndErrorsNameTheRecordsLine) {
  auto r = import("h\n\"two\nlines\",1\nx,2\n", csvSettings({"a", "b"}));
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.data.variables[0].strings, (std::vector<std::string>{"two\nlines", "x"}));
  auto bad = import("h\n\"two\nlines\",1\nx,2,3\n", csvSettings({"a", "b"}));
  ASSERT_FALSE(bad.ok);
  EXPECT_EQ(bad.error, "line 4 holds 3 values, more than the 2 variables");
}

TEST(Import, TypingFollowsTheShareOfNumbersAmongNonEmptyValues) {
  // 19 numbers and one word: 95 % numbers, numeric; the word becomes missing and is noted.
  std::string text = "v\n";
  for (int i = 0; i < 19; ++i) text += std::to_string(i) + "\n";
  text += "abc\n\n";  // the empty line holds no case
  auto r = import(text, csvSettings({"v"}));
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.data.cases, 20u);
  EXPECT_EQ(r.data.variables[0].type, Variable::Type::Numeric);
  EXPECT_TRUE(missing(r.data.variables[0].numbers[19]));
  ASSERT_EQ(r.notes.size(), 1u);
  EXPECT_EQ(r.notes[0], "variable v: 1 value is not a number and read as missing (first on line 21: 'abc')");

  // 18 of 19: below 95 %, a string variable that keeps every value as written.
  text = "v\n";
  for (int i = 0; i < 17; ++i) text += std::to_string(i) + "\n";
  text += "abc\ndef\n";
  r = import(text, csvSettings({"v"}));
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.data.variables[0].type, Variable::Type::String);
  EXPECT_EQ(r.data.variables[0].strings[3], "3");

  // Empty values do not count against a number column; a lower percentage lets words in.
  TextImportSettings half = csvSettings({"v"});
  half.typeMinPercentage = 50.0;
  r = import("v\n1\n\nx\n \n", half);
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.data.cases, 3u);  // "1", "x", " " (a blank line is a case, an empty one is not)
  EXPECT_EQ(r.data.variables[0].type, Variable::Type::Numeric);
  EXPECT_EQ(r.data.variables[0].numbers[0], 1.0);
  EXPECT_TRUE(missing(r.data.variables[0].numbers[2]));
}

TEST(Import, AnAllEmptyColumnIsNumericAndShortRecordsLeaveMissingValues) {
  auto r = import("a,b,c\nx,,\ny\n", csvSettings({"a", "b", "c"}));
  ASSERT_TRUE(r.ok) << r.error;
  for (size_t k : {1u, 2u}) {
    EXPECT_EQ(r.data.variables[k].type, Variable::Type::Numeric);
    ASSERT_EQ(r.data.variables[k].numbers.size(), 2u);
    EXPECT_TRUE(missing(r.data.variables[k].numbers[0]));
    EXPECT_TRUE(missing(r.data.variables[k].numbers[1]));
  }
}

TEST(Import, WhatCountsAsANumber) {
  auto numbersOf = [](const std::string& value, char decimal) {
    TextImportSettings s = csvSettings({"v"});
    s.decimal = decimal;
    s.typeMinPercentage = 100.0;
    auto r = import("v\n\"" + value + "\"\n", s);
    EXPECT_TRUE(r.ok) << r.error;
    return r.data.variables[0].type == Variable::Type::Numeric;
  };
  for (const char* yes : {"1", "-2", "+3", ".5", "5.", "1e3", "1E-3", " 7 ", "0.000"}) {
    EXPECT_TRUE(numbersOf(yes, '.')) << yes;
  }
  for (const char* no : {"nan", "inf", "-", ".", "1e", "0x10", "1,5", "1.2.3", "12abc", "1e999"}) {
    EXPECT_FALSE(numbersOf(no, '.')) << no;
  }
  EXPECT_TRUE(numbersOf("1,5", ','));
  EXPECT_FALSE(numbersOf("1.5", ','));
}

TEST(Import, NamesComeFromTheLineBeforeTheFirstCaseWhenNoneAreGiven) {
  TextImportSettings s = csvSettings({});
  auto r = import("\"first\",,first2\n1,2,3,4\n", s);
  ASSERT_TRUE(r.ok) << r.error;
  std::vector<std::string> names;
  for (auto& v : r.data.variables) names.push_back(v.name);
  EXPECT_EQ(names, (std::vector<std::string>{"first", "V2", "first2", "V4"}));
  s.firstCase = 1;
  r = import("1;2\t3\n", [&] {
    TextImportSettings t = s;
    t.delimiters = ";\\t";  // "\t" stands for a tab
    return t;
  }());
  ASSERT_TRUE(r.ok) << r.error;
  ASSERT_EQ(r.data.variables.size(), 3u);
  EXPECT_EQ(r.data.variables[2].name, "V3");
  EXPECT_EQ(r.data.variables[2].numbers[0], 3.0);
}

TEST(Import, DeclaredFormatsFixTheType) {
  TextImportSettings s = csvSettings({});
  s.variables = {{"id", "a8"}, {"x", "F8.2"}};
  auto r = import("h\n001,abc\n", s);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.data.variables[0].type, Variable::Type::String);
  EXPECT_EQ(r.data.variables[0].strings[0], "001");
  EXPECT_EQ(r.data.variables[1].type, Variable::Type::Numeric);
  EXPECT_EQ(r.notes.size(), 1u);
}

TEST(Import, ABomIsSkippedAndTheFirstCaseLineSkipsWholeLines) {
  TextImportSettings s = csvSettings({"a"});
  s.firstCase = 3;
  auto r = import("\xEF\xBB\xBFtitle\nname\n5\n6", s);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.data.variables[0].numbers, (std::vector<double>{5, 6}));
  r = import("only a header\n", csvSettings({"a"}));
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.data.cases, 0u);
  EXPECT_EQ(r.data.variables.size(), 1u);
}

TEST(Import, EveryRefusalSaysWhatIsWrongAndLeavesTheDataAlone) {
  struct Case {
    std::string text;
    TextImportSettings settings;
    std::string error;
  };
  auto with = [](auto change) {
    TextImportSettings s = csvSettings({"a", "b"});
    change(s);
    return s;
  };
  std::vector<Case> cases = {
      {"h\n", with([](auto& s) { s.encoding = "LATIN1"; }),
       "encoding 'LATIN1' is not supported; the import reads UTF8"},
      {"h\n", with([](auto& s) { s.delimiters = ""; }), "no delimiter is given"},
      {"h\n", with([](auto& s) { s.delimiters = "\n"; }), "a line break cannot be a delimiter"},
      {"h\n", with([](auto& s) { s.qualifier = "''"; }), "the qualifier must be one character, not ''''"},
      {"h\n", with([](auto& s) { s.qualifier = ","; }), "the qualifier cannot also be a delimiter"},
      {"h\n", with([](auto& s) { s.firstCase = 0; }), "the first case line must be 1 or more, not 0"},
      {"h\n", with([](auto& s) { s.typeMinPercentage = 101; }), "the type percentage must lie between 0 and 100"},
      {"h\n", with([](auto& s) { s.variables[1].format = "DATE"; }),
       "variable b: format 'DATE' is not known (AUTO, A<width>, F<width>.<decimals>)"},
      {"h\n", with([](auto& s) { s.variables[1].name = "A"; }), "variable name A is given twice"},
      {"h\n", with([](auto& s) { s.variables[1].name = ""; }), "a variable has no name"},
      {"h\n1,2\n\"open,3\n", with([](auto&) {}), "line 3: field 1 opens a qualified value that is not closed"},
      {"h\n\"x\"y,3\n", with([](auto&) {}), "line 2: field 1 has text after its closing qualifier"},
      {"h\n1,\xC3\n", with([](auto&) {}), "line 2 is not valid UTF-8"},
      {"h\n1,2,3\n", with([](auto&) {}), "line 2 holds 3 values, more than the 2 variables"},
  };
  for (const auto& c : cases) {
    DatasetData data;
    data.cases = 42;
    std::vector<std::string> notes;
    std::string error;
    EXPECT_FALSE(zorvhost::importDelimitedText(c.text, c.settings, data, notes, error)) << c.error;
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(data.cases, 42u);
  }
}

TEST(Import, FilesAreReadWholeAndUnreadableOnesAreNamed) {
  // A folder and a file with non-ASCII names: the path arrives as UTF-8 on every system.
  namespace fs = std::filesystem;
  auto dir = fs::temp_directory_path() /
             fs::u8path("zorv-import-\xC3\xA4\xE6\x97\xA5-" + std::to_string(std::random_device{}()));
  fs::create_directories(dir);
  std::string path = (dir / fs::u8path("r\xC3\xBC.csv")).u8string();
  // Bytes as written, CRLF line ends included: nothing may translate them on the way in.
  std::ofstream(fs::u8path(path), std::ios::binary) << "a,b\r\n1,\"x\r\ny\"\r\n2,z\r\n";
  DatasetData data;
  std::vector<std::string> notes;
  std::string error;
  ASSERT_TRUE(zorvhost::importDelimitedFile(path, csvSettings({"a", "b"}), data, notes, error)) << error;
  EXPECT_EQ(data.cases, 2u);
  ASSERT_EQ(data.variables.size(), 2u);
  EXPECT_EQ(data.variables[0].numbers, (std::vector<double>{1, 2}));
  EXPECT_EQ(data.variables[1].strings, (std::vector<std::string>{"x\r\ny", "z"}));

  const std::string none = (dir / "none.csv").u8string();
  EXPECT_FALSE(zorvhost::importDelimitedFile(none, csvSettings({"a"}), data, notes, error));
  EXPECT_EQ(error, "cannot open " + none + ": No such file or directory");
  EXPECT_FALSE(zorvhost::importDelimitedFile(dir.u8string(), csvSettings({"a"}), data, notes, error));
  EXPECT_EQ(error, "cannot open " + dir.u8string() + ": Is a directory");
  std::ofstream(fs::u8path(path), std::ios::binary) << "a\n1,2\n";
  EXPECT_FALSE(zorvhost::importDelimitedFile(path, csvSettings({"a"}), data, notes, error));
  EXPECT_EQ(error, path + ": line 2 holds 2 values, more than the 1 variables");
  EXPECT_EQ(data.cases, 2u);  // a refusal leaves the data alone
  fs::remove_all(dir);
}

}  // namespace
