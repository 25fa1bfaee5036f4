// Tables built through the host output library and delivered to the client: the module's two
// /PRINT tables, and the corners of the builder objects (null parts, snapshots, ownership).
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "capture.h"
#include "host/output.h"
#include "host/procedure.h"
#include "module_tables.h"

namespace {

using output_test::addModuleTable;
using output_test::emitJobSummary;
using output_test::JobSummary;
using Rows = std::vector<std::vector<std::string>>;
using Texts = std::vector<std::string>;

class ModuleTables : public output_test::OutputCapture {};

TEST_F(ModuleTables, SummaryAndDetailsArriveAsTheModuleBuiltThem) {
  BpProcedure procedure("GENOSTAT", 0);
  emitJobSummary(JobSummary{}, &procedure);
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty());
  ASSERT_EQ(tables.size(), 2u);

  const auto& summary = tables[0];
  EXPECT_EQ(summary.procedure, "GENOSTAT");
  EXPECT_EQ(summary.subtitle, "");
  EXPECT_EQ(summary.title, "Summary");
  EXPECT_FALSE(summary.hideTitle);
  EXPECT_EQ(summary.rowDimensionLabel, "  ");
  EXPECT_FALSE(summary.showRowDimensionLabel);
  EXPECT_EQ(summary.columnLabels, Texts{"Count"});
  EXPECT_EQ(summary.rowLabels, (Texts{"Samples", "Variables"}));
  EXPECT_EQ(summary.cells, (Rows{{"3"}, {"27"}}));
  EXPECT_EQ(summary.minDataColumnWidth, 100);
  EXPECT_EQ(summary.maxDataColumnWidth, 700);
  EXPECT_EQ(summary.formatType, 5);
  EXPECT_EQ(summary.formatWidth, 10);
  EXPECT_EQ(summary.formatDecimals, 4);

  // Two empty column labels over a single value column: kept exactly as given.
  const auto& details = tables[1];
  EXPECT_EQ(details.title, "Details");
  EXPECT_EQ(details.columnLabels, (Texts{"", ""}));
  EXPECT_EQ(details.rowLabels, (Texts{"Message", "Dataset"}));
  EXPECT_EQ(details.cells, (Rows{{"Valid:3 fastQ file(s) detected."}, {"job1"}}));
}

TEST_F(ModuleTables, CellTextsAreNotReformattedByTheNumericFormat) {
  JobSummary job;
  job.sampleCount = -1;
  job.variableCount = 0;
  job.dataset = "None";
  BpProcedure procedure("GENOSTAT", 0);
  emitJobSummary(job, &procedure);
  ASSERT_EQ(tables.size(), 2u);
  EXPECT_EQ(tables[0].cells, (Rows{{"-1"}, {"0"}}));
  EXPECT_EQ(tables[1].cells[1], Texts{"None"});
  const std::string text = zorvhost::renderTableText(tables[0]);
  EXPECT_NE(text.find(" -1 "), std::string::npos) << text;
  EXPECT_EQ(text.find("0000"), std::string::npos) << text;
}

TEST_F(ModuleTables, LocalisedLabelsPassThroughByteForByte) {
  JobSummary job;
  job.summary = "Zusammenfassung";
  job.count = "Anzahl";
  job.samples = "Proben";
  job.message = "Gültig:3 fastQ-Datei(en) erkannt.";
  job.messageLabel = "Meldung";
  job.datasetLabel = "Datensatz";
  emitJobSummary(job, nullptr);
  ASSERT_EQ(tables.size(), 2u);
  EXPECT_EQ(tables[0].title, "Zusammenfassung");
  EXPECT_EQ(tables[1].cells[0], Texts{"Gültig:3 fastQ-Datei(en) erkannt."});
}

TEST_F(ModuleTables, ProcedureJsonHasTheDocumentedShape) {
  BpProcedure procedure("GENOSTAT", 0);
  const std::string json = emitJobSummary(JobSummary{}, &procedure);
  rapidjson::Document doc;
  doc.Parse(json.c_str());
  ASSERT_FALSE(doc.HasParseError()) << json;
  EXPECT_STREQ(doc["procedure"].GetString(), "GENOSTAT");
  EXPECT_STREQ(doc["subtitle"].GetString(), "");
  ASSERT_EQ(doc["tables"].Size(), 2u);
  const auto& t = doc["tables"][0];
  EXPECT_STREQ(t["title"].GetString(), "Summary");
  EXPECT_FALSE(t["hideTitle"].GetBool());
  EXPECT_EQ(t["minDataColumnWidth"].GetInt(), 100);
  EXPECT_EQ(t["maxDataColumnWidth"].GetInt(), 700);
  EXPECT_EQ(t["defaultFormat"]["type"].GetInt(), 5);
  EXPECT_EQ(t["defaultFormat"]["width"].GetInt(), 10);
  EXPECT_EQ(t["defaultFormat"]["decimals"].GetInt(), 4);
  EXPECT_STREQ(t["rowDimension"]["label"].GetString(), "  ");
  EXPECT_FALSE(t["rowDimension"]["showLabel"].GetBool());
  EXPECT_STREQ(t["columnLabels"][0].GetString(), "Count");
  EXPECT_STREQ(t["rowLabels"][1].GetString(), "Variables");
  EXPECT_STREQ(t["cells"][1][0].GetString(), "27");
}

