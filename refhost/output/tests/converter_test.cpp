// The converter's side: delivery to the handler, the standard-output fallback, and procedure JSON
// that cannot be shown (wholly or one table of it).
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "capture.h"
#include "host/output.h"
#include "host/procedure.h"
#include "module_tables.h"

namespace {

using Texts = std::vector<std::string>;

const char* const kGoodTable =
    R"({"title":"T","columnLabels":["c"],"rowLabels":["r"],"cells":[["1"]]})";

std::string procedureJson(const std::string& tablesText) {
  return R"({"procedure":"GENOSTAT","subtitle":"","tables":[)" + tablesText + "]}";
}

class Converter : public output_test::OutputCapture {
 protected:
  void convert(const std::string& json, BpProcedure* p) {
    StatJSONConverter converter(p);
    converter.generateOutput(json);
  }
  void convert(const std::string& json) { convert(json, &procedure); }

  BpProcedure procedure{"GENOSTAT", 0};
};

TEST_F(Converter, DeliversEveryTableInOrderOnTheCallingThread) {
  std::vector<std::thread::id> threads;
  zorvhost::setOutputHandler([&](const zorvhost::OutputTable& t) {
    threads.push_back(std::this_thread::get_id());
    tables.push_back(t);
  });
  convert(procedureJson(R"({"title":"one","columnLabels":[],"rowLabels":[],"cells":[]},)"
                        R"({"title":"two","columnLabels":[],"rowLabels":[],"cells":[]})"));
  ASSERT_EQ(tables.size(), 2u);
  EXPECT_EQ(tables[0].title, "one");
  EXPECT_EQ(tables[1].title, "two");
  for (const auto& id : threads) EXPECT_EQ(id, std::this_thread::get_id());
}

TEST_F(Converter, AbsentOptionalMembersTakeTheDefaults) {
  convert(R"({"procedure":"P","tables":[)" + std::string(kGoodTable) + "]}");
  ASSERT_EQ(tables.size(), 1u);
  const auto& t = tables[0];
  EXPECT_EQ(t.procedure, "P");
  EXPECT_EQ(t.subtitle, "");
  EXPECT_FALSE(t.hideTitle);
  EXPECT_EQ(t.rowDimensionLabel, "");
  EXPECT_TRUE(t.showRowDimensionLabel);
  EXPECT_EQ(t.minDataColumnWidth, 0);
  EXPECT_EQ(t.formatType, 0);
  EXPECT_EQ(t.cells, std::vector<Texts>{Texts{"1"}});
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty());
}

TEST_F(Converter, WithoutAHandlerTheTextGoesToStandardOutput) {
  zorvhost::setOutputHandler(nullptr);
  testing::internal::CaptureStdout();
  output_test::emitJobSummary(output_test::JobSummary{}, &procedure);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(tables.empty());
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty());
  const auto summary = out.find("Summary\n");
  const auto details = out.find("Details\n");
  ASSERT_NE(summary, std::string::npos) << out;
  ASSERT_NE(details, std::string::npos) << out;
  EXPECT_LT(summary, details);
  EXPECT_NE(out.find("Valid:3 fastQ file(s) detected."), std::string::npos) << out;
  EXPECT_NE(out.find("Variables"), std::string::npos) << out;
}

TEST_F(Converter, AHandlerReplacingItselfAffectsTheNextOutputOnly) {
  std::vector<std::string> later;
  zorvhost::setOutputHandler([&](const zorvhost::OutputTable& t) {
    tables.push_back(t);
    zorvhost::setOutputHandler([&](const zorvhost::OutputTable& u) { later.push_back(u.title); });
  });
  const std::string two = procedureJson(std::string(kGoodTable) + "," + kGoodTable);
  convert(two);
  EXPECT_EQ(tables.size(), 2u);
  EXPECT_TRUE(later.empty());
  convert(two);
  EXPECT_EQ(tables.size(), 2u);
  EXPECT_EQ(later.size(), 2u);
}

