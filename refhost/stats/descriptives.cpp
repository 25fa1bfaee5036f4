// DESCRIPTIVES: one row per numeric variable and "Valid N (listwise)".
#include <cmath>
#include <string>
#include <vector>

#include "stats/numeric.h"
#include "stats/procedure.h"

namespace zorvhost::stats {

bool runDescriptives(Procedure& p, std::string& error) {
  std::vector<std::size_t> named;
  if (!p.variables("VARIABLES", named, error)) return false;
  const std::vector<std::size_t> vars = p.numericOnly(named);
  if (vars.empty()) {
    error = "no numeric variable to describe";
    return false;
  }
  // No /STATISTICS: mean, standard deviation, minimum and maximum, as DEFAULT asks.
  auto wants = [&p](const char* word, bool byDefault) { return p.statistic(word, byDefault); };
  const bool range = wants("RANGE", false), minimum = wants("MIN", true), maximum = wants("MAX", true);
  const bool sum = wants("SUM", false), mean = wants("MEAN", true), semean = wants("SEMEAN", false);
  const bool sd = wants("STDDEV", true), variance = wants("VARIANCE", false);
  const bool skewness = wants("SKEWNESS", false), kurtosis = wants("KURTOSIS", false);

  std::vector<std::string> columns = {"N"};
  if (range) columns.push_back("Range");
  if (minimum) columns.push_back("Minimum");
  if (maximum) columns.push_back("Maximum");
  if (sum) columns.push_back("Sum");
  if (mean) columns.push_back("Mean");
  if (semean) columns.push_back("Std. Error of Mean");
  if (sd) columns.push_back("Std. Deviation");
  if (variance) columns.push_back("Variance");
  if (skewness) columns.insert(columns.end(), {"Skewness", "Skewness Std. Error"});
  if (kurtosis) columns.insert(columns.end(), {"Kurtosis", "Kurtosis Std. Error"});
  OutputTable t = p.newTable("Descriptive Statistics", columns);

  const std::vector<bool> complete = p.listwise(vars);
  const bool listwiseOnly = p.keyword("MISSING", "LISTWISE");
  bool undefined = false;
  for (std::size_t v : vars) {
    const Moments m = moments(p.valid(v, listwiseOnly ? complete : std::vector<bool>()));
    std::vector<std::string> row = {count(m.n)};
    auto add = [&](bool on, double value) {
      if (!on) return;
      row.push_back(cell(value, 4));
      if (m.n > 0 && !std::isfinite(value)) undefined = true;
    };
    add(range, m.range);
    add(minimum, m.min);
    add(maximum, m.max);
    add(sum, m.sum);
    add(mean, m.mean);
    add(semean, m.semean);
    add(sd, m.sd);
    add(variance, m.variance);
    add(skewness, m.skewness);
    add(skewness, m.seSkewness);
    add(kurtosis, m.kurtosis);
    add(kurtosis, m.seKurtosis);
    t.rowLabels.push_back(p.variable(v).name);
    t.cells.push_back(row);
  }
  std::size_t listwiseN = 0;
  for (bool c : complete) listwiseN += c ? 1 : 0;
  t.rowLabels.push_back("Valid N (listwise)");
  t.cells.push_back({count(listwiseN)});
  p.table(t);
  if (undefined) {
    p.note("DESCRIPTIVES: \".\" marks a statistic that cannot be computed: the standard deviation needs 2 "
           "valid cases, skewness 3 and kurtosis 4, and a constant variable has neither skewness nor kurtosis.");
  }
  return true;
}

}  // namespace zorvhost::stats
