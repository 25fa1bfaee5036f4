// The host output library's building side: the objects a procedure assembles a table from, and the
// generator that collects the tables into the procedure JSON described in zorvhost/output.h.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/output.h"
#include "output/generator_impl.h"

namespace keys = zorvhost::json_keys;

// ---- Objects the host keeps for a procedure's output ------------------------------------------

ACAVarValidSpecs::ACAVarValidSpecs(bool listwise, bool includeUserMissing, bool includeSystemMissing)
    : listwise_(listwise),
      includeUserMissing_(includeUserMissing),
      includeSystemMissing_(includeSystemMissing) {}
ACAVarValidSpecs::~ACAVarValidSpecs() = default;

// The reference host has no case data behind a procedure's output, so the valid-value settings,
// the data source and the input adapter are accepted and not used.
OPSCommonOutput::OPSCommonOutput(ACAVarValidSpecs* /*specs*/, ProcedureDataSource* /*source*/,
                                 BpProcedure* procedure, void* /*inputAdapter*/)
    : procedure_(procedure) {}
OPSCommonOutput::~OPSCommonOutput() = default;

// ---- Generator --------------------------------------------------------------------------------

StatJSONGenerator::StatJSONGenerator(const std::string& procedureName, const std::string& subtitle,
                                     StatJSONConverter& converter, const void* context)
    : impl_(std::make_unique<Impl>()) {
  impl_->procedureName = procedureName;
  impl_->subtitle = subtitle;
  impl_->converter = &converter;
  impl_->context = context;
}

StatJSONGenerator::~StatJSONGenerator() = default;

StatJSONConverter* StatJSONGenerator::getConverter() const { return impl_->converter; }

std::string StatJSONGenerator::getProcedureStatJSON() const {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
  const std::string& name = impl_->procedureName;
  const std::string& subtitle = impl_->subtitle;
  w.StartObject();
  w.Key(keys::kProcedure);
  w.String(name.data(), static_cast<rapidjson::SizeType>(name.size()));
  w.Key(keys::kSubtitle);
  w.String(subtitle.data(), static_cast<rapidjson::SizeType>(subtitle.size()));
  w.Key(keys::kTables);
  impl_->tables.Accept(w);
  w.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize());
}

// ---- Cells and categories ---------------------------------------------------------------------

Cell::Cell(Table* /*table*/, int cellType) : cellType_(cellType) {}
Cell::~Cell() = default;
void Cell::setValue(const std::string& value) { value_ = value; }

Descendants::Descendants(Table* /*table*/) {}
Descendants::~Descendants() = default;
void Descendants::setLabel(const std::string& label) { label_ = label; }
void Descendants::setShowLabel(bool show) { showLabel_ = show; }
// A null category is kept as an empty label, so the categories after it keep their positions.
void Descendants::addDescendant(Cell* category) { categories_.emplace_back(category); }

Cells::Cells(Table* /*table*/) {}
Cells::~Cells() = default;

void Cells::addCells(const std::vector<Cell*>& row) {
  std::vector<std::unique_ptr<Cell>> owned;
  owned.reserve(row.size());
  for (Cell* c : row) owned.emplace_back(c);
  rows_.push_back(std::move(owned));
}

// Missing category lists are replaced by empty ones, so rows() and columns() always refer to one.
Dimension::Dimension(Table* table, Descendants* rows, Descendants* columns)
    : rows_(rows ? rows : new Descendants(table)), columns_(columns ? columns : new Descendants(table)) {}
Dimension::~Dimension() = default;

// ---- Table ------------------------------------------------------------------------------------

Table::Table(StatJSONGenerator* generator, const std::string& title)
    : generator_(generator), title_(title) {}
Table::~Table() = default;

void Table::set_table_title(const std::string& title) { title_ = title; }
void Table::hide_title(bool hide) { hideTitle_ = hide; }
void Table::set_min_data_column_width(int width) { minWidth_ = width; }
void Table::set_max_data_column_width(int width) { maxWidth_ = width; }

void Table::set_default_cell_format(ZORV_Format::FormatType type, int width, int decimals) {
  format_ = type;
  formatWidth_ = width;
  formatDecimals_ = decimals;
}

void Table::set_dimensions(Dimension* dimension) { dimension_ = dimension; }
void Table::set_cells(Cells* cells) { cells_ = cells; }

namespace {

using Allocator = rapidjson::Document::AllocatorType;

rapidjson::Value text(const std::string& s, Allocator& a) {
  return rapidjson::Value(s.data(), static_cast<rapidjson::SizeType>(s.size()), a);
}

rapidjson::Value text(const Cell* c, Allocator& a) {
  return c ? text(c->value(), a) : rapidjson::Value("", 0, a);
}

rapidjson::Value categoryTexts(const Descendants* d, Allocator& a) {
  rapidjson::Value list(rapidjson::kArrayType);
  if (d) {
    for (const auto& c : d->categories()) list.PushBack(text(c.get(), a), a);
  }
  return list;
}

}  // namespace

// Each call appends a snapshot of the table as it is now; the objects it refers to may be deleted
// right afterwards.
void Table::addTableToProcedureJSON() {
  if (!generator_) return;
  rapidjson::Document& tables = generator_->impl().tables;
  Allocator& a = tables.GetAllocator();

  const Descendants* rows = dimension_ ? &dimension_->rows() : nullptr;
  const Descendants* columns = dimension_ ? &dimension_->columns() : nullptr;

  rapidjson::Value t(rapidjson::kObjectType);
  t.AddMember(rapidjson::StringRef(keys::kTitle), text(title_, a), a);
  t.AddMember(rapidjson::StringRef(keys::kHideTitle), hideTitle_, a);
  t.AddMember(rapidjson::StringRef(keys::kMinWidth), minWidth_, a);
  t.AddMember(rapidjson::StringRef(keys::kMaxWidth), maxWidth_, a);

  rapidjson::Value format(rapidjson::kObjectType);
  format.AddMember(rapidjson::StringRef(keys::kFormatType), static_cast<int>(format_), a);
  format.AddMember(rapidjson::StringRef(keys::kFormatWidth), formatWidth_, a);
  format.AddMember(rapidjson::StringRef(keys::kFormatDecimals), formatDecimals_, a);
  t.AddMember(rapidjson::StringRef(keys::kDefaultFormat), format, a);

  rapidjson::Value rowDimension(rapidjson::kObjectType);
  rowDimension.AddMember(rapidjson::StringRef(keys::kLabel), text(rows ? rows->label() : "", a), a);
  rowDimension.AddMember(rapidjson::StringRef(keys::kShowLabel), rows ? rows->showLabel() : true, a);
  t.AddMember(rapidjson::StringRef(keys::kRowDimension), rowDimension, a);

  t.AddMember(rapidjson::StringRef(keys::kColumnLabels), categoryTexts(columns, a), a);
  t.AddMember(rapidjson::StringRef(keys::kRowLabels), categoryTexts(rows, a), a);

  rapidjson::Value body(rapidjson::kArrayType);
  if (cells_) {
    for (const auto& row : cells_->rows()) {
      rapidjson::Value r(rapidjson::kArrayType);
      for (const auto& c : row) r.PushBack(text(c.get(), a), a);
      body.PushBack(r, a);
    }
  }
  t.AddMember(rapidjson::StringRef(keys::kCells), body, a);

  tables.PushBack(t, a);
}