TEST_F(Converter, AFailingHandlerIsReportedAndTheNextTableStillArrives) {
  int calls = 0;
  zorvhost::setOutputHandler([&](const zorvhost::OutputTable& t) {
    ++calls;
    if (calls == 1) throw std::runtime_error("disk full");
    if (calls == 2) throw 42;
    tables.push_back(t);
  });
  convert(procedureJson(std::string(kGoodTable) + "," + kGoodTable + "," + kGoodTable));
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(tables.size(), 1u);
  const auto errors = zorvhost::takeCommandErrors();
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[0].command, "GENOSTAT");
  EXPECT_EQ(errors[0].text, "The output handler failed on table \"T\": disk full");
  EXPECT_EQ(errors[1].text, "The output handler failed on table \"T\".");
}

// ---- Procedure JSON that cannot be shown at all ----------------------------------------------

struct Unreadable {
  const char* name;
  std::string json;
  std::string error;
};

class UnreadableOutput : public output_test::OutputCapture,
                         public testing::WithParamInterface<Unreadable> {};

TEST_P(UnreadableOutput, NothingIsShownAndOneErrorSaysWhy) {
  BpProcedure procedure("GENOSTAT", 0);
  StatJSONConverter converter(&procedure);
  converter.generateOutput(GetParam().json);
  EXPECT_TRUE(tables.empty());
  const auto errors = zorvhost::takeCommandErrors();
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].command, "GENOSTAT");
  EXPECT_EQ(errors[0].text, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, UnreadableOutput,
    testing::Values(
        Unreadable{"Empty", "",
                   "The output could not be shown: its JSON is malformed (The document is empty.) at offset 0."},
        Unreadable{"Truncated", R"({"procedure":"P","tables":[)",
                   "The output could not be shown: its JSON is malformed (Invalid value.) at offset 27."},
        Unreadable{"TrailingText", R"({"procedure":"P","tables":[]} x)",
                   "The output could not be shown: its JSON is malformed (The document root must not be "
                   "followed by other values.) at offset 30."},
        Unreadable{"NotAnObject", "[]", "The output could not be shown: its JSON is not an object."},
        Unreadable{"NoProcedure", R"({"tables":[]})", "The output could not be shown: it names no procedure."},
        Unreadable{"ProcedureNotText", R"({"procedure":7,"tables":[]})",
                   "The output could not be shown: it names no procedure."},
        Unreadable{"SubtitleNotText", R"({"procedure":"P","subtitle":[],"tables":[]})",
                   "The output could not be shown: its subtitle is not a text."},
        Unreadable{"NoTables", R"({"procedure":"P"})", "The output could not be shown: it has no list of tables."},
        Unreadable{"TablesNotList", R"({"procedure":"P","tables":{}})",
                   "The output could not be shown: it has no list of tables."}),
    [](const testing::TestParamInfo<Unreadable>& p) { return std::string(p.param.name); });

TEST_F(Converter, ErrorsAreNamedAfterTheJsonProcedureWhenTheHostGaveNone) {
  convert(R"({"procedure":"OTHER"})", nullptr);
  auto errors = zorvhost::takeCommandErrors();
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].command, "OTHER");
  convert("{", nullptr);
  errors = zorvhost::takeCommandErrors();
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].command, "");
}

TEST_F(Converter, WithoutAHandlerErrorsAlsoGoToStandardError) {
  zorvhost::setOutputHandler(nullptr);
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  convert("not json");
  const std::string out = testing::internal::GetCapturedStdout();
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(out, "");
  EXPECT_NE(err.find("The output could not be shown: its JSON is malformed"), std::string::npos) << err;
  EXPECT_EQ(zorvhost::takeCommandErrors().size(), 1u);
}

// ---- One table that cannot be shown among good ones ------------------------------------------

struct BadTable {
  const char* name;
  std::string table;
  std::string problem;
};

