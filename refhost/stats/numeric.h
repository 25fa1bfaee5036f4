// The numeric core shared by the procedures: moments, quantiles, ranks, correlation
// coefficients and their significance, and the least-squares fit. Pure functions over the valid
// values; every statistic that cannot be computed (too few cases, no spread) is NaN, which the
// tables show as ".".
#pragma once

#include <cstddef>
#include <vector>

namespace zorvhost::stats {

// Moments of the valid values: skewness and kurtosis are the bias-corrected G1 and G2 with their
// usual standard errors. NaN below 2 cases (standard deviation), 3 (skewness), 4 (kurtosis), or
// when a constant variable leaves them undefined.
struct Moments {
  std::size_t n = 0;
  double min, max, range, sum, mean, variance, sd, semean, skewness, seSkewness, kurtosis, seKurtosis;
};
Moments moments(const std::vector<double>& values);

// The quantile at `p` (0..1) by the weighted average at (n+1)p (R's quantile type 6): the
// smallest value below p = 1/(n+1), the largest above p = n/(n+1). `sorted` ascending, n >= 1.
double quantile6(const std::vector<double>& sorted, double p);

// Ranks 1..n, ties sharing the average of their ranks.
std::vector<double> averageRanks(const std::vector<double>& values);

// Two-tailed p of a t statistic with `df` degrees of freedom, of F with (df1, df2), of a
// standard normal z.
double tTwoTailed(double t, double df);
double fUpper(double f, double df1, double df2);
double zTwoTailed(double z);
double tQuantile(double p, double df);
double normalCdf(double z);

struct Coefficient {
  double r = 0;    // NaN when a variable has no spread
  double p = 0;    // two-tailed
  std::size_t n = 0;
};
// Pearson's r with its t-test; Spearman's rho (Pearson on average ranks, t approximation);
// Kendall's tau-b with the tie-corrected normal approximation (no continuity correction).
Coefficient pearson(const std::vector<double>& x, const std::vector<double>& y);
Coefficient spearman(const std::vector<double>& x, const std::vector<double>& y);
Coefficient kendallTauB(const std::vector<double>& x, const std::vector<double>& y);

}  // namespace zorvhost::stats
