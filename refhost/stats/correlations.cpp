// CORRELATIONS (Pearson) and NONPAR CORR (Spearman, Kendall's tau-b): a square matrix per
// coefficient, each cell with its coefficient, significance and N, under pairwise or listwise
// deletion.
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "stats/numeric.h"
#include "stats/procedure.h"

namespace zorvhost::stats {

namespace {

struct Pair {
  std::vector<double> x, y;
};

struct Options {
  bool oneTail = false;
  bool flag = true;
  bool lower = false;
  bool listwise = false;
};

Options readOptions(const Procedure& p) {
  Options o;
  // Both tails asked for: two-tailed, the safer reading.
  o.oneTail = p.keyword("PRINT", "ONETAIL") && !p.keyword("PRINT", "TWOTAIL");
  o.flag = !p.keyword("PRINT", "SIG");
  o.lower = p.keyword("PRINT", "LOWER") && !p.keyword("PRINT", "FULL");
  o.listwise = p.keyword("MISSING", "LISTWISE");
  return o;
}

Pair pairOf(const Procedure& p, std::size_t a, std::size_t b, const std::vector<bool>& use) {
  Pair pair;
  const Variable& x = p.variable(a);
  const Variable& y = p.variable(b);
  for (std::size_t row = 0; row < p.cases(); ++row) {
    if (!use.empty() && !use[row]) continue;
    if (std::isnan(x.numbers[row]) || std::isnan(y.numbers[row])) continue;
    pair.x.push_back(x.numbers[row]);
    pair.y.push_back(y.numbers[row]);
  }
  return pair;
}

std::string flagged(double r, double p, const Options& o) {
  std::string text = cell(r, 3);
  if (o.flag && std::isfinite(p)) {
    if (p < 0.01) text += "**";
    else if (p < 0.05) text += "*";
  }
  return text;
}

// One matrix: for every variable a block of rows (the coefficient, its significance, extra
// statistics, N), a column per variable.
void matrix(Procedure& p, const std::string& title, const std::string& coefficientLabel,
            const std::vector<std::size_t>& vars, const Options& o,
            const std::function<Coefficient(const Pair&)>& coefficient, bool crossProducts,
            bool& constant, bool& flaggedAny) {
  std::vector<std::string> columns;
  for (std::size_t v : vars) columns.push_back(p.variable(v).name);
  OutputTable t = p.newTable(title, columns);
  const std::vector<bool> use = o.listwise ? p.listwise(vars) : std::vector<bool>();
  const std::string tails = o.oneTail ? "Sig. (1-tailed)" : "Sig. (2-tailed)";
  for (std::size_t i = 0; i < vars.size(); ++i) {
    const std::string& name = p.variable(vars[i]).name;
    std::vector<std::string> rCells, pCells, sscpCells, covCells, nCells;
    for (std::size_t j = 0; j < vars.size(); ++j) {
      const bool shown = !o.lower || j <= i;
      const Pair pair = pairOf(p, vars[i], vars[j], use);
      Coefficient c = coefficient(pair);
      if (i == j && std::isfinite(c.r)) c.r = 1;
      const double pValue = i == j || !std::isfinite(c.p) ? std::nan("") : (o.oneTail ? c.p / 2 : c.p);
      if (!std::isfinite(c.r) && c.n >= 2) constant = true;
      if (o.flag && std::isfinite(pValue) && pValue < 0.05) flaggedAny = true;
      rCells.push_back(shown ? flagged(c.r, pValue, o) : "");
      pCells.push_back(shown && i != j ? sig(pValue) : "");
      nCells.push_back(shown ? count(c.n) : "");
      if (crossProducts) {
        double sscp = std::nan("");
        if (!pair.x.empty()) {
          double mx = 0, my = 0;
          for (std::size_t k = 0; k < pair.x.size(); ++k) {
            mx += pair.x[k] / static_cast<double>(pair.x.size());
            my += pair.y[k] / static_cast<double>(pair.y.size());
          }
          sscp = 0;
          for (std::size_t k = 0; k < pair.x.size(); ++k) sscp += (pair.x[k] - mx) * (pair.y[k] - my);
        }
        sscpCells.push_back(shown ? cell(sscp, 3) : "");
        covCells.push_back(shown ? cell(pair.x.size() > 1 ? sscp / static_cast<double>(pair.x.size() - 1)
                                                          : std::nan(""),
                                        3)
                                 : "");
      }
    }
    t.rowLabels.push_back(name + ": " + coefficientLabel);
    t.cells.push_back(rCells);
    t.rowLabels.push_back(name + ": " + tails);
    t.cells.push_back(pCells);
    if (crossProducts) {
      t.rowLabels.push_back(name + ": Sum of Squares and Cross-products");
      t.cells.push_back(sscpCells);
      t.rowLabels.push_back(name + ": Covariance");
      t.cells.push_back(covCells);
    }
    t.rowLabels.push_back(name + ": N");
    t.cells.push_back(nCells);
  }
  p.table(t);
}

void closingNotes(Procedure& p, const Options& o, bool constant, bool flaggedAny) {
  if (flaggedAny) {
    const std::string tail = o.oneTail ? "1-tailed" : "2-tailed";
    p.note("**. Correlation is significant at the 0.01 level (" + tail + "). *. Correlation is significant at "
           "the 0.05 level (" + tail + ").");
  }
  if (constant) {
    p.note(p.name() + ": \".\" marks a coefficient that cannot be computed because at least one of the "
                      "variables is constant (or has fewer than 2 valid pairs).");
  }
}

}  // namespace

bool runCorrelations(Procedure& p, std::string& error) {
  std::vector<std::size_t> vars;
  if (!p.numericPairs(vars, error)) return false;
  const Options o = readOptions(p);
  bool constant = false;
  bool flaggedAny = false;
  const bool xprod = p.keyword("STATISTICS", "XPROD") || p.keyword("STATISTICS", "ALL");
  matrix(p, "Correlations", "Pearson Correlation", vars, o,
         [](const Pair& pair) { return pearson(pair.x, pair.y); }, xprod, constant, flaggedAny);
  closingNotes(p, o, constant, flaggedAny);
  return true;
}

bool runNonparCorr(Procedure& p, std::string& error) {
  std::vector<std::size_t> vars;
  if (!p.numericPairs(vars, error)) return false;
  const Options o = readOptions(p);
  const bool both = p.keyword("PRINT", "BOTH");
  const bool kendall = both || p.keyword("PRINT", "KENDALL");
  // Spearman unless only Kendall was asked for.
  const bool spearmanToo = both || p.keyword("PRINT", "SPEARMAN") || !kendall;
  bool constant = false;
  bool flaggedAny = false;
  if (kendall) {
    matrix(p, "Correlations: Kendall's tau_b", "Correlation Coefficient", vars, o,
           [](const Pair& pair) { return kendallTauB(pair.x, pair.y); }, false, constant, flaggedAny);
  }
  if (spearmanToo) {
    matrix(p, "Correlations: Spearman's rho", "Correlation Coefficient", vars, o,
           [](const Pair& pair) { return spearman(pair.x, pair.y); }, false, constant, flaggedAny);
  }
  closingNotes(p, o, constant, flaggedAny);
  return true;
}

}  // namespace zorvhost::stats
