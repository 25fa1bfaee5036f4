#include "datacommands.h"
#include "texts.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <vector>

#include "zorvhost/client.h"
#include "zorvhost/stats.h"

namespace zorv {

namespace {

void refuse(const std::string& command, const std::string& text) { zorvhost::reportCommandError(command, text); }

bool active(const std::string& command, zorvhost::DatasetData& data, zorvhost::DatasetInfo& info) {
  if (zorvhost::activeDataset(info) && zorvhost::activeDatasetData(data)) return true;
  refuse(command, "there is no active dataset (GET DATA or a job's import makes one)");
  return false;
}

// A number as the data hold it: no trailing zeros, no exponent below 1e15; "." when missing.
std::string numberText(double v) {
  if (std::isnan(v)) return ".";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.15g", v);
  return buffer;
}

std::string cellText(const zorvhost::Variable& v, size_t row) {
  return v.type == zorvhost::Variable::Type::String ? v.strings[row] : numberText(v.numbers[row]);
}

}  // namespace

std::string qcColumnMeaning(const std::string& column) {
  static const std::map<std::string, std::string> meanings = {
      {"Sample", "the input file's name without its FASTQ and compression extensions"},
      {"Adapter_Type", "the job's adapter setting (NONE, ILLUMINA, NEXTERA or CUSTOM)"},
      {"Total_Sequences", "number of reads"},
      {"Total_Bases", "sum of the read lengths"},
      {"Sequence_length", "shortest and longest read length (one number when all are equal)"},
      {"GC", "share of G and C among the A, C, G and T bases, in %"},
      {"total_deduplicated_percentage", "share of reads that would remain after removing duplicates, in %"},
      {"avg_sequence_length", "mean read length"},
      {"median_sequence_length", "median read length"},
      {"basic_statistics", "verdict: basic statistics (always pass once the file is read)"},
      {"per_base_sequence_quality", "verdict: quality along the read (lower quartile and median per position)"},
      {"per_sequence_quality_scores", "verdict: the most common mean quality of a read"},
      {"per_base_sequence_content", "verdict: A/T and G/C balance along the read"},
      {"per_sequence_gc_content", "verdict: GC distribution of the reads against a normal one"},
      {"per_base_n_content", "verdict: share of N calls along the read"},
      {"sequence_length_distribution", "verdict: whether read lengths vary (or a read is empty)"},
      {"sequence_duplication_levels", "verdict: share of duplicated reads"},
      {"overrepresented_sequences", "verdict: any sequence above 0.1 % (warn) or 1 % (fail) of the reads"},
      {"adapter_content", "verdict: adapter read-through along the read (5 % warn, 10 % fail)"},
      {"per_tile_sequence_quality", "verdict: quality per flow-cell tile (empty when reads name no tile)"},
      {"qc_score", "100 x the mean of the verdicts (pass 1, warn 0.5, fail 0), empty verdicts left out"},
      {"median_phred_first_10bp", "median Phred quality of the first ten bases of the reads"},
      {"median_phred_last_10bp", "median Phred quality of the last ten bases of the reads"},
      {"mean_phred_all_reads", "mean Phred quality over every base"},
      {"low_complexity_percentage", "share of reads with under 30 % base changes, in %"},
      {"unexpected_bases_percentage", "share of bases that are not A, C, G, T or N, in %"},
      {"overrepresented_seq_count", "number of overrepresented sequences"},
  };
  const auto found = meanings.find(column);
  return found == meanings.end() ? std::string() : found->second;
}

void listCases(const CommandSpec& spec, OutputSink& sink) {
  const std::string name = "LIST";
  zorvhost::DatasetData data;
  zorvhost::DatasetInfo info;
  if (!active(name, data, info)) return;
  std::vector<size_t> vars;
  std::vector<std::string> names;
  const SubComObj* list = spec.getSubComObj("VARIABLES");
  if (list != nullptr && list->getValueObj() != nullptr) list->getValueObj()->getStringList(names);
  if (names.empty()) names = {"ALL"};
  std::string error;
  if (!zorvhost::stats::resolveVariables(names, data, vars, error)) {
    refuse(name, error);
    return;
  }
  int from = 1;
  int to = static_cast<int>(data.cases);
  if (const SubComObj* cases = spec.getSubComObj("CASES")) {
    if (const ParamObj* p = cases->getParamObj("FROM")) p->getIntegerValue(from);
    if (const ParamObj* p = cases->getParamObj("TO")) p->getIntegerValue(to);
  }
  if (from < 1 || to < from) {
    refuse(name, "/CASES FROM=" + std::to_string(from) + " TO=" + std::to_string(to) +
                     " names no case; cases are counted from 1");
    return;
  }
  zorvhost::OutputTable t;
  t.procedure = "LIST";
  t.title = info.name.empty() ? tr("Cases of the active dataset") : tr("Cases of {0}", {info.name});
  t.showRowDimensionLabel = false;
  for (size_t v : vars) t.columnLabels.push_back(data.variables[v].name);
  for (size_t row = static_cast<size_t>(from - 1); row < data.cases && row < static_cast<size_t>(to); ++row) {
    t.rowLabels.push_back(std::to_string(row + 1));
    std::vector<std::string> cells;
    for (size_t v : vars) cells.push_back(cellText(data.variables[v], row));
    t.cells.push_back(cells);
  }
  sink.table(t);
}

void displayDictionary(OutputSink& sink) {
  zorvhost::DatasetData data;
  zorvhost::DatasetInfo info;
  if (!active("DISPLAY DICTIONARY", data, info)) return;
  zorvhost::OutputTable t;
  t.procedure = "DISPLAY DICTIONARY";
  t.title = info.name.empty() ? tr("Variables of the active dataset") : tr("Variables of {0}", {info.name});
  t.showRowDimensionLabel = false;
  t.columnLabels = {tr("Position"), tr("Type"), tr("Width"), tr("Meaning")};
  for (size_t i = 0; i < data.variables.size(); ++i) {
    const zorvhost::Variable& v = data.variables[i];
    size_t width = 8;
    if (v.type == zorvhost::Variable::Type::String) {
      width = 1;
      for (const auto& s : v.strings) width = std::max(width, s.size());
    }
    t.rowLabels.push_back(v.name);
    t.cells.push_back({std::to_string(i + 1), v.type == zorvhost::Variable::Type::String ? "String" : "Numeric",
                       std::to_string(width), qcColumnMeaning(v.name)});
  }
  sink.table(t);
}

void saveTranslate(const CommandSpec& spec, OutputSink& sink) {
  const std::string name = "SAVE TRANSLATE";
  zorvhost::DatasetData data;
  zorvhost::DatasetInfo info;
  if (!active(name, data, info)) return;
  std::string path;
  if (const SubComObj* out = spec.getSubComObj("OUTFILE"); out != nullptr && out->getValueObj() != nullptr) {
    out->getValueObj()->getLiteral(path);
  }
  if (path.empty()) {
    refuse(name, "/OUTFILE names no file");
    return;
  }
  std::string type = "CSV";
  if (const SubComObj* t = spec.getSubComObj("TYPE"); t != nullptr && t->getValueObj() != nullptr) {
    t->getValueObj()->getUpStringGeneric(type);
  }
  const char delimiter = type == "TAB" ? '\t' : ',';
  // UTF-8 paths through std::filesystem, so that any letters in a name work on Windows too.
  const std::filesystem::path target = std::filesystem::u8path(path);
  std::error_code ec;
  if (spec.getSubComObj("REPLACE") == nullptr && std::filesystem::exists(target, ec)) {
    refuse(name, path + " exists already; add /REPLACE to overwrite it");
    return;
  }
  // Written beside the target and renamed into place: a failed write never leaves half a file.
  const std::filesystem::path part = std::filesystem::u8path(path + ".part");
  {
    std::ofstream file(part, std::ios::binary | std::ios::trunc);
    if (!file) {
      refuse(name, "cannot write " + path + " (its folder is missing or not writable)");
      return;
    }
    auto field = [&](const std::string& text) {
      if (text.find_first_of(std::string(1, delimiter) + "\"\n\r") == std::string::npos) {
        file << text;
        return;
      }
      file << '"';
      for (char c : text) file << (c == '"' ? "\"\"" : std::string(1, c));
      file << '"';
    };
    if (spec.getSubComObj("FIELDNAMES") != nullptr) {
      for (size_t i = 0; i < data.variables.size(); ++i) {
        if (i > 0) file << delimiter;
        field(data.variables[i].name);
      }
      file << '\n';
    }
    for (size_t row = 0; row < data.cases; ++row) {
      for (size_t i = 0; i < data.variables.size(); ++i) {
        if (i > 0) file << delimiter;
        const zorvhost::Variable& v = data.variables[i];
        // A missing number is an empty field, as the import reads it back.
        if (v.type == zorvhost::Variable::Type::String || !std::isnan(v.numbers[row])) field(cellText(v, row));
      }
      file << '\n';
    }
    file.flush();
    if (!file) {
      file.close();
      std::filesystem::remove(part, ec);
      refuse(name, "cannot write " + path + " (the disk may be full)");
      return;
    }
  }
  std::filesystem::rename(part, target, ec);  // replaces the target where the system can
  if (ec) {
    std::filesystem::remove(target, ec);
    std::filesystem::rename(part, target, ec);
  }
  if (ec) {
    std::filesystem::remove(part, ec);
    refuse(name, "cannot replace " + path + " (is it open in another program?)");
    return;
  }
  sink.line(tr("SAVE TRANSLATE: {0} cases and {1} variables written to {2}.",
               {std::to_string(data.cases), std::to_string(data.variables.size()), path}));
}

}  // namespace zorv
