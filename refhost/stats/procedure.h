// What every procedure shares: the variable lists of its command resolved against the dataset,
// the cases it may use, and the cells and tables it shows.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/parser.h"
#include "zorvhost/stats.h"

namespace zorvhost::stats {

class Procedure {
 public:
  Procedure(std::string name, const CommandSpec& spec, const DatasetData& data, std::vector<Item>& items)
      : name_(std::move(name)), spec_(spec), data_(data), items_(items) {}

  // The variables named by subcommand `sub` (its value: a name list with ALL and `a TO b`), in
  // the order named, each once. False with `error` for a name the dataset does not hold.
  bool variables(const char* sub, std::vector<std::size_t>& out, std::string& error) const;
  // The same for a list of names already read.
  bool resolve(const std::vector<std::string>& names, std::vector<std::size_t>& out, std::string& error) const;
  // Leaves out the string variables, with a note naming them; the numeric ones stay in order.
  std::vector<std::size_t> numericOnly(const std::vector<std::size_t>& vars);
  // True when the subcommand gave the keyword (a switch) or, for `sub` absent, when `whenAbsent`.
  bool keyword(const char* sub, const char* word) const;
  bool has(const char* sub) const { return spec_.getSubComObj(sub) != nullptr; }
  // Whether /STATISTICS asks for `word`: named, ALL, or one of the defaults (`byDefault`) when the
  // subcommand is absent or names DEFAULT; NONE asks for nothing.
  bool statistic(const char* word, bool byDefault) const;
  // The numeric variables of /VARIABLES (string ones left out with a note), at least two.
  bool numericPairs(std::vector<std::size_t>& vars, std::string& error);

  const Variable& variable(std::size_t index) const { return data_.variables[index]; }
  std::size_t cases() const { return data_.cases; }
  // The valid (non-missing) values of `var`, over the cases `use` allows (all when empty).
  std::vector<double> valid(std::size_t var, const std::vector<bool>& use = {}) const;
  // Cases valid on every variable of `vars`.
  std::vector<bool> listwise(const std::vector<std::size_t>& vars) const;
  bool missing(std::size_t var, std::size_t row) const;

  void table(OutputTable t);
  void chart(const std::string& title, const std::string& svg);
  void note(const std::string& text);
  OutputTable newTable(const std::string& title, std::vector<std::string> columns) const;

  const std::string& name() const { return name_; }
  const CommandSpec& spec() const { return spec_; }

 private:
  std::string name_;
  const CommandSpec& spec_;
  const DatasetData& data_;
  std::vector<Item>& items_;
};

// Cells: "." for a value that cannot be computed; fixed decimals otherwise.
std::string cell(double value, int decimals);
std::string count(std::size_t n);
// A significance: three decimals.
std::string sig(double p);

// The procedures, each in a file of its own.
bool runDescriptives(Procedure& p, std::string& error);
bool runFrequencies(Procedure& p, std::string& error);
bool runCorrelations(Procedure& p, std::string& error);
bool runNonparCorr(Procedure& p, std::string& error);
bool runRegression(Procedure& p, std::string& error);

}  // namespace zorvhost::stats
