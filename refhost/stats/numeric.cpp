#include "stats/numeric.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>

#include <boost/math/distributions/fisher_f.hpp>
#include <boost/math/distributions/normal.hpp>
#include <boost/math/distributions/students_t.hpp>

namespace zorvhost::stats {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A value whose spread is lost to rounding counts as none: a constant column of 0.1s has a sum of
// squares of about 1e-33, not 0.
bool noSpread(double sumSquares, double mean, std::size_t n) {
  return !(sumSquares > 1e-24 * std::max(1.0, mean * mean) * static_cast<double>(n));
}

}  // namespace

Moments moments(const std::vector<double>& values) {
  Moments m;
  m.n = values.size();
  m.min = m.max = m.range = m.sum = m.mean = m.variance = m.sd = m.semean = kNaN;
  m.skewness = m.seSkewness = m.kurtosis = m.seKurtosis = kNaN;
  if (m.n == 0) return m;
  const double n = static_cast<double>(m.n);
  const auto [lo, hi] = std::minmax_element(values.begin(), values.end());
  m.min = *lo;
  m.max = *hi;
  m.range = m.max - m.min;
  m.sum = std::accumulate(values.begin(), values.end(), 0.0);
  m.mean = m.sum / n;
  if (m.n < 2) return m;
  double s2 = 0;
  for (double v : values) s2 += (v - m.mean) * (v - m.mean);
  m.variance = s2 / (n - 1);
  m.sd = std::sqrt(m.variance);
  m.semean = m.sd / std::sqrt(n);
  if (m.n >= 3) m.seSkewness = std::sqrt(6 * n * (n - 1) / ((n - 2) * (n + 1) * (n + 3)));
  if (m.n >= 4) m.seKurtosis = 2 * m.seSkewness * std::sqrt((n * n - 1) / ((n - 3) * (n + 5)));
  if (noSpread(s2, m.mean, m.n)) {
    m.variance = m.sd = m.semean = 0;
    return m;  // skewness and kurtosis stay undefined
  }
  double s3 = 0;
  double s4 = 0;
  for (double v : values) {
    const double z = (v - m.mean) / m.sd;
    s3 += z * z * z;
    s4 += z * z * z * z;
  }
  if (m.n >= 3) m.skewness = n / ((n - 1) * (n - 2)) * s3;
  if (m.n >= 4) {
    m.kurtosis = n * (n + 1) / ((n - 1) * (n - 2) * (n - 3)) * s4 - 3 * (n - 1) * (n - 1) / ((n - 2) * (n - 3));
  }
  return m;
}

double quantile6(const std::vector<double>& sorted, double p) {
  const std::size_t n = sorted.size();
  if (n == 0) return kNaN;
  const double h = (static_cast<double>(n) + 1) * p;  // 1-based position
  if (h <= 1) return sorted.front();
  if (h >= static_cast<double>(n)) return sorted.back();
  const double below = std::floor(h);
  const std::size_t i = static_cast<std::size_t>(below) - 1;
  return sorted[i] + (h - below) * (sorted[i + 1] - sorted[i]);
}

std::vector<double> averageRanks(const std::vector<double>& values) {
  std::vector<std::size_t> order(values.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return values[a] < values[b]; });
  std::vector<double> ranks(values.size());
  for (std::size_t i = 0; i < order.size();) {
    std::size_t j = i;
    while (j + 1 < order.size() && values[order[j + 1]] == values[order[i]]) ++j;
    const double rank = (static_cast<double>(i) + static_cast<double>(j)) / 2 + 1;
    for (std::size_t k = i; k <= j; ++k) ranks[order[k]] = rank;
    i = j + 1;
  }
  return ranks;
}

double tTwoTailed(double t, double df) {
  if (!std::isfinite(t) || !(df > 0)) return std::isinf(t) && df > 0 ? 0.0 : kNaN;
  const boost::math::students_t dist(df);
  return 2 * boost::math::cdf(boost::math::complement(dist, std::fabs(t)));
}

