// Per-sequence GC content: the model that spreads a read over percentage bins, and the deviation
// of the resulting distribution from a normal curve fitted to it.
#include <algorithm>
#include <cmath>

#include "metrics_internal.h"

namespace genostat::metrics_detail {

namespace {
// .5 goes up, also for the values that land exactly on a half.
inline long roundHalfUp(double x) { return static_cast<long>(std::floor(x + 0.5)); }
}  // namespace

GcModel::GcModel(std::size_t length) : length_(static_cast<double>(length)) {
  // Each possible G/C count h claims the bins its +-0.5 interval touches; a bin claimed by several
  // counts is shared between them, so a read adds 1/claims to every bin it claims. Both ends of
  // the claimed range grow with h, so the counts claiming bin p are those whose first bin is at
  // most p less those whose last bin is below p: two binary searches, not a walk over every h.
  const auto countWhile = [length](auto&& below) {
    std::size_t lo = 0;
    std::size_t hi = length + 1;
    while (lo < hi) {
      const std::size_t mid = lo + (hi - lo) / 2;
      if (below(mid)) {
        lo = mid + 1;
      } else {
        hi = mid;
      }
    }
    return lo;
  };
  for (long p = 0; p <= 100; ++p) {
    const std::size_t started = countWhile([&](std::size_t h) { return firstBin(h) <= p; });
    const std::size_t ended = countWhile([&](std::size_t h) { return lastBin(h) < p; });
    const int claimCount = static_cast<int>(started - ended);
    if (claimCount > 0) weights_[static_cast<std::size_t>(p)] = 1.0 / claimCount;
  }
}

long GcModel::firstBin(std::size_t h) const {
  const double lo = std::max(0.0, static_cast<double>(h) - 0.5);
  return roundHalfUp((100 * lo) / length_);
}

long GcModel::lastBin(std::size_t h) const {
  const double up = std::min(length_, static_cast<double>(h) + 0.5);
  return roundHalfUp((100 * up) / length_);
}

GcModel::Claim GcModel::claim(std::size_t gcCount) const {
  Claim claim{static_cast<std::size_t>(firstBin(gcCount)), {}};
  for (long p = firstBin(gcCount); p <= lastBin(gcCount); ++p) {
    claim.weights.push_back(weights_[static_cast<std::size_t>(p)]);
  }
  return claim;
}

void GcModel::addTo(std::size_t gcCount, std::array<double, 101>& distribution) const {
  const long last = lastBin(gcCount);
  for (long p = firstBin(gcCount); p <= last; ++p) {
    distribution[static_cast<std::size_t>(p)] += weights_[static_cast<std::size_t>(p)];
  }
}

double gcDeviation(const std::array<double, 101>& v) {
  double total = 0;
  for (double x : v) total += x;

  std::size_t mode = 0;
  for (std::size_t i = 1; i < v.size(); ++i) {
    if (v[i] > v[mode]) mode = i;
  }
  // The centre is the mean of the bins within 10 % of the peak around it, unless that band runs
  // off either end of the scale, when the peak itself is used.
  const double threshold = v[mode] - v[mode] / 10;
  double indexSum = 0;
  double indexCount = 0;
  bool offTop = true;
  for (std::size_t i = mode; i < v.size(); ++i) {
    if (!(v[i] > threshold)) {
      offTop = false;
      break;
    }
    indexSum += static_cast<double>(i);
    indexCount += 1;
  }
  bool offBottom = true;
  for (std::size_t i = mode; i-- > 0;) {
    if (!(v[i] > threshold)) {
      offBottom = false;
      break;
    }
    indexSum += static_cast<double>(i);
    indexCount += 1;
  }
  const double centre = (offTop || offBottom) ? static_cast<double>(mode) : indexSum / indexCount;

  double spread = 0;
  for (std::size_t p = 0; p < v.size(); ++p) {
    const double d = static_cast<double>(p) - centre;
    spread += d * d * v[p];
  }
  spread /= total - 1;
  const double sd = std::sqrt(spread);

  const double variance = sd * sd;
  const double pi = 3.14159265358979323846;
  double deviation = 0;
  for (std::size_t p = 0; p < v.size(); ++p) {
    const double d = static_cast<double>(p) - centre;
    const double density = std::exp(-(d * d) / (2 * variance)) / std::sqrt(2 * pi * variance);
    const double expected = total * density;
    deviation += std::fabs(expected - v[p]);
  }
  return (deviation / total) * 100;
}

Verdict gcVerdict(double deviation) {
  // NaN compares false both ways and passes.
  if (deviation > 30) return Verdict::Fail;
  if (deviation > 15) return Verdict::Warn;
  return Verdict::Pass;
}

}  // namespace genostat::metrics_detail
