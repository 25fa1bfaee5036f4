// The terminal colours of the verdicts: a cell that is the verdict alone, in either rule style,
// and never a label that merely holds the word.
#include "qcview.h"

#include <gtest/gtest.h>

#include "zorvhost/output.h"

namespace zorv {
namespace {

TEST(QcView, OnlyWholeVerdictCellsAreColoured) {
  zorvhost::OutputTable t;
  t.title = "t";
  t.columnLabels = {"adapters", "note"};
  t.rowLabels = {"Valid pass", "s2"};
  t.cells = {{"fail", "passed"}, {"warn", "pass"}};
  for (auto rules : {zorvhost::TextRules::Box, zorvhost::TextRules::Ascii}) {
    const std::string text = colourVerdicts(zorvhost::renderTableText(t, rules));
    EXPECT_NE(text.find("\x1b[31mfail\x1b[0m"), std::string::npos) << text;
    EXPECT_NE(text.find("\x1b[33mwarn\x1b[0m"), std::string::npos) << text;
    EXPECT_NE(text.find("\x1b[32mpass\x1b[0m"), std::string::npos) << text;
    EXPECT_NE(text.find("Valid pass"), std::string::npos) << text;
    EXPECT_NE(text.find(" passed"), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace zorv
