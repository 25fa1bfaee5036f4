// The five procedures on golden/dataset.csv (ties, missing values, a string and a constant column,
// collinear predictors): procedures.txt holds their commands, in the forms the module's post-job
// syntax writes them and typed by hand, each followed by what it shows beside its tables (notes,
// charts) or why it cannot run (see refhost/tests/golden.h). Under "@r NAME" every figure of
// golden/NAME.tsv, which R computed (golden/make_goldens.R), must also be in the tables.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "golden.h"
#include "host/parser.h"
#include "host/tokens.h"
#include "zorvhost/client.h"
#include "zorvhost/commands.h"
#include "zorvhost/stats.h"

namespace {

using zorvhost::stats::Item;

std::string cellOf(const std::vector<Item>& items, const std::string& title, const std::string& row,
                   const std::string& column) {
  for (const Item& item : items) {
    const zorvhost::OutputTable& t = item.table;
    if (item.kind != Item::Kind::Table || t.title != title) continue;
    for (size_t r = 0; r < t.rowLabels.size(); ++r) {
      for (size_t c = 0; t.rowLabels[r] == row && c < t.columnLabels.size() && c < t.cells[r].size(); ++c) {
        if (t.columnLabels[c] == column) return t.cells[r][c];
      }
    }
  }
  return "<no such cell>";
}

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

// Every figure R computed must be in the tables: a failure here is never a matter of regenerating.
std::string compareWithR(const std::string& name, const std::vector<Item>& items) {
  int checked = 0;
  for (const auto& line : golden::lines(golden::readFile(std::string(GOLDEN_DIR) + "/" + name + ".tsv"))) {
    std::vector<std::string> f;
    std::stringstream fields(line);
    for (std::string part; std::getline(fields, part, '\t');) f.push_back(part);
    f.resize(4);  // an empty figure has no field
    const std::string got = cellOf(items, f[0], f[1], f[2]);
    EXPECT_TRUE(samePrinted(got, f[3])) << name << ": " << f[0] << " / " << f[1] << " / " << f[2] << ": " << got
                                        << ", R: " << f[3];
    ++checked;
  }
  EXPECT_GT(checked, 20) << name;
  return std::to_string(checked) + " figures compared with R\n";
}

std::string run(const std::string& directive, const std::string& text, const zorvhost::DatasetData& data) {
  const std::string name = zorvhost::commandName(text);
  CommandDescriptor descriptor = *zorvhost::findCommandDescriptor(name);
  zorvhost::takeCommandErrors();
  zorvhost::setCommandText(text);
  ZORV_TokenSequence tokens(true);
  CommandSpec parsed;
  if (UniversalParser(&tokens, &parsed, &descriptor).getCommandSpecifications() != 0) {
    return "error: " + zorvhost::takeCommandErrors().at(0).text;
  }
  std::vector<Item> items;
  std::string error, out;
  if (!zorvhost::stats::runProcedure(name, parsed, data, items, error)) {
    return "error: " + error + (items.empty() ? "" : " (items left behind)");
  }
  for (const Item& item : items) {
    if (item.kind == Item::Kind::Table) out += "table " + item.table.title + "\n";
    if (item.kind == Item::Kind::Chart) out += "chart " + item.title + "\n";
    if (item.kind == Item::Kind::Note) out += "note: " + item.text + "\n";
  }
  return directive.rfind("@r ", 0) == 0 ? out + compareWithR(directive.substr(3), items) : out;
}

TEST(Procedures, EveryCaseGivesItsExpectedResult) {
  zorvhost::TextImportSettings settings;
  settings.firstCase = 2;
  zorvhost::DatasetData data, withoutY;
  std::vector<std::string> notes;
  std::string error;
  ASSERT_TRUE(zorvhost::importDelimitedText(golden::readFile(GOLDEN_DIR "/dataset.csv"), settings, data, notes, error))
      << error;
  withoutY = data;
  for (double& v : withoutY.variables.at(0).numbers) v = std::nan("");
  golden::check(STATS_TESTS_DIR "/procedures.txt", [&](const std::string& directive, const std::string* text) {
    if (!text) return std::string();
    return run(directive, *text, directive == "@run without y" ? withoutY : data);
  });
}

}  // namespace
