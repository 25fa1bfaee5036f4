// FREQUENCIES: a statistics table over the variables, then a frequency table per variable (string
// variables too: pass/warn/fail counts are what a QC user asks for first), and histograms.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "stats/numeric.h"
#include "stats/procedure.h"
#include "zorvhost/charts.h"

namespace zorvhost::stats {

namespace {

std::string percentLabel(double p) {
  std::string text = cell(p, 2);
  while (text.find('.') != std::string::npos && (text.back() == '0' || text.back() == '.')) {
    const bool dot = text.back() == '.';
    text.pop_back();
    if (dot) break;
  }
  return text;
}

// The value as a row label: numbers as the data hold them (no trailing zeros).
std::string valueLabel(double v) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.10g", v);
  return buffer;
}

}  // namespace

bool runFrequencies(Procedure& p, std::string& error) {
  std::vector<std::size_t> vars;
  if (!p.variables("VARIABLES", vars, error)) return false;
  if (vars.empty()) {
    error = "no variable to count";
    return false;
  }
  auto wants = [&p](const char* word, bool byDefault) { return p.statistic(word, byDefault); };
  struct Row {
    const char* label;
    bool on;
  };
  const Row rows[] = {{"Mean", wants("MEAN", true)},
                      {"Std. Error of Mean", wants("SEMEAN", false)},
                      {"Median", wants("MEDIAN", false)},
                      {"Mode", wants("MODE", false)},
                      {"Std. Deviation", wants("STDDEV", true)},
                      {"Coefficient of Variation", wants("CV", false)},
                      {"Variance", wants("VARIANCE", false)},
                      {"Skewness", wants("SKEWNESS", false)},
                      {"Std. Error of Skewness", wants("SESKEW", false) || wants("SKEWNESS", false)},
                      {"Kurtosis", wants("KURTOSIS", false)},
                      {"Std. Error of Kurtosis", wants("SEKURT", false) || wants("KURTOSIS", false)},
                      {"Range", wants("RANGE", false)},
                      {"Minimum", wants("MINIMUM", true)},
                      {"Maximum", wants("MAXIMUM", true)},
                      {"Sum", wants("SUM", false)}};

  // Cut points: every /NTILES=k (k-1 points each), then /PERCENTILES, each once, ascending.
  std::vector<double> cuts;
  for (const SubComObj* s : p.spec().getSubComObjs("NTILES")) {
    int k = 0;
    if (s->getValueObj() != nullptr && s->getValueObj()->getIntegerValue(k) && k >= 2) {
      for (int j = 1; j < k; ++j) cuts.push_back(100.0 * j / k);
    }
  }
  if (const SubComObj* s = p.spec().getSubComObj("PERCENTILES")) {
    std::vector<double> list;
    if (s->getValueObj() != nullptr && s->getValueObj()->getNumberList(list)) {
      for (double v : list) {
        if (v < 0 || v > 100) {
          error = "/PERCENTILES=" + percentLabel(v) + " is not between 0 and 100";
          return false;
        }
        cuts.push_back(v);
      }
    }
  }
  std::sort(cuts.begin(), cuts.end());
  cuts.erase(std::unique(cuts.begin(), cuts.end(), [](double a, double b) { return std::fabs(a - b) < 1e-9; }),
             cuts.end());

  OutputTable stats = p.newTable("Statistics", {});
  stats.rowLabels = {"N Valid", "N Missing"};
  for (const Row& r : rows) {
    if (r.on) stats.rowLabels.push_back(r.label);
  }
  for (double c : cuts) stats.rowLabels.push_back("Percentile " + percentLabel(c));
  stats.cells.assign(stats.rowLabels.size(), {});
  bool multipleModes = false;
  bool undefined = false;
  for (std::size_t v : vars) {
    const Variable& var = p.variable(v);
    stats.columnLabels.push_back(var.name);
    std::size_t validN = 0;
    for (std::size_t row = 0; row < p.cases(); ++row) validN += p.missing(v, row) ? 0 : 1;
    std::size_t r = 0;
    stats.cells[r++].push_back(count(validN));
    stats.cells[r++].push_back(count(p.cases() - validN));
    if (var.type == Variable::Type::String) {
      for (; r < stats.rowLabels.size(); ++r) stats.cells[r].push_back("");
      continue;
    }
    std::vector<double> values = p.valid(v);
    std::sort(values.begin(), values.end());
    const Moments m = moments(values);
    double mode = std::nan("");
    std::size_t best = 0;
    for (std::size_t i = 0; i < values.size();) {
      std::size_t j = i;
      while (j < values.size() && values[j] == values[i]) ++j;
      if (j - i > best) {
        best = j - i;
        mode = values[i];
        multipleModes = false;
      } else if (j - i == best) {
        multipleModes = true;
      }
      i = j;
    }
    const double figures[] = {m.mean, m.semean, quantile6(values, 0.5), mode, m.sd,
                              m.mean != 0 ? m.sd / m.mean : std::nan(""), m.variance, m.skewness, m.seSkewness,
                              m.kurtosis, m.seKurtosis, m.range, m.min, m.max, m.sum};
    for (std::size_t k = 0; k < sizeof rows / sizeof rows[0]; ++k) {
      if (!rows[k].on) continue;
      stats.cells[r++].push_back(cell(figures[k], 4));
      if (!values.empty() && !std::isfinite(figures[k])) undefined = true;
    }
    for (double c : cuts) stats.cells[r++].push_back(cell(quantile6(values, c / 100), 4));
  }
  p.table(stats);
  if (multipleModes && rows[3].on) p.note("FREQUENCIES: multiple modes exist; the smallest is shown.");
  if (undefined) {
    p.note("FREQUENCIES: \".\" marks a statistic that cannot be computed (too few valid cases, no spread, or a "
           "coefficient of variation of a variable whose mean is 0).");
  }

  for (std::size_t v : vars) {
    const Variable& var = p.variable(v);
    OutputTable t = p.newTable(var.name, {"Frequency", "Percent", "Valid Percent", "Cumulative Percent"});
    std::vector<std::pair<std::string, std::size_t>> counts;
    std::size_t validN = 0;
    if (var.type == Variable::Type::String) {
      std::map<std::string, std::size_t> byValue;
      for (std::size_t row = 0; row < p.cases(); ++row) {
        if (!p.missing(v, row)) ++byValue[var.strings[row]];
      }
      for (const auto& [value, n] : byValue) counts.emplace_back(value, n);
    } else {
      std::map<double, std::size_t> byValue;
      for (double value : p.valid(v)) ++byValue[value];
      for (const auto& [value, n] : byValue) counts.emplace_back(valueLabel(value), n);
    }
    for (const auto& c : counts) validN += c.second;
    const double total = static_cast<double>(p.cases());
    double cumulative = 0;
    for (const auto& [label, n] : counts) {
      cumulative += static_cast<double>(n);
      t.rowLabels.push_back("Valid " + label);
      t.cells.push_back({count(n), cell(100.0 * static_cast<double>(n) / total, 1),
                         cell(100.0 * static_cast<double>(n) / static_cast<double>(validN), 1),
                         cell(100.0 * cumulative / static_cast<double>(validN), 1)});
    }
    if (validN > 0) {
      t.rowLabels.push_back("Valid Total");
      t.cells.push_back({count(validN), cell(100.0 * static_cast<double>(validN) / total, 1), "100.0", ""});
    }
    if (validN < p.cases()) {
      t.rowLabels.push_back("Missing System");
      t.cells.push_back({count(p.cases() - validN), cell(100.0 * static_cast<double>(p.cases() - validN) / total, 1),
                         "", ""});
    }
    t.rowLabels.push_back("Total");
    t.cells.push_back({count(p.cases()), p.cases() > 0 ? "100.0" : ".", "", ""});
    p.table(t);
  }

  if (p.has("HISTOGRAM")) {
    const bool normal = p.keyword("HISTOGRAM", "NORMAL");
    for (std::size_t v : vars) {
      if (p.variable(v).type != Variable::Type::Numeric) continue;  // its frequency table says it all
      const std::string& name = p.variable(v).name;
      p.chart("Histogram of " + name, charts::histogram("Histogram of " + name, name, p.valid(v), normal));
    }
  }
  return true;
}

}  // namespace zorvhost::stats
