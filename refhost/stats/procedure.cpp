#include "stats/procedure.h"

#include <cmath>
#include <cstdio>
#include <utility>

#include "parser/text.h"

using zorvhost::parser::equalsNoCase;

namespace zorvhost::stats {

namespace {

bool findVariable(const DatasetData& data, const std::string& name, std::size_t& index) {
  for (std::size_t i = 0; i < data.variables.size(); ++i) {
    if (equalsNoCase(data.variables[i].name, name)) {
      index = i;
      return true;
    }
  }
  return false;
}

}  // namespace

bool Procedure::variables(const char* sub, std::vector<std::size_t>& out, std::string& error) const {
  out.clear();
  const SubComObj* s = spec_.getSubComObj(sub);
  std::vector<std::string> names;
  if (s == nullptr || s->getValueObj() == nullptr || !s->getValueObj()->getStringList(names)) return true;
  return resolve(names, out, error);
}

bool Procedure::resolve(const std::vector<std::string>& names, std::vector<std::size_t>& out,
                        std::string& error) const {
  return resolveVariables(names, data_, out, error);
}

bool resolveVariables(const std::vector<std::string>& names, const DatasetData& data_, std::vector<size_t>& out,
                      std::string& error) {
  out.clear();
  std::vector<bool> taken(data_.variables.size(), false);
  auto add = [&](std::size_t i) {
    if (!taken[i]) out.push_back(i);
    taken[i] = true;
  };
  for (std::size_t k = 0; k < names.size(); ++k) {
    if (equalsNoCase(names[k], "ALL")) {
      for (std::size_t i = 0; i < data_.variables.size(); ++i) add(i);
      continue;
    }
    std::size_t first = 0;
    if (!findVariable(data_, names[k], first)) {
      error = "variable " + names[k] + " is not in the active dataset";
      return false;
    }
    if (k + 2 < names.size() && equalsNoCase(names[k + 1], "TO")) {
      std::size_t last = 0;
      if (!findVariable(data_, names[k + 2], last)) {
        error = "variable " + names[k + 2] + " is not in the active dataset";
        return false;
      }
      if (last < first) {
        error = names[k] + " TO " + names[k + 2] + ": " + names[k + 2] + " comes before " + names[k] +
                " in the active dataset";
        return false;
      }
      for (std::size_t i = first; i <= last; ++i) add(i);
      k += 2;
      continue;
    }
    add(first);
  }
  return true;
}

std::vector<std::size_t> Procedure::numericOnly(const std::vector<std::size_t>& vars) {
  std::vector<std::size_t> numeric;
  for (std::size_t v : vars) {
    if (variable(v).type == Variable::Type::Numeric) {
      numeric.push_back(v);
    } else {
      note(name_ + ": " + variable(v).name + " is a string variable and is left out: " + name_ +
           " needs numbers.");
    }
  }
  return numeric;
}

bool Procedure::keyword(const char* sub, const char* word) const {
  const SubComObj* s = spec_.getSubComObj(sub);
  return s != nullptr && s->getParamObj(word) != nullptr;
}

bool Procedure::statistic(const char* word, bool byDefault) const {
  if (keyword("STATISTICS", "NONE")) return false;
  if (keyword("STATISTICS", "ALL") || keyword("STATISTICS", word)) return true;
  return byDefault && (!has("STATISTICS") || keyword("STATISTICS", "DEFAULT"));
}

bool Procedure::numericPairs(std::vector<std::size_t>& vars, std::string& error) {
  std::vector<std::size_t> named;
  if (!variables("VARIABLES", named, error)) return false;
  vars = numericOnly(named);
  if (vars.size() >= 2) return true;
  error = name_ + " needs at least two numeric variables";
  return false;
}

bool Procedure::missing(std::size_t var, std::size_t row) const {
  const Variable& v = variable(var);
  return v.type == Variable::Type::Numeric ? std::isnan(v.numbers[row]) : v.strings[row].empty();
}

std::vector<double> Procedure::valid(std::size_t var, const std::vector<bool>& use) const {
  std::vector<double> values;
  const Variable& v = variable(var);
  for (std::size_t row = 0; row < data_.cases; ++row) {
    if ((use.empty() || use[row]) && !std::isnan(v.numbers[row])) values.push_back(v.numbers[row]);
  }
  return values;
}

std::vector<bool> Procedure::listwise(const std::vector<std::size_t>& vars) const {
  std::vector<bool> use(data_.cases, true);
  for (std::size_t row = 0; row < data_.cases; ++row) {
    for (std::size_t v : vars) {
      if (missing(v, row)) use[row] = false;
    }
  }
  return use;
}

void Procedure::table(OutputTable t) {
  Item item;
  item.kind = Item::Kind::Table;
  item.table = std::move(t);
  items_.push_back(std::move(item));
}

void Procedure::chart(const std::string& title, const std::string& svg) {
  Item item;
  item.kind = Item::Kind::Chart;
  item.title = title;
  item.text = svg;
  items_.push_back(std::move(item));
}

void Procedure::note(const std::string& text) {
  Item item;
  item.kind = Item::Kind::Note;
  item.text = text;
  items_.push_back(std::move(item));
}

OutputTable Procedure::newTable(const std::string& title, std::vector<std::string> columns) const {
  OutputTable t;
  t.procedure = name_;
  t.title = title;
  t.showRowDimensionLabel = false;
  t.columnLabels = std::move(columns);
  return t;
}

std::string cell(double value, int decimals) {
  if (!std::isfinite(value)) return ".";
  char buffer[64];
  // %.*f of a value above 1e40 would not fit; such values are shown in exponent form.
  if (std::fabs(value) >= 1e15) {
    std::snprintf(buffer, sizeof buffer, "%.*e", decimals, value);
  } else {
    std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
  }
  std::string text = buffer;
  if (text == "-0" || text.find_first_not_of("-0.") == std::string::npos) {
    if (text[0] == '-') text.erase(0, 1);  // no "-0.000"
  }
  return text;
}

std::string count(std::size_t n) { return std::to_string(n); }

std::string sig(double p) { return cell(p, 3); }

bool isProcedure(const std::string& name) {
  for (const char* n : {"DESCRIPTIVES", "FREQUENCIES", "CORRELATIONS", "NONPAR CORR", "REGRESSION"}) {
    if (name == n) return true;
  }
  return false;
}

bool runProcedure(const std::string& name, const CommandSpec& spec, const DatasetData& data,
                  std::vector<Item>& items, std::string& error) {
  std::vector<Item> made;
  Procedure p(name, spec, data, made);
  bool ok = false;
  if (name == "DESCRIPTIVES") ok = runDescriptives(p, error);
  else if (name == "FREQUENCIES") ok = runFrequencies(p, error);
  else if (name == "CORRELATIONS") ok = runCorrelations(p, error);
  else if (name == "NONPAR CORR") ok = runNonparCorr(p, error);
  else if (name == "REGRESSION") ok = runRegression(p, error);
  else error = name + " is not a statistics procedure";
  if (ok) items = std::move(made);
  return ok;
}

}  // namespace zorvhost::stats