class UnreadableTable : public output_test::OutputCapture, public testing::WithParamInterface<BadTable> {};

TEST_P(UnreadableTable, IsSkippedAndTheOthersAreShown) {
  BpProcedure procedure("GENOSTAT", 0);
  StatJSONConverter converter(&procedure);
  converter.generateOutput(procedureJson(std::string(kGoodTable) + "," + GetParam().table + "," + kGoodTable));
  EXPECT_EQ(tables.size(), 2u);
  const auto errors = zorvhost::takeCommandErrors();
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].text, "Table 2 of the output could not be shown: " + GetParam().problem + ".");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, UnreadableTable,
    testing::Values(
        BadTable{"NotObject", "[]", "it is not an object"},
        BadTable{"NoTitle", R"({"columnLabels":[],"rowLabels":[],"cells":[]})", "\"title\" is missing"},
        BadTable{"TitleNotText", R"({"title":1,"columnLabels":[],"rowLabels":[],"cells":[]})",
                 "\"title\" is not a text"},
        BadTable{"HideTitleNotBool", R"({"title":"t","hideTitle":"yes","columnLabels":[],"rowLabels":[],"cells":[]})",
                 "\"hideTitle\" is not true or false"},
        BadTable{"WidthNotWhole",
                 R"({"title":"t","minDataColumnWidth":1.5,"columnLabels":[],"rowLabels":[],"cells":[]})",
                 "\"minDataColumnWidth\" is not a whole number"},
        BadTable{"FormatNotObject", R"({"title":"t","defaultFormat":5,"columnLabels":[],"rowLabels":[],"cells":[]})",
                 "\"defaultFormat\" is not an object"},
        BadTable{"FormatDecimalsNotWhole",
                 R"({"title":"t","defaultFormat":{"decimals":"4"},"columnLabels":[],"rowLabels":[],"cells":[]})",
                 "\"decimals\" is not a whole number"},
        BadTable{"RowDimensionNotObject",
                 R"({"title":"t","rowDimension":[],"columnLabels":[],"rowLabels":[],"cells":[]})",
                 "\"rowDimension\" is not an object"},
        BadTable{"RowLabelNotText",
                 R"({"title":"t","rowDimension":{"label":null},"columnLabels":[],"rowLabels":[],"cells":[]})",
                 "\"label\" is not a text"},
        BadTable{"ShowLabelNotBool",
                 R"({"title":"t","rowDimension":{"showLabel":0},"columnLabels":[],"rowLabels":[],"cells":[]})",
                 "\"showLabel\" is not true or false"},
        BadTable{"NoColumnLabels", R"({"title":"t","rowLabels":[],"cells":[]})", "\"columnLabels\" is missing"},
        BadTable{"ColumnLabelNumber", R"({"title":"t","columnLabels":[1],"rowLabels":[],"cells":[]})",
                 "\"columnLabels\" is not a list of texts"},
        BadTable{"RowLabelsNotList", R"({"title":"t","columnLabels":[],"rowLabels":"r","cells":[]})",
                 "\"rowLabels\" is not a list of texts"},
        BadTable{"NoCells", R"({"title":"t","columnLabels":[],"rowLabels":[]})", "\"cells\" is missing"},
        BadTable{"CellsNotList", R"({"title":"t","columnLabels":[],"rowLabels":[],"cells":{}})",
                 "\"cells\" is not a list of rows of texts"},
        BadTable{"CellRowNotList", R"({"title":"t","columnLabels":[],"rowLabels":[],"cells":["1"]})",
                 "\"cells\" is not a list of rows of texts"},
        BadTable{"CellNumber", R"({"title":"t","columnLabels":[],"rowLabels":[],"cells":[["1",2]]})",
                 "\"cells\" is not a list of rows of texts"}),
    [](const testing::TestParamInfo<BadTable>& p) { return std::string(p.param.name); });

}  // namespace
