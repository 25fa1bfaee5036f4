#include "qcview.h"
#include "texts.h"

#include <cmath>
#include <cstdio>

#include "zorvhost/charts.h"

namespace zorv {

namespace {

// The eleven QC modules in the result's order, with the short labels a QC user reads them by.
const std::pair<const char*, const char*> kVerdicts[] = {
    {"basic_statistics", "basic"},
    {"per_base_sequence_quality", "base quality"},
    {"per_sequence_quality_scores", "read quality"},
    {"per_base_sequence_content", "base content"},
    {"per_sequence_gc_content", "GC content"},
    {"per_base_n_content", "N content"},
    {"sequence_length_distribution", "lengths"},
    {"sequence_duplication_levels", "duplication"},
    {"overrepresented_sequences", "overrepresented"},
    {"adapter_content", "adapters"},
    {"per_tile_sequence_quality", "tiles"},
};

const zorvhost::Variable* find(const zorvhost::DatasetData& data, const std::string& name) {
  for (const auto& v : data.variables) {
    if (v.name == name) return &v;
  }
  return nullptr;
}

std::string textOf(const zorvhost::Variable* v, size_t row, int decimals) {
  if (v == nullptr) return "";
  if (v->type == zorvhost::Variable::Type::String) return v->strings[row];
  if (std::isnan(v->numbers[row])) return "";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, v->numbers[row]);
  return buffer;
}

std::vector<double> numbersOf(const zorvhost::DatasetData& data, const char* name) {
  const zorvhost::Variable* v = find(data, name);
  if (v == nullptr || v->type != zorvhost::Variable::Type::Numeric) return std::vector<double>(data.cases, std::nan(""));
  return v->numbers;
}

}  // namespace

bool isQcDataset(const zorvhost::DatasetData& data) {
  if (find(data, "Sample") == nullptr || find(data, "qc_score") == nullptr) return false;
  for (const auto& [column, label] : kVerdicts) {
    if (find(data, column) == nullptr) return false;
  }
  return true;
}

zorvhost::OutputTable qcSampleTable(const std::string& dataset, const zorvhost::DatasetData& data) {
  zorvhost::OutputTable t;
  t.procedure = tr("QC results");
  t.title = dataset.empty() ? tr("QC results by sample") : tr("QC results by sample ({0})", {dataset});
  t.showRowDimensionLabel = false;
  t.columnLabels = {tr("Reads"), tr("GC %"), tr("Mean quality"), "qc_score"};
  for (const auto& [column, label] : kVerdicts) t.columnLabels.push_back(tr(label));
  const zorvhost::Variable* sample = find(data, "Sample");
  for (size_t row = 0; row < data.cases; ++row) {
    t.rowLabels.push_back(textOf(sample, row, 0));
    std::vector<std::string> cells = {textOf(find(data, "Total_Sequences"), row, 0), textOf(find(data, "GC"), row, 2),
                                      textOf(find(data, "mean_phred_all_reads"), row, 2),
                                      textOf(find(data, "qc_score"), row, 2)};
    for (const auto& [column, label] : kVerdicts) cells.push_back(textOf(find(data, column), row, 0));
    t.cells.push_back(cells);
  }
  return t;
}

std::vector<std::pair<std::string, std::string>> qcOverviewCharts(const zorvhost::DatasetData& data) {
  std::vector<std::string> samples;
  const zorvhost::Variable* sample = find(data, "Sample");
  for (size_t row = 0; row < data.cases; ++row) samples.push_back(textOf(sample, row, 0));
  std::vector<std::pair<std::string, std::string>> charts;
  // qc_score bars take the colour of the sample's worst verdict.
  std::vector<std::string> colours(data.cases, "#7fbf7f");
  for (size_t row = 0; row < data.cases; ++row) {
    for (const auto& [column, label] : kVerdicts) {
      const std::string verdict = textOf(find(data, column), row, 0);
      if (verdict == "fail") colours[row] = "#e07a70";
      if (verdict == "warn" && colours[row] != "#e07a70") colours[row] = "#f0c85a";
    }
  }
  const struct {
    const char* column;
    const char* title;
    const char* axis;
  } perSample[] = {{"qc_score", "qc_score per sample (colour: the worst verdict)", "qc_score"},
                   {"GC", "GC content per sample", "GC %"},
                   {"mean_phred_all_reads", "Mean base quality per sample", "Phred quality"}};
  for (const auto& c : perSample) {
    const bool coloured = std::string(c.column) == "qc_score";
    const std::string title = tr(c.title);
    charts.emplace_back(title, zorvhost::charts::bars(title, tr(c.axis), samples, numbersOf(data, c.column),
                                                      coloured ? colours : std::vector<std::string>()));
  }
  std::vector<std::string> modules;
  std::vector<double> failing;
  std::vector<std::string> moduleColours;
  for (const auto& [column, label] : kVerdicts) {
    double fails = 0;
    double warns = 0;
    for (size_t row = 0; row < data.cases; ++row) {
      const std::string verdict = textOf(find(data, column), row, 0);
      fails += verdict == "fail" ? 1 : 0;
      warns += verdict == "warn" ? 1 : 0;
    }
    modules.push_back(tr(label));
    failing.push_back(fails + warns);
    moduleColours.push_back(fails > 0 ? "#e07a70" : (warns > 0 ? "#f0c85a" : "#7fbf7f"));
  }
  const std::string title = tr("Samples that warned or failed, per QC module (red: some failed)");
  charts.emplace_back(title, zorvhost::charts::bars(title, tr("samples"), modules, failing, moduleColours));
  return charts;
}

std::string colourVerdicts(const std::string& rendered) {
  std::string out;
  out.reserve(rendered.size() + 64);
  // A verdict cell is the word alone between two rules ("│ pass  │"), so labels such as
  // "Valid pass" stay as they are.
  size_t i = 0;
  while (i < rendered.size()) {
    bool coloured = false;
    for (const auto& [word, code] : {std::pair<const char*, const char*>{"pass", "32"}, {"warn", "33"}, {"fail", "31"}}) {
      const std::string w = word;
      if (rendered.compare(i, w.size(), w) != 0 || i < 2) continue;
      // Before: the rule and one blank; after: blanks up to the next rule.
      const bool ruleBefore = rendered[i - 1] == ' ' && ((i >= 4 && rendered.compare(i - 4, 3, "\xE2\x94\x82") == 0) || rendered[i - 2] == '|');
      size_t j = i + w.size();
      while (j < rendered.size() && rendered[j] == ' ') ++j;
      const bool ruleAfter = j > i + w.size() && (rendered.compare(j, 3, "\xE2\x94\x82") == 0 || rendered[j] == '|');
      if (ruleBefore && ruleAfter) {
        out += std::string("\x1b[") + code + "m" + w + "\x1b[0m";
        i += w.size();
        coloured = true;
        break;
      }
    }
    if (!coloured) out += rendered[i++];
  }
  return out;
}

}  // namespace zorv
