// REGRESSION: ordinary least squares with a constant, variables entered all at once (ENTER) or
// step by step (FORWARD, BACKWARD, STEPWISE) on the significance of F to enter and to remove,
// cases deleted listwise. Every step is a model of its own in the tables, as a reader of the
// steps expects.
#include <Eigen/Dense>

#include <algorithm>
#include <cctype>
#include <limits>
#include <cmath>
#include <string>
#include <vector>

#include "stats/numeric.h"
#include "stats/procedure.h"
#include "zorvhost/charts.h"

namespace zorvhost::stats {

namespace {

using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Fit {
  std::vector<std::size_t> vars;  // indices into the candidates, in entry order
  VectorXd b;                     // constant first
  MatrixXd inverse;               // (X'X)^-1
  VectorXd fitted, residuals, leverage;
  double rss = 0, tss = 0, df = 0;
  double r2() const { return tss > 0 ? 1 - rss / tss : kNaN; }
  double mse() const { return df > 0 ? rss / df : kNaN; }
};

class Design {
 public:
  Design(MatrixXd x, VectorXd y) : x_(std::move(x)), y_(std::move(y)) {}
  Eigen::Index cases() const { return y_.size(); }
  Eigen::Index candidates() const { return x_.cols(); }
  const MatrixXd& x() const { return x_; }
  const VectorXd& y() const { return y_; }

  MatrixXd withConstant(const std::vector<std::size_t>& vars) const {
    MatrixXd m(cases(), static_cast<Eigen::Index>(vars.size()) + 1);
    m.col(0).setOnes();
    for (std::size_t k = 0; k < vars.size(); ++k) m.col(static_cast<Eigen::Index>(k) + 1) = x_.col(static_cast<Eigen::Index>(vars[k]));
    return m;
  }

  Fit fit(const std::vector<std::size_t>& vars, const VectorXd& target) const {
    Fit f;
    f.vars = vars;
    const MatrixXd m = withConstant(vars);
    const Eigen::HouseholderQR<MatrixXd> qr(m);
    f.b = qr.solve(target);
    f.fitted = m * f.b;
    f.residuals = target - f.fitted;
    f.rss = f.residuals.squaredNorm();
    f.tss = (target.array() - target.mean()).matrix().squaredNorm();
    f.df = static_cast<double>(cases()) - static_cast<double>(m.cols());
    const Eigen::Index p = m.cols();
    const MatrixXd r = qr.matrixQR().topRows(p).triangularView<Eigen::Upper>();
    const MatrixXd rInverse = r.triangularView<Eigen::Upper>().solve(MatrixXd::Identity(p, p));
    f.inverse = rInverse * rInverse.transpose();
    const MatrixXd q = qr.householderQ() * MatrixXd::Identity(cases(), p);
    f.leverage = q.rowwise().squaredNorm();
    return f;
  }
  Fit fit(const std::vector<std::size_t>& vars) const { return fit(vars, y_); }

  // 1 - R² of candidate `c` on `vars`: how much of it the model does not already hold.
  double tolerance(std::size_t c, const std::vector<std::size_t>& vars) const {
    const VectorXd target = x_.col(static_cast<Eigen::Index>(c));
    const double tss = (target.array() - target.mean()).matrix().squaredNorm();
    if (!(tss > 0)) return 0;
    if (vars.empty()) return 1;
    return std::max(0.0, fit(vars, target).rss / tss);
  }

