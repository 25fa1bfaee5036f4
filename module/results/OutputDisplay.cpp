// GENOSTAT /PRINT: a finished job's summary as two tables in the host's output, "Summary" (the
// counts) and "Details" (the job's message and the dataset it produced).
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "entry/Texts.h"
#include "host/output.h"
#include "host/procedure.h"
#include "jobs/GenoStatAlgoManager.h"

namespace {

using Texts = std::vector<std::string>;

// Builds one table on `generator` and adds it to the procedure's output. `columns` holds the
// values column by column; the table has as many rows as the longest column, and a row label or
// value that is missing shows as an empty text. Every text arrives already localised.
//
// The host may be short of memory while the user reads results: if the table, either category
// list or the cell collection cannot be allocated, this table is left out and nothing is said,
// so the other table of the same /PRINT can still show.
void addTable(StatJSONGenerator& generator, const std::string& title, const Texts& columnLabels,
              const Texts& rowLabels, const std::vector<Texts>& columns) {
  std::unique_ptr<Table> table(new (std::nothrow) Table(&generator, title));
  if (!table) return;
  table->set_table_title(title);
  table->hide_title(false);
  table->set_min_data_column_width(100);
  table->set_max_data_column_width(700);
  table->set_default_cell_format(ZORV_Format::FormatNumeric, 10, 4);

  std::unique_ptr<Descendants> rowCategories(new (std::nothrow) Descendants(table.get()));
  if (!rowCategories) return;
  std::unique_ptr<Descendants> columnCategories(new (std::nothrow) Descendants(table.get()));
  if (!columnCategories) return;
  std::unique_ptr<Cells> cells(new (std::nothrow) Cells(table.get()));
  if (!cells) return;

  // The row labels sit in the first column; their own heading stays hidden.
  rowCategories->setLabel("  ");
  rowCategories->setShowLabel(false);

  // A text cell owned here until the host object that keeps it has taken it.
  const auto textCell = [&table](const std::string& value) {
    std::unique_ptr<Cell> cell(new Cell(table.get(), 1));
    cell->setValue(value);
    return cell;
  };

  for (const std::string& label : columnLabels) columnCategories->addDescendant(textCell(label).release());

  std::size_t rowCount = 0;
  for (const Texts& column : columns) rowCount = column.size() > rowCount ? column.size() : rowCount;

  for (std::size_t row = 0; row < rowCount; ++row) {
    rowCategories->addDescendant(textCell(row < rowLabels.size() ? rowLabels[row] : std::string()).release());
  }

  for (std::size_t row = 0; row < rowCount; ++row) {
    std::vector<std::unique_ptr<Cell>> owned;
    owned.reserve(columns.size());
    for (const Texts& column : columns) owned.push_back(textCell(row < column.size() ? column[row] : std::string()));
    std::vector<Cell*> handed;
    handed.reserve(owned.size());
    for (auto& cell : owned) handed.push_back(cell.release());
    cells->addCells(handed);
  }

  // The dimension owns both category lists from its construction on.
  std::unique_ptr<Dimension> dimension(new Dimension(table.get(), rowCategories.get(), columnCategories.get()));
  rowCategories.release();
  columnCategories.release();

  table->set_dimensions(dimension.get());
  table->set_cells(cells.get());
  table->addTableToProcedureJSON();
  // The host keeps its own copy of the table; the objects go in this order.
  table.reset();
  dimension.reset();
  cells.reset();
}

}  // namespace

void GenoStatAlgoManager::generateMessageString(GenoJobSettings* settings) {
  if (!settings) return;
  switch (settings->messageCode) {
    case 100:
      // No blank after the colon: the sample count follows it directly.
      settings->messageText = getLocalizedString(texts::kValid) + std::to_string(settings->sampleCount) +
                              " " + getLocalizedString(texts::kFastqFilesDetected);
      break;
    case 101:
      settings->messageText = getLocalizedString(texts::kError) + getLocalizedString(texts::kGenericError);
      break;
    default: {
      // A failed job left its filled text under the name its /PRINT carries (blanks already '_');
      // it is shown once. Any other /PRINT of that code gets the bare template.
      std::string kept;
      if (takeFailureMessage(settings->jobName, settings->messageCode, kept)) {
        settings->messageText = kept;
        break;
      }
      // A failed analysis carries 200 plus the script's exit code. Wrapping subtraction: a code near
      // the bottom of the range must not overflow on its way to the "unknown" row.
      const auto exitCode =
          static_cast<int32_t>(static_cast<uint32_t>(settings->messageCode) - static_cast<uint32_t>(200));
      settings->messageText = getErrorMessageTemplate(exitCode);
      break;
    }
  }
}

void GenoStatAlgoManager::postOutputToDisplay(GenoJobSettings* settings, BpProcedure* procedure) {
  if (!settings) return;

  ProcedureDataSource dataSource;
  std::unique_ptr<ACAVarValidSpecs> specs(new ACAVarValidSpecs(true, true, true));
  OPSCommonOutput commonOutput(specs.get(), &dataSource, procedure, nullptr);
  StatJSONConverter converter(procedure);
  {
    StatJSONGenerator generator(texts::kProcedureName, "", converter, settings);

    addTable(generator, getLocalizedString(texts::kSummary), {getLocalizedString(texts::kCount)},
             {getLocalizedString(texts::kSamples), getLocalizedString(texts::kVariables)},
             {{std::to_string(settings->sampleCount), std::to_string(settings->variableCount)}});

    generateMessageString(settings);

    // One empty column label per row label, over a single column of values; the host shows an
    // empty header row either way, so the extra label costs nothing and is kept as it always was.
    const std::string dataset = settings->sampleCount < 1 ? getLocalizedString(texts::kNone) : settings->jobName;
    addTable(generator, getLocalizedString(texts::kDetails), {std::string(), std::string()},
             {getLocalizedString(texts::kMessage), getLocalizedString(texts::kDataset)},
             {{getLocalizedString(settings->messageText), dataset}});

    if (StatJSONConverter* out = generator.getConverter()) out->generateOutput(generator.getProcedureStatJSON());
  }
  specs.reset();
}
