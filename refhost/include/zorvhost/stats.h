// The statistics procedures of the reference host: DESCRIPTIVES, FREQUENCIES, CORRELATIONS,
// NONPAR CORR and REGRESSION, run on a dataset from a command parsed against the host's catalogue
// (zorvhost/commands.h). What a procedure shows comes back as an ordered list of items: pivot
// tables (rendered like every other output table), SVG charts for the HTML page, and notes
// (warnings such as a string variable left out, or why a cell shows ".").
//
// Threads: the host's command thread.
#pragma once

#include <string>
#include <vector>

#include "host/host_api.h"
#include "zorvhost/client.h"
#include "zorvhost/output.h"

class CommandSpec;

namespace zorvhost::stats {

struct Item {
  enum class Kind { Table, Chart, Note };
  Kind kind = Kind::Note;
  OutputTable table;  // Kind::Table
  std::string title;  // Kind::Chart: its title; the SVG in `text`
  std::string text;   // Kind::Chart: the SVG document; Kind::Note: the note
};

// True for the five procedure names (upper case, as the catalogue names them).
ZORV_HOST_API bool isProcedure(const std::string& name);

// Runs procedure `name` as `spec` asks on `data`. False, with the reason in `error` and no items,
// when nothing can run: a variable that is not in the dataset, no variable left to analyse.
ZORV_HOST_API bool runProcedure(const std::string& name, const CommandSpec& spec, const DatasetData& data,
                                std::vector<Item>& items, std::string& error);

// The variables a list names, as every procedure reads one: names in any case, `ALL`, `a TO b` in
// dataset order; each once, in the order named. False with `error` for a name `data` does not hold.
ZORV_HOST_API bool resolveVariables(const std::vector<std::string>& names, const DatasetData& data,
                                    std::vector<size_t>& out, std::string& error);

}  // namespace zorvhost::stats
