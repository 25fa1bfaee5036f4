// Host output library: pivot tables in the host's output.
//
// A procedure builds its tables on a StatJSONGenerator, each Table from a Dimension (row and column
// categories) and its Cells, adds them to the generator's procedure JSON with
// addTableToProcedureJSON(), and finally hands that JSON to the StatJSONConverter, which renders
// it into the host's output (in the reference host: to the attached client).
//
// Ownership: Descendants own the Cells added to them; Cells owns the Cell objects handed to
// addCells; a Dimension owns its two Descendants. Table::set_dimensions and Table::set_cells take
// no ownership: the caller deletes the Table, the Dimension and the Cells after
// addTableToProcedureJSON(). Threads: host command thread only.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/host_api.h"

class BpProcedure;
class ProcedureDataSource;

namespace ZORV_Format {
enum FormatType : int {
  FormatDefault = 0,
  FormatNumeric = 5,  // plain number, `width` characters, `decimals` decimals
};
}  // namespace ZORV_Format

class ZORV_HOST_API ACAVarValidSpecs {
 public:
  ACAVarValidSpecs(bool listwise, bool includeUserMissing, bool includeSystemMissing);
  ~ACAVarValidSpecs();
  ACAVarValidSpecs(const ACAVarValidSpecs&) = delete;
  ACAVarValidSpecs& operator=(const ACAVarValidSpecs&) = delete;
  bool listwise() const { return listwise_; }
  bool includeUserMissing() const { return includeUserMissing_; }
  bool includeSystemMissing() const { return includeSystemMissing_; }

 private:
  bool listwise_, includeUserMissing_, includeSystemMissing_;
};

class ZORV_HOST_API OPSCommonOutput {
 public:
  OPSCommonOutput(ACAVarValidSpecs* specs, ProcedureDataSource* source, BpProcedure* procedure,
                  void* inputAdapter);
  ~OPSCommonOutput();
  OPSCommonOutput(const OPSCommonOutput&) = delete;
  OPSCommonOutput& operator=(const OPSCommonOutput&) = delete;
  BpProcedure* procedure() const { return procedure_; }

 private:
  BpProcedure* procedure_;
};

class ZORV_HOST_API StatJSONConverter {
 public:
  explicit StatJSONConverter(BpProcedure* procedure);
  ~StatJSONConverter();
  StatJSONConverter(const StatJSONConverter&) = delete;
  StatJSONConverter& operator=(const StatJSONConverter&) = delete;

  // Renders a procedure JSON (as getProcedureStatJSON() makes it) into the host's output.
  void generateOutput(const std::string& procedureJson);
  BpProcedure* procedure() const { return procedure_; }

 private:
  BpProcedure* procedure_;
};

class ZORV_HOST_API StatJSONGenerator {
 public:
  // `procedureName` titles the output block; `subtitle` may be empty; `context` is the procedure's
  // own object the output describes (not interpreted by the host).
  StatJSONGenerator(const std::string& procedureName, const std::string& subtitle,
                    StatJSONConverter& converter, const void* context);
  ~StatJSONGenerator();
  StatJSONGenerator(const StatJSONGenerator&) = delete;
  StatJSONGenerator& operator=(const StatJSONGenerator&) = delete;

  // The converter given at construction (null if none).
  StatJSONConverter* getConverter() const;
  // The procedure's output so far: every table added with addTableToProcedureJSON().
  std::string getProcedureStatJSON() const;

  struct Impl;
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

class Table;

class ZORV_HOST_API Cell {
 public:
  // `cellType` 1: a text cell.
  Cell(Table* table, int cellType);
  ~Cell();
  Cell(const Cell&) = delete;
  Cell& operator=(const Cell&) = delete;
  void setValue(const std::string& value);
  const std::string& value() const { return value_; }
  int cellType() const { return cellType_; }

 private:
  int cellType_;
  std::string value_;
};

// The categories along one side of a table (its row labels or its column labels).
class ZORV_HOST_API Descendants {
 public:
  explicit Descendants(Table* table);
  ~Descendants();
  Descendants(const Descendants&) = delete;
  Descendants& operator=(const Descendants&) = delete;

  void setLabel(const std::string& label);
  void setShowLabel(bool show);
  // Takes ownership of `category`.
  void addDescendant(Cell* category);

  const std::string& label() const { return label_; }
  bool showLabel() const { return showLabel_; }
  const std::vector<std::unique_ptr<Cell>>& categories() const { return categories_; }

 private:
  std::string label_;
  bool showLabel_ = true;
  std::vector<std::unique_ptr<Cell>> categories_;
};

// The table's body: one row of cells per row category.
class ZORV_HOST_API Cells {
 public:
  explicit Cells(Table* table);
  ~Cells();
  Cells(const Cells&) = delete;
  Cells& operator=(const Cells&) = delete;

  // Appends one row; takes ownership of the cells.
  void addCells(const std::vector<Cell*>& row);
  const std::vector<std::vector<std::unique_ptr<Cell>>>& rows() const { return rows_; }

 private:
  std::vector<std::vector<std::unique_ptr<Cell>>> rows_;
};

class ZORV_HOST_API Dimension {
 public:
  // Takes ownership of both category lists.
  Dimension(Table* table, Descendants* rows, Descendants* columns);
  ~Dimension();
  Dimension(const Dimension&) = delete;
  Dimension& operator=(const Dimension&) = delete;

  const Descendants& rows() const { return *rows_; }
  const Descendants& columns() const { return *columns_; }

 private:
  std::unique_ptr<Descendants> rows_;
  std::unique_ptr<Descendants> columns_;
};

class ZORV_HOST_API Table {
 public:
  Table(StatJSONGenerator* generator, const std::string& title);
  ~Table();
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  void set_table_title(const std::string& title);
  void hide_title(bool hide);
  void set_min_data_column_width(int width);
  void set_max_data_column_width(int width);
  void set_default_cell_format(ZORV_Format::FormatType type, int width, int decimals);
  void set_dimensions(Dimension* dimension);
  void set_cells(Cells* cells);
  // Serialises the table into its generator's procedure JSON.
  void addTableToProcedureJSON();

 private:
  StatJSONGenerator* generator_;
  std::string title_;
  bool hideTitle_ = false;
  int minWidth_ = 0;
  int maxWidth_ = 0;
  ZORV_Format::FormatType format_ = ZORV_Format::FormatDefault;
  int formatWidth_ = 0;
  int formatDecimals_ = 0;
  Dimension* dimension_ = nullptr;
  Cells* cells_ = nullptr;
};