double fUpper(double f, double df1, double df2) {
  if (!(df1 > 0) || !(df2 > 0) || std::isnan(f)) return kNaN;
  if (std::isinf(f)) return 0.0;
  if (f <= 0) return 1.0;
  const boost::math::fisher_f dist(df1, df2);
  return boost::math::cdf(boost::math::complement(dist, f));
}

double zTwoTailed(double z) {
  if (std::isnan(z)) return kNaN;
  const boost::math::normal dist;
  return 2 * boost::math::cdf(boost::math::complement(dist, std::fabs(z)));
}

double tQuantile(double p, double df) {
  if (!(df > 0)) return kNaN;
  const boost::math::students_t dist(df);
  return boost::math::quantile(dist, p);
}

double normalCdf(double z) {
  const boost::math::normal dist;
  return boost::math::cdf(dist, z);
}

Coefficient pearson(const std::vector<double>& x, const std::vector<double>& y) {
  Coefficient c;
  c.n = x.size();
  const double n = static_cast<double>(c.n);
  c.r = c.p = kNaN;
  if (c.n < 2) return c;
  const double mx = std::accumulate(x.begin(), x.end(), 0.0) / n;
  const double my = std::accumulate(y.begin(), y.end(), 0.0) / n;
  double sxx = 0, syy = 0, sxy = 0;
  for (std::size_t i = 0; i < c.n; ++i) {
    sxx += (x[i] - mx) * (x[i] - mx);
    syy += (y[i] - my) * (y[i] - my);
    sxy += (x[i] - mx) * (y[i] - my);
  }
  if (noSpread(sxx, mx, c.n) || noSpread(syy, my, c.n)) return c;
  c.r = std::clamp(sxy / std::sqrt(sxx * syy), -1.0, 1.0);
  if (c.n > 2) {
    const double df = n - 2;
    c.p = std::fabs(c.r) >= 1 ? 0.0 : tTwoTailed(c.r * std::sqrt(df / (1 - c.r * c.r)), df);
  }
  return c;
}

Coefficient spearman(const std::vector<double>& x, const std::vector<double>& y) {
  return pearson(averageRanks(x), averageRanks(y));
}

Coefficient kendallTauB(const std::vector<double>& x, const std::vector<double>& y) {
  Coefficient c;
  c.n = x.size();
  c.r = c.p = kNaN;
  const double n = static_cast<double>(c.n);
  if (c.n < 2) return c;
  double s = 0;
  for (std::size_t i = 0; i < c.n; ++i) {
    for (std::size_t j = i + 1; j < c.n; ++j) {
      const int sx = (x[i] > x[j]) - (x[i] < x[j]);
      const int sy = (y[i] > y[j]) - (y[i] < y[j]);
      s += sx * sy;  // concordant +1, discordant -1, tied in either 0
    }
  }
  // Tie groups: t(t-1) and friends over the groups of equal values of each variable.
  auto ties = [](const std::vector<double>& v, double& t1, double& t2, double& t3, double& t5) {
    std::map<double, double> counts;
    for (double value : v) counts[value] += 1;
    t1 = t2 = t3 = t5 = 0;
    for (const auto& [value, t] : counts) {
      t1 += t * (t - 1) / 2;
      t2 += t * (t - 1);
      t3 += t * (t - 1) * (t - 2);
      t5 += t * (t - 1) * (2 * t + 5);
    }
  };
  double xt1, xt2, xt3, xt5, yt1, yt2, yt3, yt5;
  ties(x, xt1, xt2, xt3, xt5);
  ties(y, yt1, yt2, yt3, yt5);
  const double pairs = n * (n - 1) / 2;
  const double denominator = std::sqrt((pairs - xt1) * (pairs - yt1));
  if (!(denominator > 0)) return c;
  c.r = s / denominator;
  double variance = (n * (n - 1) * (2 * n + 5) - xt5 - yt5) / 18 + xt2 * yt2 / (2 * n * (n - 1));
  if (c.n > 2) variance += xt3 * yt3 / (9 * n * (n - 1) * (n - 2));
  c.p = variance > 0 ? zTwoTailed(s / std::sqrt(variance)) : kNaN;
  return c;
}

}  // namespace zorvhost::stats