 private:
  MatrixXd x_;
  VectorXd y_;
};

double sdOf(const VectorXd& v) {
  if (v.size() < 2) return kNaN;
  return std::sqrt((v.array() - v.mean()).square().sum() / static_cast<double>(v.size() - 1));
}

std::vector<std::size_t> without(std::vector<std::size_t> vars, std::size_t c) {
  vars.erase(std::remove(vars.begin(), vars.end(), c), vars.end());
  return vars;
}

struct Step {
  std::vector<std::size_t> vars;
  std::vector<std::size_t> entered, removed;
};

struct Criteria {
  double pin = 0.05, pout = 0.10, tolerance = 0.0001;
};

// p of F to enter `c` into `vars`; NaN when it may not enter (tolerance) or cannot be tested.
double pToEnter(const Design& d, const std::vector<std::size_t>& vars, std::size_t c, const Criteria& k) {
  if (d.tolerance(c, vars) < k.tolerance) return kNaN;
  std::vector<std::size_t> bigger = vars;
  bigger.push_back(c);
  const Fit small = d.fit(vars), big = d.fit(bigger);
  if (!(big.df > 0) || !(big.rss > 0)) return big.df > 0 ? 0.0 : kNaN;
  return fUpper((small.rss - big.rss) / (big.rss / big.df), 1, big.df);
}

double pToRemove(const Design& d, const std::vector<std::size_t>& vars, std::size_t c) {
  const Fit full = d.fit(vars), small = d.fit(without(vars, c));
  if (!(full.df > 0) || !(full.rss > 0)) return full.df > 0 ? 0.0 : kNaN;
  return fUpper((small.rss - full.rss) / (full.rss / full.df), 1, full.df);
}

std::vector<Step> selectModels(const Design& d, const std::string& method, const Criteria& k) {
  std::vector<Step> steps;
  const std::size_t count = static_cast<std::size_t>(d.candidates());
  auto enterAll = [&] {
    Step s;
    for (std::size_t c = 0; c < count; ++c) {
      if (d.tolerance(c, s.vars) >= k.tolerance) {
        s.vars.push_back(c);
        s.entered.push_back(c);
      }
    }
    return s;
  };
  if (method == "ENTER" || method == "BACKWARD") {
    steps.push_back(enterAll());
    if (method == "ENTER" || steps.back().vars.empty()) return steps;
  }
  std::vector<std::size_t> current = steps.empty() ? std::vector<std::size_t>() : steps.back().vars;
  // A step count bound: stepwise could otherwise cycle between two sets on a knife's edge.
  for (std::size_t guard = 0; guard < 4 * count + 4; ++guard) {
    if (method != "BACKWARD") {
      double best = kNaN;
      std::size_t pick = 0;
      for (std::size_t c = 0; c < count; ++c) {
        if (std::find(current.begin(), current.end(), c) != current.end()) continue;
        const double p = pToEnter(d, current, c, k);
        if (std::isfinite(p) && (!std::isfinite(best) || p < best)) {
          best = p;
          pick = c;
        }
      }
      if (!std::isfinite(best) || best > k.pin) break;
      current.push_back(pick);
      steps.push_back({current, {pick}, {}});
      if (method == "FORWARD") continue;
    }
    // Removal: BACKWARD each step, STEPWISE after each entry.
    double worst = kNaN;
    std::size_t pick = 0;
    for (std::size_t c : current) {
      const double p = pToRemove(d, current, c);
      if (std::isfinite(p) && (!std::isfinite(worst) || p > worst)) {
        worst = p;
        pick = c;
      }
    }
    if (std::isfinite(worst) && worst > k.pout) {
      current = without(current, pick);
      steps.push_back({current, {}, {pick}});
    } else if (method == "BACKWARD") {
      break;
    }
  }
  return steps;
}

std::string methodText(const std::string& method, const Criteria& k) {
  if (method == "ENTER") return "Enter";
  if (method == "FORWARD") return "Forward (Criterion: Probability-of-F-to-enter <= " + cell(k.pin, 3) + ")";
  if (method == "BACKWARD") return "Backward (Criterion: Probability of F-to-remove >= " + cell(k.pout, 3) + ")";
  return "Stepwise (Criteria: Probability-of-F-to-enter <= " + cell(k.pin, 3) +
         ", Probability-of-F-to-remove >= " + cell(k.pout, 3) + ")";
}

}  // namespace

bool runRegression(Procedure& p, std::string& error) {
  std::vector<std::size_t> dependents;
  if (!p.variables("DEPENDENT", dependents, error)) return false;
  std::vector<std::string> methodList;
  const SubComObj* methodSub = p.spec().getSubComObj("METHOD");
  if (methodSub != nullptr && methodSub->getValueObj() != nullptr) methodSub->getValueObj()->getStringList(methodList);
  if (dependents.empty() || methodList.empty()) {
    error = dependents.empty() ? "/DEPENDENT names no variable" : "/METHOD names no method";
    return false;
  }
  std::string method = methodList.front();
  for (char& ch : method) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
  if (method != "ENTER" && method != "FORWARD" && method != "BACKWARD" && method != "STEPWISE") {
    error = "/METHOD=" + methodList.front() + " is not supported; use ENTER, FORWARD, BACKWARD or STEPWISE";
    return false;
  }
  if (p.has("ORIGIN")) {
    error = "/ORIGIN (regression through the origin) is not supported; the model keeps its constant";
    return false;
  }
  std::vector<std::size_t> named;
  if (!p.resolve(std::vector<std::string>(methodList.begin() + 1, methodList.end()), named, error)) return false;
  if (dependents.size() > 1) p.note("REGRESSION: only the first dependent variable, " + p.variable(dependents[0]).name + ", is analysed.");
  if (p.spec().getSubComObjs("METHOD").size() > 1) p.note("REGRESSION: only the first /METHOD block is used.");
  if (p.keyword("MISSING", "PAIRWISE") || p.keyword("MISSING", "MEANSUBSTITUTION")) {
    p.note("REGRESSION: cases are deleted listwise; /MISSING=PAIRWISE and MEANSUBSTITUTION are not supported.");
  }
  const std::size_t dependent = dependents[0];
  if (p.variable(dependent).type != Variable::Type::Numeric) {
    error = "the dependent variable " + p.variable(dependent).name + " is a string variable";
    return false;
  }
  std::vector<std::size_t> candidates;
  for (std::size_t v : p.numericOnly(named)) {
    if (v != dependent) candidates.push_back(v);
  }
  if (candidates.empty()) {
    error = "no numeric independent variable";
    return false;
  }

  Criteria k;
  if (const SubComObj* c = p.spec().getSubComObj("CRITERIA")) {
    if (const ParamObj* v = c->getParamObj("PIN")) v->getNumberValue(k.pin);
    if (const ParamObj* v = c->getParamObj("POUT")) v->getNumberValue(k.pout);
    if (const ParamObj* v = c->getParamObj("TOLERANCE")) v->getNumberValue(k.tolerance);
  }
  auto wants = [&p](const char* word, bool byDefault) { return p.statistic(word, byDefault); };
  const bool coeff = wants("COEFF", true), outs = wants("OUTS", true), rStats = wants("R", true);
  const bool anova = wants("ANOVA", true), collin = wants("COLLIN", false), tol = wants("TOL", false);
  const bool change = wants("CHANGE", false);
  double ciLevel = kNaN;
  if (const SubComObj* s = p.spec().getSubComObj("STATISTICS")) {
    if (const ParamObj* ci = s->getParamObj("CI")) {
      ciLevel = 95;
      ci->getNumberValue(ciLevel);
      if (!(ciLevel > 0 && ciLevel < 100)) {
        error = "CI(" + cell(ciLevel, 1) + ") is not a confidence level between 0 and 100";
        return false;
      }
    }
  }

  std::vector<std::size_t> used = candidates;
  used.push_back(dependent);
  const std::vector<bool> complete = p.listwise(used);
  std::vector<std::size_t> rows;
  for (std::size_t r = 0; r < p.cases(); ++r) {
    if (complete[r]) rows.push_back(r);
  }
  if (rows.size() < 2) {
    p.note("REGRESSION: " + std::to_string(rows.size()) +
           " case(s) valid on every variable of the model; a regression needs at least 2 (and more than its "
           "number of variables). Nothing was fitted.");
    return true;
  }
  MatrixXd x(static_cast<Eigen::Index>(rows.size()), static_cast<Eigen::Index>(candidates.size()));
  VectorXd y(static_cast<Eigen::Index>(rows.size()));
  for (std::size_t r = 0; r < rows.size(); ++r) {
    y(static_cast<Eigen::Index>(r)) = p.variable(dependent).numbers[rows[r]];
    for (std::size_t c = 0; c < candidates.size(); ++c) {
      x(static_cast<Eigen::Index>(r), static_cast<Eigen::Index>(c)) = p.variable(candidates[c]).numbers[rows[r]];
    }
  }
  const Design d(x, y);
  const std::vector<Step> steps = selectModels(d, method, k);
  auto nameOf = [&](std::size_t c) { return p.variable(candidates[c]).name; };
  const double n = static_cast<double>(rows.size());
  const double sdY = sdOf(y);

  OutputTable entered = p.newTable("Variables Entered/Removed", {"Variables Entered", "Variables Removed", "Method"});
  for (std::size_t m = 0; m < steps.size(); ++m) {
    auto join = [&](const std::vector<std::size_t>& list) {
      std::string text;
      for (std::size_t c : list) text += (text.empty() ? "" : ", ") + nameOf(c);
      return text.empty() ? std::string(".") : text;
    };
    entered.rowLabels.push_back("Model " + std::to_string(m + 1));
    entered.cells.push_back({join(steps[m].entered), join(steps[m].removed), methodText(method, k)});
  }
  if (steps.empty()) {
    p.table(entered);
    p.note("REGRESSION: no variable met the criterion to enter (Probability-of-F-to-enter <= " + cell(k.pin, 3) +
           ", tolerance >= " + cell(k.tolerance, 4) + "); dependent variable " + p.variable(dependent).name + ".");
    return true;
  }
  p.table(entered);
  std::vector<Fit> fits;
  for (const Step& s : steps) fits.push_back(d.fit(s.vars));

  if (rStats || change) {
    std::vector<std::string> columns = {"R", "R Square", "Adjusted R Square", "Std. Error of the Estimate"};
    if (change) columns.insert(columns.end(), {"R Square Change", "F Change", "df1", "df2", "Sig. F Change"});
    OutputTable t = p.newTable("Model Summary", columns);
    double previousR2 = 0;
    std::size_t previousCount = 0;
    double previousDf = n - 1;
    for (std::size_t m = 0; m < fits.size(); ++m) {
      const Fit& f = fits[m];
      const double pCount = static_cast<double>(f.vars.size());
      const double r2 = f.r2();
      const double adj = f.df > 0 ? 1 - (1 - r2) * (n - 1) / f.df : kNaN;
      std::vector<std::string> row = {cell(std::sqrt(std::max(0.0, r2)), 3), cell(r2, 3), cell(adj, 3),
                                      cell(std::sqrt(f.mse()), 4)};
      if (change) {
        const double df1 = std::fabs(pCount - static_cast<double>(previousCount));
        // The nested test uses the larger model's residual: after a removal, the previous one.
        const bool grew = f.vars.size() >= previousCount;
        const double bigR2 = grew ? r2 : previousR2;
        const double df2 = grew ? f.df : previousDf;
        const double fChange = df1 > 0 && df2 > 0 ? (std::fabs(r2 - previousR2) / df1) / ((1 - bigR2) / df2) : kNaN;
        row.insert(row.end(), {cell(r2 - previousR2, 3), cell(fChange, 3), cell(df1, 0), cell(df2, 0),
                               sig(fUpper(fChange, df1, df2))});
      }
      t.rowLabels.push_back("Model " + std::to_string(m + 1));
      t.cells.push_back(row);
      previousR2 = r2;
      previousCount = f.vars.size();
      previousDf = f.df;
    }
    p.table(t);
  }

  if (anova) {
    OutputTable t = p.newTable("ANOVA", {"Sum of Squares", "df", "Mean Square", "F", "Sig."});
    for (std::size_t m = 0; m < fits.size(); ++m) {
      const Fit& f = fits[m];
      const double dfReg = static_cast<double>(f.vars.size());
      const double ssReg = f.tss - f.rss;
      const double fValue = f.df > 0 && f.rss > 0 ? (ssReg / dfReg) / f.mse() : kNaN;
      const std::string model = "Model " + std::to_string(m + 1) + " ";
      t.rowLabels.insert(t.rowLabels.end(), {model + "Regression", model + "Residual", model + "Total"});
      t.cells.push_back({cell(ssReg, 3), cell(dfReg, 0), cell(ssReg / dfReg, 3), cell(fValue, 3),
                         sig(fUpper(fValue, dfReg, f.df))});
      t.cells.push_back({cell(f.rss, 3), cell(f.df, 0), cell(f.mse(), 3), "", ""});
      t.cells.push_back({cell(f.tss, 3), cell(n - 1, 0), "", "", ""});
    }
    p.table(t);
  }

  if (coeff) {
    std::vector<std::string> columns = {"B", "Std. Error", "Beta", "t", "Sig."};
    const bool ci = std::isfinite(ciLevel);
    if (ci) {
      columns.push_back(cell(ciLevel, 1) + "% CI Lower Bound");
      columns.push_back(cell(ciLevel, 1) + "% CI Upper Bound");
    }
    if (tol) columns.insert(columns.end(), {"Tolerance", "VIF"});
    OutputTable t = p.newTable("Coefficients", columns);
    for (std::size_t m = 0; m < fits.size(); ++m) {
      const Fit& f = fits[m];
      const double critical = ci ? tQuantile(0.5 + ciLevel / 200, f.df) : kNaN;
      for (std::size_t j = 0; j <= f.vars.size(); ++j) {
        const Eigen::Index e = static_cast<Eigen::Index>(j);
        const double b = f.b(e);
        const double se = std::sqrt(f.mse() * f.inverse(e, e));
        const double tValue = b / se;
        const double beta = j == 0 ? kNaN : b * sdOf(x.col(static_cast<Eigen::Index>(f.vars[j - 1]))) / sdY;
        std::vector<std::string> row = {cell(b, 4), cell(se, 4), j == 0 ? "" : cell(beta, 3), cell(tValue, 3),
                                        sig(tTwoTailed(tValue, f.df))};
        if (ci) row.insert(row.end(), {cell(b - critical * se, 4), cell(b + critical * se, 4)});
        if (tol) {
          const double tolerance = j == 0 ? kNaN : d.tolerance(f.vars[j - 1], without(f.vars, f.vars[j - 1]));
          row.insert(row.end(), {j == 0 ? "" : cell(tolerance, 3), j == 0 ? "" : cell(1 / tolerance, 3)});
        }
        t.rowLabels.push_back("Model " + std::to_string(m + 1) + " " + (j == 0 ? std::string("(Constant)") : nameOf(f.vars[j - 1])));
        t.cells.push_back(row);
      }
    }
    p.table(t);
  }

  if (outs) {
    OutputTable t = p.newTable("Excluded Variables", {"Beta In", "t", "Sig.", "Partial Correlation", "Tolerance"});
    bool belowTolerance = false;
    for (std::size_t m = 0; m < fits.size(); ++m) {
      const Fit& f = fits[m];
      for (std::size_t c = 0; c < candidates.size(); ++c) {
        if (std::find(f.vars.begin(), f.vars.end(), c) != f.vars.end()) continue;
        const double tolerance = d.tolerance(c, f.vars);
        std::vector<std::string> row;
        if (tolerance < k.tolerance) {
          belowTolerance = true;
          row = {".", ".", ".", ".", cell(tolerance, 3)};
        } else {
          std::vector<std::size_t> bigger = f.vars;
          bigger.push_back(c);
          const Fit g = d.fit(bigger);
          const Eigen::Index last = static_cast<Eigen::Index>(bigger.size());
          const double b = g.b(last);
          const double tValue = b / std::sqrt(g.mse() * g.inverse(last, last));
          row = {cell(b * sdOf(x.col(static_cast<Eigen::Index>(c))) / sdY, 3), cell(tValue, 3),
                 sig(tTwoTailed(tValue, g.df)), cell(tValue / std::sqrt(tValue * tValue + g.df), 3),
                 cell(tolerance, 3)};
        }
        t.rowLabels.push_back("Model " + std::to_string(m + 1) + " " + nameOf(c));
        t.cells.push_back(row);
      }
    }
    if (!t.rowLabels.empty()) p.table(t);
    if (belowTolerance) {
      p.note("REGRESSION: a variable whose tolerance is below " + cell(k.tolerance, 4) +
             " (it is almost a linear combination of the variables in the model) does not enter; its "
             "tolerance is shown.");
    }
  }

  if (collin) {
    std::vector<std::string> columns = {"Eigenvalue", "Condition Index", "(Constant)"};
    for (std::size_t c = 0; c < candidates.size(); ++c) columns.push_back(nameOf(c));
    OutputTable t = p.newTable("Collinearity Diagnostics", columns);
    for (std::size_t m = 0; m < fits.size(); ++m) {
      const Fit& f = fits[m];
      MatrixXd scaled = d.withConstant(f.vars);
      for (Eigen::Index j = 0; j < scaled.cols(); ++j) scaled.col(j) /= scaled.col(j).norm();
      const Eigen::SelfAdjointEigenSolver<MatrixXd> eigen(scaled.transpose() * scaled);
      const VectorXd values = eigen.eigenvalues().reverse();
      const MatrixXd vectors = eigen.eigenvectors().rowwise().reverse();
      const Eigen::Index dims = values.size();
      MatrixXd phi(dims, dims);  // phi(j, k): parameter j, dimension k
      for (Eigen::Index j = 0; j < dims; ++j) {
        for (Eigen::Index kk = 0; kk < dims; ++kk) phi(j, kk) = vectors(j, kk) * vectors(j, kk) / values(kk);
      }
      for (Eigen::Index kk = 0; kk < dims; ++kk) {
        std::vector<std::string> row = {cell(values(kk), 3), cell(std::sqrt(values(0) / values(kk)), 3)};
        std::vector<std::string> proportions(candidates.size() + 1, "");
        proportions[0] = cell(phi(0, kk) / phi.row(0).sum(), 2);
        for (std::size_t j = 0; j < f.vars.size(); ++j) {
          const Eigen::Index e = static_cast<Eigen::Index>(j) + 1;
          proportions[f.vars[j] + 1] = cell(phi(e, kk) / phi.row(e).sum(), 2);
        }
        row.insert(row.end(), proportions.begin(), proportions.end());
        t.rowLabels.push_back("Model " + std::to_string(m + 1) + " Dimension " + std::to_string(kk + 1));
        t.cells.push_back(row);
      }
    }
    p.table(t);
  }

  const Fit& last = fits.back();
  const bool press = p.keyword("RESIDUALS", "PRESS");
  const bool normprob = p.keyword("RESIDUALS", "NORMPROB");
  if (p.has("RESIDUALS")) {
    const double se = std::sqrt(last.mse());
    const VectorXd zPredicted = (last.fitted.array() - last.fitted.mean()) / sdOf(last.fitted);
    const VectorXd zResidual = last.residuals / se;
    OutputTable t = p.newTable("Residuals Statistics", {"Minimum", "Maximum", "Mean", "Std. Deviation", "N"});
    auto row = [&](const char* label, const VectorXd& v) {
      t.rowLabels.push_back(label);
      t.cells.push_back({cell(v.minCoeff(), 4), cell(v.maxCoeff(), 4), cell(v.mean(), 4), cell(sdOf(v), 4),
                         count(static_cast<std::size_t>(v.size()))});
    };
    row("Predicted Value", last.fitted);
    row("Residual", last.residuals);
    row("Std. Predicted Value", zPredicted);
    row("Std. Residual", zResidual);
    p.table(t);
    if (press) {
      double sum = 0;
      for (Eigen::Index i = 0; i < last.residuals.size(); ++i) {
        const double e = last.residuals(i) / (1 - last.leverage(i));
        sum += e * e;
      }
      OutputTable pt = p.newTable("PRESS Statistic", {"Value"});
      pt.rowLabels = {"Model " + std::to_string(fits.size())};
      pt.cells = {{cell(sum, 4)}};
      p.table(pt);
    }
    if (normprob && std::isfinite(se) && se > 0) {
      std::vector<double> z(zResidual.data(), zResidual.data() + zResidual.size());
      std::sort(z.begin(), z.end());
      std::vector<std::pair<double, double>> points;
      for (std::size_t i = 0; i < z.size(); ++i) {
        points.emplace_back(static_cast<double>(i + 1) / static_cast<double>(z.size()), normalCdf(z[i]));
      }
      const std::string title = "Normal P-P Plot of Regression Standardized Residual (" +
                                p.variable(dependent).name + ")";
      p.chart(title, charts::probabilityPlot(title, "Observed Cum Prob", "Expected Cum Prob", points));
    }
  }
  return true;
}

}  // namespace zorvhost::stats
