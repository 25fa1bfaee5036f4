// The output road end to end: tables.txt holds procedure JSON documents (and the tables the builder
// makes the way the module makes them), each followed by what the client is handed: the renderings
// of every table delivered and the errors recorded (see refhost/tests/golden.h). Then the handler's
// side: its failures, its replacement, and the standard streams when there is none. The charts of
// the HTML page are cases there too.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "golden.h"
#include "host/output.h"
#include "host/procedure.h"
#include "zorvhost/charts.h"
#include "zorvhost/client.h"
#include "zorvhost/output.h"

namespace {

using zorvhost::OutputTable;

// Each line of `text` escaped on its own.
std::string escapeLines(const std::string& text) {
  std::string out;
  for (const auto& line : golden::lines(text)) out += golden::escape(line) + "\n";
  return out;
}

// "@show text ascii html event fields": the renderings of each table to show.
std::string describe(const OutputTable& t, const std::string& show) {
  auto wants = [&show](const char* what) { return show.find(what) != std::string::npos; };
  std::string out;
  if (wants("fields")) {
    auto text = [](const std::string& s) { return "`" + golden::escape(s) + "`"; };
    out += "procedure " + text(t.procedure) + " subtitle " + text(t.subtitle) + " title " + text(t.title) +
           (t.hideTitle ? " hidden" : "") + " row dimension " + text(t.rowDimensionLabel) +
           (t.showRowDimensionLabel ? "" : " hidden") + " widths " + std::to_string(t.minDataColumnWidth) + "-" +
           std::to_string(t.maxDataColumnWidth) + " format " + std::to_string(t.formatType) + "/" +
           std::to_string(t.formatWidth) + "/" + std::to_string(t.formatDecimals) + "\n";
  }
  if (wants("text")) out += zorvhost::renderTableText(t);
  if (wants("ascii")) out += zorvhost::renderTableText(t, zorvhost::TextRules::Ascii);
  if (wants("html")) out += zorvhost::renderTableHtml(t);
  if (wants("event")) out += zorvhost::tableEventJson(t) + "\n";
  return out.empty() ? "table `" + t.title + "`\n" : out;
}

std::string convert(const std::string& json, BpProcedure* host, const std::string& show) {
  std::string out;
  zorvhost::takeCommandErrors();
  zorvhost::setOutputHandler([&](const OutputTable& t) { out += describe(t, show); });
  StatJSONConverter(host).generateOutput(json);
  zorvhost::setOutputHandler(nullptr);
  for (const auto& e : zorvhost::takeCommandErrors()) out += "error " + e.command + ": " + e.text + "\n";
  return escapeLines(out.empty() ? "nothing" : out);
}

// One table with the calls the module makes, in its order, with its ownership.
void addModuleTable(StatJSONGenerator& generator, const std::string& title, const std::vector<std::string>& columnLabels,
                    const std::vector<std::string>& rowLabels, const std::vector<std::vector<std::string>>& columns) {
  auto* table = new Table(&generator, title);
  auto cell = [table](const std::string& value) {
    auto* c = new Cell(table, 1);
    c->setValue(value);
    return c;
  };
  table->set_table_title(title);
  table->hide_title(false);
  table->set_min_data_column_width(100);
  table->set_max_data_column_width(700);
  table->set_default_cell_format(static_cast<ZORV_Format::FormatType>(5), 10, 4);
  auto* rows = new Descendants(table);
  auto* labels = new Descendants(table);
  auto* cells = new Cells(table);
  rows->setLabel("  ");
  rows->setShowLabel(false);
  for (const auto& text : columnLabels) labels->addDescendant(cell(text));
  size_t rowCount = 0;
  for (const auto& column : columns) rowCount = std::max(rowCount, column.size());
  for (size_t r = 0; r < rowCount; ++r) {
    rows->addDescendant(cell(r < rowLabels.size() ? rowLabels[r] : ""));
    std::vector<Cell*> row;
    for (const auto& column : columns) row.push_back(cell(r < column.size() ? column[r] : ""));
    cells->addCells(row);
  }
  auto* dimension = new Dimension(table, rows, labels);
  table->set_dimensions(dimension);
  table->set_cells(cells);
  table->addTableToProcedureJSON();
  delete table;
  delete dimension;
  delete cells;
}

// "@builder": the module's /PRINT tables, with the JSON they make; then the builder's corners.
std::string builder(const std::string& show) {
  BpProcedure procedure("GENOSTAT", 0);
  ProcedureDataSource source;
  ACAVarValidSpecs valid(true, true, true);
  OPSCommonOutput common(&valid, &source, &procedure, nullptr);
  StatJSONConverter converter(&procedure);
  StatJSONGenerator module("GENOSTAT", "", converter, nullptr);
  addModuleTable(module, "Summary", {"Count"}, {"Samples", "Variables"}, {{"3", "27"}});
  addModuleTable(module, "Details", {"", ""}, {"Message", "Dataset"}, {{"Valid:3 fastQ file(s) detected.", "job1"}});
  std::string out = module.getProcedureStatJSON() + "\n" + convert(module.getProcedureStatJSON(), &procedure, show);

  StatJSONGenerator corners("PROC", "sub", converter, nullptr);
  addModuleTable(corners, "Ragged columns", {"a", "b"}, {"r1"}, {{"1", "2", "3"}, {"4"}});
  const std::string awkward = std::string("quote\" back\\slash\nnew\tline \x01 nul:") + '\0' + "end ü";
  addModuleTable(corners, awkward, {"x"}, {"y"}, {{"z"}});
  auto* holes = new Table(&corners, "Null categories and cells keep their places");
  auto* rows = new Descendants(holes);
  rows->addDescendant(nullptr);
  rows->addDescendant(new Cell(holes, 1));
  rows->categories().back()->setValue("A");
  auto* cells = new Cells(holes);
  auto* x = new Cell(holes, 1);
  x->setValue("x");
  cells->addCells({nullptr, x});
  Dimension dimension(holes, rows, nullptr);  // no column list: an empty one
  holes->set_dimensions(&dimension);
  holes->set_cells(cells);
  holes->addTableToProcedureJSON();
  // Adding takes a snapshot: what changes afterwards shows only in the next addition.
  rows->categories().back()->setValue("B");
  holes->set_table_title("Second snapshot");
  holes->hide_title(true);
  holes->addTableToProcedureJSON();
  delete holes;
  delete cells;
  Table(&corners, "No dimension, no cells").addTableToProcedureJSON();
  Table(nullptr, "Without a generator: ignored").addTableToProcedureJSON();
  return out + convert(corners.getProcedureStatJSON(), &procedure, show);
}

TEST(Output, EveryCaseGivesItsExpectedResult) {
  std::string show, host = "GENOSTAT";
  golden::check(OUTPUT_TESTS_DIR "/tables.txt", [&](const std::string& directive, const std::string* text) {
    if (!text) {
      if (directive.rfind("@show", 0) == 0) show = directive.substr(5);
      if (directive.rfind("@host ", 0) == 0) host = directive.substr(6);
      return directive == "@builder" ? escapeLines(builder(show)) : std::string();
    }
    if (directive == "@page") return escapeLines(zorvhost::htmlPageHeader(*text) + zorvhost::htmlPageFooter());
    std::vector<double> numbers;
    std::istringstream in(*text);
    for (double n; in >> n;) numbers.push_back(n);
    if (directive == "@histogram") return zorvhost::charts::histogram("Histogram of <x>", "x", numbers, false);
    if (directive == "@ticks") {
      std::ostringstream ticks;
      for (double t : zorvhost::charts::niceTicks(numbers.at(0), numbers.at(1), static_cast<int>(numbers.at(2)))) {
        ticks << t << " ";
      }
      return ticks.str();
    }
    BpProcedure procedure(host.c_str(), 0);
    return convert(*text, host == "-" ? nullptr : &procedure, show);
  });
}

const char* const kTwoTables =
    R"({"procedure":"GENOSTAT","tables":[{"title":"T","columnLabels":["c"],"rowLabels":["r"],"cells":[["1"]]},)"
    R"({"title":"U","columnLabels":[],"rowLabels":[],"cells":[]}]})";

TEST(Output, AFailingHandlerIsReportedAndTheNextTableStillArrives) {
  zorvhost::takeCommandErrors();
  int calls = 0;
  zorvhost::setOutputHandler([&](const OutputTable&) {
    if (++calls == 1) throw std::runtime_error("disk full");
    throw 42;
  });
  BpProcedure procedure("GENOSTAT", 0);
  StatJSONConverter(&procedure).generateOutput(kTwoTables);
  zorvhost::setOutputHandler(nullptr);
  std::string errors;
  for (const auto& e : zorvhost::takeCommandErrors()) errors += e.command + ": " + e.text + "\n";
  EXPECT_EQ(errors,
            "GENOSTAT: The output handler failed on table \"T\": disk full\n"
            "GENOSTAT: The output handler failed on table \"U\".\n");
}

TEST(Output, AHandlerReplacingItselfAffectsTheNextOutputOnly) {
  std::vector<std::string> first, later;
  zorvhost::setOutputHandler([&](const OutputTable& t) {
    first.push_back(t.title);
    zorvhost::setOutputHandler([&](const OutputTable& u) { later.push_back(u.title); });
  });
  StatJSONConverter(nullptr).generateOutput(kTwoTables);
  StatJSONConverter(nullptr).generateOutput(kTwoTables);
  zorvhost::setOutputHandler(nullptr);
  EXPECT_EQ(first, (std::vector<std::string>{"T", "U"}));
  EXPECT_EQ(later, (std::vector<std::string>{"T", "U"}));
}

TEST(Output, WithoutAHandlerTablesGoToStandardOutputAndErrorsAlsoToStandardError) {
  zorvhost::takeCommandErrors();
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  StatJSONConverter(nullptr).generateOutput(kTwoTables);
  StatJSONConverter(nullptr).generateOutput("not json");
  const std::string err = testing::internal::GetCapturedStderr(), out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(err, "The output could not be shown: its JSON is malformed (Invalid value.) at offset 1.\n");
  EXPECT_EQ(out,
            "T\n┌───┬───┐\n│   │ c │\n├───┼───┤\n│ r │ 1 │\n└───┴───┘\n\n"
            "U\n┌──┐\n└──┘\n\n");
  EXPECT_EQ(zorvhost::takeCommandErrors().size(), 1u);
}

}  // namespace
