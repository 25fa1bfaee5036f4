// The GENOSTAT /PRINT output built the way the module builds it: the same calls, in the same
// order, with the same ownership, so the tests see what the host sees in a real session.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "host/output.h"
#include "host/procedure.h"

namespace output_test {

// One table: title, column labels, row labels and the value columns.
inline void addModuleTable(StatJSONGenerator& generator, const std::string& title,
                           const std::vector<std::string>& columnLabels,
                           const std::vector<std::string>& rowLabels,
                           const std::vector<std::vector<std::string>>& valueColumns) {
  auto* table = new Table(&generator, title);
  table->set_table_title(title);
  table->hide_title(false);
  table->set_min_data_column_width(100);
  table->set_max_data_column_width(700);
  table->set_default_cell_format(static_cast<ZORV_Format::FormatType>(5), 10, 4);

  auto* rows = new Descendants(table);
  auto* columns = new Descendants(table);
  auto* cells = new Cells(table);
  rows->setLabel("  ");
  rows->setShowLabel(false);
  for (const auto& label : columnLabels) {
    auto* c = new Cell(table, 1);
    c->setValue(label);
    columns->addDescendant(c);
  }
  std::size_t rowCount = 0;
  for (const auto& column : valueColumns) rowCount = std::max(rowCount, column.size());
  for (std::size_t r = 0; r < rowCount; ++r) {
    auto* c = new Cell(table, 1);
    c->setValue(r < rowLabels.size() ? rowLabels[r] : std::string());
    rows->addDescendant(c);
  }
  for (std::size_t r = 0; r < rowCount; ++r) {
    std::vector<Cell*> row;
    for (const auto& column : valueColumns) {
      auto* c = new Cell(table, 1);
      c->setValue(r < column.size() ? column[r] : std::string());
      row.push_back(c);
    }
    cells->addCells(row);
  }
  auto* dimension = new Dimension(table, rows, columns);
  table->set_dimensions(dimension);
  table->set_cells(cells);
  table->addTableToProcedureJSON();
  delete table;
  delete dimension;
  delete cells;
}

struct JobSummary {
  long long sampleCount = 3;
  long long variableCount = 27;
  std::string message = "Valid:3 fastQ file(s) detected.";
  std::string dataset = "job1";
  // Labels as the string tables give them (English keys by default).
  std::string summary = "Summary", count = "Count", samples = "Samples", variables = "Variables";
  std::string details = "Details", messageLabel = "Message", datasetLabel = "Dataset";
};

// The whole of /PRINT's output: set-up, both tables, emission, tear-down. Returns the procedure
// JSON that was handed to the converter.
inline std::string emitJobSummary(const JobSummary& job, BpProcedure* procedure) {
  auto* source = new ProcedureDataSource();
  auto* specs = new ACAVarValidSpecs(true, true, true);
  auto* common = new OPSCommonOutput(specs, source, procedure, nullptr);
  auto* converter = new StatJSONConverter(procedure);
  std::string json;
  {
    StatJSONGenerator generator("GENOSTAT", "", *converter, &job);
    addModuleTable(generator, job.summary, {job.count}, {job.samples, job.variables},
                   {{std::to_string(job.sampleCount), std::to_string(job.variableCount)}});
    addModuleTable(generator, job.details, {"", ""}, {job.messageLabel, job.datasetLabel},
                   {{job.message, job.dataset}});
    if (generator.getConverter()) {
      json = generator.getProcedureStatJSON();
      generator.getConverter()->generateOutput(json);
    }
  }
  delete specs;
  delete converter;
  delete common;
  delete source;
  return json;
}

}  // namespace output_test
