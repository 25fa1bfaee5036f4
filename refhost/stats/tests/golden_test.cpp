// The five procedures on golden/dataset.csv (ties, missing values, a string and a constant column,
// collinear predictors) against every figure R computed for them (golden/make_goldens.R), in the
// forms the module's post-job syntax writes them and in hand-typed forms; then what a procedure
// does with commands it cannot run.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/parser.h"
#include "host/tokens.h"
#include "zorvhost/client.h"
#include "zorvhost/commands.h"
#include "zorvhost/stats.h"

namespace {

using zorvhost::stats::Item;

std::string pad(int n) { return std::string(static_cast<size_t>(n), ' '); }

zorvhost::DatasetData dataset() {
  std::ifstream in(std::string(GOLDEN_DIR) + "/dataset.csv", std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  zorvhost::TextImportSettings settings;
  settings.firstCase = 2;
  zorvhost::DatasetData data;
  std::vector<std::string> notes;
  std::string error;
  EXPECT_TRUE(zorvhost::importDelimitedText(content.str(), settings, data, notes, error)) << error;
  return data;
}

// Runs `text` (a command of procedure `name`) on `data`: false with `error` when it cannot run.
bool run(const std::string& name, const std::string& text, const zorvhost::DatasetData& data,
         std::vector<Item>& items, std::string& error) {
  CommandDescriptor descriptor = *zorvhost::findCommandDescriptor(name);
  zorvhost::setCommandText(text);
  ZORV_TokenSequence tokens(true);
  CommandSpec spec;
  UniversalParser parser(&tokens, &spec, &descriptor);
  if (parser.getCommandSpecifications() != 0) {
    auto errors = zorvhost::takeCommandErrors();
    error = errors.empty() ? "parse error" : errors.front().text;
    return false;
  }
  return zorvhost::stats::runProcedure(name, spec, data, items, error);
}

std::string cellOf(const std::vector<Item>& items, const std::string& title, const std::string& row,
                   const std::string& column) {
  for (const Item& item : items) {
    const zorvhost::OutputTable& t = item.table;
    if (item.kind != Item::Kind::Table || t.title != title) continue;
    for (size_t r = 0; r < t.rowLabels.size(); ++r) {
      if (t.rowLabels[r] != row) continue;
      for (size_t c = 0; c < t.columnLabels.size() && c < t.cells[r].size(); ++c) {
        if (t.columnLabels[c] == column) return t.cells[r][c];
      }
    }
  }
  return "<no such cell>";
}

struct GoldenCase {
  const char* name;
  std::string procedure, text, golden;
};

void PrintTo(const GoldenCase& c, std::ostream* os) { *os << c.name; }

// Equal as printed, or one unit apart in the last printed digit: a value on a rounding tie
// (23.10625) may round either way after the last bit of a different but equally exact sum.
bool samePrinted(const std::string& got, const std::string& want) {
  if (got == want) return true;
  const size_t dot = want.find('.');
  if (dot == std::string::npos || got.find('*') != std::string::npos) return false;
  char* end = nullptr;
  const double a = std::strtod(got.c_str(), &end);
  if (end == got.c_str() || *end != '\0') return false;
  const double b = std::strtod(want.c_str(), nullptr);
  return std::fabs(a - b) <= 1.01 * std::pow(10.0, -static_cast<double>(want.size() - dot - 1));
}

class Golden : public testing::TestWithParam<GoldenCase> {};

TEST_P(Golden, EveryFigureAsRComputedIt) {
  const GoldenCase& c = GetParam();
  std::vector<Item> items;
  std::string error;
  ASSERT_TRUE(run(c.procedure, c.text, dataset(), items, error)) << error;
  std::ifstream golden(std::string(GOLDEN_DIR) + "/" + c.golden + ".tsv");
  std::string line;
  int checked = 0;
  while (std::getline(golden, line)) {
    std::vector<std::string> f;
    std::stringstream fields(line);
    for (std::string part; std::getline(fields, part, '\t');) f.push_back(part);
    if (f.size() == 3) f.push_back("");
    ASSERT_EQ(f.size(), 4u) << line;
    const std::string got = cellOf(items, f[0], f[1], f[2]);
    EXPECT_TRUE(samePrinted(got, f[3])) << f[0] << " / " << f[1] << " / " << f[2] << ": " << got << ", R: " << f[3];
    ++checked;
  }
  EXPECT_GT(checked, 20);
}

const std::string kRegression = "REGRESSION\n" + pad(36) + "/MISSING LISTWISE\n" + pad(36) +
                                "/STATISTICS COEFF OUTS CI(95) R ANOVA COLLIN TOL CHANGE\n" + pad(36) +
                                "/CRITERIA=PIN(.05) POUT(.10) TOLERANCE(.0001)\n" + pad(36) + "/NOORIGIN\n" + pad(36) +
                                "/DEPENDENT y\n" + pad(36) + "/METHOD=";

INSTANTIATE_TEST_SUITE_P(
    Procedures, Golden,
    testing::Values(
        GoldenCase{"DescriptivesTypedByHand", "DESCRIPTIVES", "descriptives variables=y TO x1 t c s /statistics=all.",
                   "descriptives"},
        GoldenCase{"FrequenciesAsTheJobWritesThem", "FREQUENCIES",
                   "FREQUENCIES VARIABLES=t s\n/NTILES=4\n" + pad(44) + "/PERCENTILES=10.00 90.00\n" + pad(44) +
                       "/STATISTICS=ALL\n" + pad(44) + "/ORDER=ANALYSIS.",
                   "frequencies"},
        GoldenCase{"CorrelationsAsTheJobWritesThem", "CORRELATIONS",
                   "CORRELATIONS\n" + pad(44) + "/VARIABLES=y x1 t c\n" + pad(44) + "/PRINT= TWOTAIL NOSIG FULL\n" +
                       pad(44) + "/STATISTICS XPROD\n" + pad(44) + "/MISSING=PAIRWISE.",
                   "correlations"},
        GoldenCase{"CorrelationsOneTailedListwiseLowerTypedByHand", "CORRELATIONS",
                   "correlations variables=y x1 t /print=onetail nosig lower /missing=listwise.",
                   "correlations_listwise"},
        GoldenCase{"NonparCorrAsTheJobWritesThem", "NONPAR CORR",
                   "NONPAR CORR\n" + pad(52) + "/VARIABLES=y x1 t\n" + pad(52) + "/PRINT=BOTH  TWOTAIL NOSIG FULL\n" +
                       pad(52) + "/MISSING=PAIRWISE.",
                   "nonpar_corr"},
        GoldenCase{"RegressionEnterLeavesTheCollinearOneOut", "REGRESSION",
                   kRegression + "ENTER x1 x2 x3\n" + pad(36) + "/RESIDUALS PRESS NORMPROB(ZRESID).", "regression_enter"},
        GoldenCase{"RegressionStepwise", "REGRESSION", kRegression + "STEPWISE t x2 x1\n" + pad(36) + "/RESIDUALS PRESS.",
                   "regression_stepwise"},
        GoldenCase{"RegressionForward", "REGRESSION", kRegression + "FORWARD t x2 x1\n" + pad(36) + "/RESIDUALS PRESS.",
                   "regression_forward"},
        GoldenCase{"RegressionBackward", "REGRESSION", kRegression + "BACKWARD t x1 x2\n" + pad(36) + "/RESIDUALS PRESS.",
                   "regression_backward"}),
    [](const testing::TestParamInfo<GoldenCase>& param) { return std::string(param.param.name); });

TEST(Procedures, WhatCannotRunSaysWhyAndWhatCanRunWarns) {
  const zorvhost::DatasetData data = dataset();
  struct Case {
    std::string procedure, text, error;
  };
  const Case refused[] = {
      {"DESCRIPTIVES", "DESCRIPTIVES VARIABLES=y nosuch.", "variable nosuch is not in the active dataset"},
      {"DESCRIPTIVES", "DESCRIPTIVES VARIABLES=s.", "no numeric variable to describe"},
      {"CORRELATIONS", "CORRELATIONS /VARIABLES=y s.", "CORRELATIONS needs at least two numeric variables"},
      {"FREQUENCIES", "FREQUENCIES VARIABLES=t /PERCENTILES=120.", "/PERCENTILES=120 is not between 0 and 100"},
      {"REGRESSION", "REGRESSION /DEPENDENT s /METHOD=ENTER x1.", "the dependent variable s is a string variable"},
      {"DESCRIPTIVES", "DESCRIPTIVES VARIABLES=x2 TO y.", "x2 TO y: y comes before x2 in the active dataset"},
  };
  for (const Case& c : refused) {
    std::vector<Item> items;
    std::string error;
    EXPECT_FALSE(run(c.procedure, c.text, data, items, error)) << c.text;
    EXPECT_EQ(error, c.error) << c.text;
    EXPECT_TRUE(items.empty()) << c.text;
  }
  // A string variable among numeric ones is left out with a note; the constant one shows "." and
  // says why; no case valid on the model's variables fits nothing and says so.
  std::vector<Item> items;
  std::string error;
  ASSERT_TRUE(run("CORRELATIONS", "CORRELATIONS /VARIABLES=y s c.", data, items, error)) << error;
  std::string notes;
  for (const Item& i : items) notes += i.kind == Item::Kind::Note ? i.text + "\n" : "";
  EXPECT_NE(notes.find("s is a string variable and is left out"), std::string::npos) << notes;
  EXPECT_NE(notes.find("at least one of the variables is constant"), std::string::npos) << notes;
  zorvhost::DatasetData empty = data;
  for (double& v : empty.variables[0].numbers) v = std::nan("");
  items.clear();
  ASSERT_TRUE(run("REGRESSION", "REGRESSION /DEPENDENT y /METHOD=ENTER x1.", empty, items, error)) << error;
  ASSERT_EQ(items.size(), 1u);
  EXPECT_NE(items[0].text.find("0 case(s) valid on every variable"), std::string::npos) << items[0].text;
}

}  // namespace