// ---- The builder objects on their own ---------------------------------------------------------

class Builder : public output_test::OutputCapture {
 protected:
  Builder() : converter(&procedure), generator("PROC", "sub", converter, nullptr) {}
  void emit() { converter.generateOutput(generator.getProcedureStatJSON()); }

  BpProcedure procedure{"PROC", 0};
  StatJSONConverter converter;
  StatJSONGenerator generator;
};

TEST_F(Builder, GeneratorWithoutTablesEmitsNothing) {
  EXPECT_EQ(generator.getConverter(), &converter);
  EXPECT_EQ(generator.getProcedureStatJSON(), R"({"procedure":"PROC","subtitle":"sub","tables":[]})");
  emit();
  EXPECT_TRUE(tables.empty());
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty());
}

TEST_F(Builder, TableWithoutDimensionOrCellsIsAnEmptyTable) {
  Table table(&generator, "Bare");
  table.addTableToProcedureJSON();
  emit();
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_EQ(tables[0].title, "Bare");
  EXPECT_EQ(tables[0].subtitle, "sub");
  EXPECT_TRUE(tables[0].columnLabels.empty());
  EXPECT_TRUE(tables[0].rowLabels.empty());
  EXPECT_TRUE(tables[0].cells.empty());
  EXPECT_TRUE(tables[0].showRowDimensionLabel);
  EXPECT_FALSE(zorvhost::renderTableText(tables[0]).empty());
}

TEST_F(Builder, TableWithoutGeneratorIsIgnored) {
  Table table(nullptr, "Lost");
  table.addTableToProcedureJSON();  // must not crash
  emit();
  EXPECT_TRUE(tables.empty());
}

TEST_F(Builder, NullCategoriesAndCellsKeepTheirPlaces) {
  auto* table = new Table(&generator, "Holes");
  auto* rows = new Descendants(table);
  auto* columns = new Descendants(table);
  auto* a = new Cell(table, 1);
  a->setValue("A");
  rows->addDescendant(nullptr);
  rows->addDescendant(a);
  auto* x = new Cell(table, 1);
  x->setValue("x");
  auto* cells = new Cells(table);
  cells->addCells({nullptr, x});
  auto* dimension = new Dimension(table, rows, columns);
  table->set_dimensions(dimension);
  table->set_cells(cells);
  table->addTableToProcedureJSON();
  delete table;
  delete dimension;
  delete cells;
  emit();
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_EQ(tables[0].rowLabels, (Texts{"", "A"}));
  EXPECT_EQ(tables[0].cells, (Rows{{"", "x"}}));
}

TEST_F(Builder, DimensionWithoutCategoryListsHasEmptyOnes) {
  Table table(&generator, "T");
  Dimension dimension(&table, nullptr, nullptr);
  EXPECT_TRUE(dimension.rows().categories().empty());
  EXPECT_TRUE(dimension.columns().categories().empty());
  table.set_dimensions(&dimension);
  table.addTableToProcedureJSON();
  emit();
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_TRUE(tables[0].rowLabels.empty());
}

TEST_F(Builder, AddingTakesASnapshotThatOutlivesTheObjects) {
  auto* table = new Table(&generator, "First title");
  auto* columns = new Descendants(table);
  auto* label = new Cell(table, 1);
  label->setValue("before");
  columns->addDescendant(label);
  auto* dimension = new Dimension(table, new Descendants(table), columns);
  table->set_dimensions(dimension);
  table->addTableToProcedureJSON();
  label->setValue("after");
  table->set_table_title("Second title");
  table->hide_title(true);
  table->addTableToProcedureJSON();
  delete table;
  delete dimension;
  emit();
  ASSERT_EQ(tables.size(), 2u);
  EXPECT_EQ(tables[0].title, "First title");
  EXPECT_FALSE(tables[0].hideTitle);
  EXPECT_EQ(tables[0].columnLabels, Texts{"before"});
  EXPECT_EQ(tables[1].title, "Second title");
  EXPECT_TRUE(tables[1].hideTitle);
  EXPECT_EQ(tables[1].columnLabels, Texts{"after"});
}

TEST_F(Builder, TextsSurviveTheRoundTripExactly) {
  const std::string awkward = std::string("quote\" back\\slash\nnew\tline \x01 nul:") + '\0' + "end ü";
  addModuleTable(generator, awkward, {awkward}, {awkward}, {{awkward}});
  emit();
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_EQ(tables[0].title, awkward);
  EXPECT_EQ(tables[0].columnLabels, Texts{awkward});
  EXPECT_EQ(tables[0].rowLabels, Texts{awkward});
  EXPECT_EQ(tables[0].cells, Rows{{awkward}});
}

TEST_F(Builder, ValueColumnsOfUnequalLengthArePaddedByTheBuilder) {
  addModuleTable(generator, "Ragged", {"a", "b"}, {"r1"}, {{"1", "2", "3"}, {"4"}});
  emit();
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_EQ(tables[0].rowLabels, (Texts{"r1", "", ""}));
  EXPECT_EQ(tables[0].cells, (Rows{{"1", "4"}, {"2", ""}, {"3", ""}}));
}

}  // namespace
