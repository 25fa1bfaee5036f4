// The per-sequence GC model and its deviation figure.
#include <gtest/gtest.h>

#include <cmath>

#include "metrics_internal.h"

namespace genostat::metrics_detail {
namespace {

TEST(MetricsGcModel, SixteenBasesWithEightGcSpreadOverSevenBins) {
  // L = 16. h = 8: lo 7.5 -> 100*7.5/16 = 46.875 -> 47; up 8.5 -> 53.125 -> 53: bins 47..53.
  // h = 7 claims 41..47 (6.5 -> 40.625 -> 41; 7.5 -> 46.875 -> 47), h = 9 claims 53..59,
  // so bins 47 and 53 are shared by two counts and get 1/2; 48..52 belong to h = 8 alone.
  GcModel model(16);
  const auto& claim = model.claim(8);
  EXPECT_EQ(claim.firstBin, 47u);
  const std::vector<double> expected = {0.5, 1, 1, 1, 1, 1, 0.5};
  EXPECT_EQ(claim.weights, expected);
  EXPECT_EQ(model.claim(7).firstBin, 41u);
  EXPECT_EQ(model.claim(7).weights.size(), 7u);
}

TEST(MetricsGcModel, HalfValuesRoundUp) {
  // L = 4, h = 1: lo 0.5 -> 12.5 -> 13 (half up, not to even 12); up 1.5 -> 37.5 -> 38.
  // h = 0: lo 0 -> 0, up 0.5 -> 12.5 -> 13: bins 0..13, sharing bin 13 with h = 1.
  GcModel model(4);
  EXPECT_EQ(model.claim(1).firstBin, 13u);
  EXPECT_EQ(model.claim(1).weights.size(), 26u);  // 13..38
  EXPECT_EQ(model.claim(1).weights.front(), 0.5);
  EXPECT_EQ(model.claim(0).firstBin, 0u);
  EXPECT_EQ(model.claim(0).weights.size(), 14u);
  // h = L: lo 3.5 -> 87.5 -> 88, up capped at L -> 100.
  EXPECT_EQ(model.claim(4).firstBin, 88u);
  EXPECT_EQ(model.claim(4).weights.size(), 13u);
}

TEST(MetricsGcModel, ReadAddsItsWeightsToTheDistribution) {
  GcModel model(16);
  std::array<double, 101> v{};
  for (int i = 0; i < 5; ++i) model.addTo(8, v);
  EXPECT_EQ(v[46], 0.0);
  EXPECT_EQ(v[47], 2.5);
  EXPECT_EQ(v[50], 5.0);
  EXPECT_EQ(v[53], 2.5);
  EXPECT_EQ(v[54], 0.0);
}

TEST(MetricsGcDeviation, FiveShortReadsWarn) {
  // V = 2.5, 5, 5, 5, 5, 5, 2.5 on bins 47..53; S = 30. Peak at 48 (lowest of the fives),
  // threshold 5 - 0.5 = 4.5: the band is 48..52, centre 50. sd^2 = (2 * 9 * 2.5 + (4 + 1 + 0 + 1
  // + 4) * 5) / 29 = 95 / 29. The normal curve with that spread misses by 29.797938767... %.
  std::array<double, 101> v{};
  const double w[] = {2.5, 5, 5, 5, 5, 5, 2.5};
  for (int i = 0; i < 7; ++i) v[47 + i] = w[i];
  const double dev = gcDeviation(v);
  EXPECT_NEAR(dev, 29.797938767447835, 1e-9);
  EXPECT_EQ(gcVerdict(dev), Verdict::Warn);
}

TEST(MetricsGcDeviation, DegenerateDistributionsFollowIeeeArithmetic) {
  std::array<double, 101> v{};
  // Nothing at all: 0 / 0 -> NaN, never warns.
  EXPECT_TRUE(std::isnan(gcDeviation(v)));
  EXPECT_EQ(gcVerdict(gcDeviation(v)), Verdict::Pass);
  // One read of 100 bp with 40 G/C: count h claims bins h..h+1 for L = 100 (h - 0.5 -> h,
  // h + 0.5 -> h + 1), each bin shared by two counts: 0.5 to bins 40 and 41. S = 1, S - 1 = 0
  // gives an infinite spread, the curve is 0 everywhere, the deviation is the whole
  // distribution: 100 %.
  GcModel(100).addTo(40, v);
  EXPECT_EQ(v[40], 0.5);
  EXPECT_EQ(v[41], 0.5);
  EXPECT_DOUBLE_EQ(gcDeviation(v), 100.0);
  EXPECT_EQ(gcVerdict(gcDeviation(v)), Verdict::Fail);
  // All reads at 100 %: the band runs off the top, centre 100, spread 0, curve NaN -> pass.
  v = {};
  v[100] = 200;
  EXPECT_TRUE(std::isnan(gcDeviation(v)));
  EXPECT_EQ(gcVerdict(gcDeviation(v)), Verdict::Pass);
}

TEST(MetricsGcDeviation, BandRunningOffAnEndUsesThePeakAsCentre) {
  // Peak at 0 and a flat band below the threshold elsewhere: 0 is the lowest bin, so the walk
  // down runs off the bottom and the centre is the peak (0), not the band mean (0.5).
  std::array<double, 101> v{};
  v[0] = 10;
  v[1] = 10;
  v[2] = 1;
  // centre 0: sd^2 = (1 * 10 + 4 * 1) / 20 = 0.7
  // With centre 0.5 it would be (0.25*10 + 0.25*10 + 2.25) / 20 = 0.3625; the two give different
  // deviations, so comparing against the centre-0 figure pins the rule.
  const double sd2 = 14.0 / 20.0;
  const double pi = 3.14159265358979323846;
  double sum = 0;
  for (int p = 0; p <= 100; ++p) {
    const double e = 21 * std::exp(-(p * p) / (2 * sd2)) / std::sqrt(2 * pi * sd2);
    sum += std::fabs(e - v[static_cast<std::size_t>(p)]);
  }
  EXPECT_NEAR(gcDeviation(v), (sum / 21) * 100, 1e-9);
}

TEST(MetricsGcDeviation, ThresholdsAreStrict) {
  EXPECT_EQ(gcVerdict(15.0), Verdict::Pass);
  EXPECT_EQ(gcVerdict(15.000001), Verdict::Warn);
  EXPECT_EQ(gcVerdict(30.0), Verdict::Warn);
  EXPECT_EQ(gcVerdict(30.000001), Verdict::Fail);
}

TEST(MetricsGcModel, KeptLengthCutsLongReadsToWholeHundredsOrThousands) {
  EXPECT_EQ(gcKeptLength(0), 0u);
  EXPECT_EQ(gcKeptLength(100), 100u);
  EXPECT_EQ(gcKeptLength(101), 100u);
  EXPECT_EQ(gcKeptLength(150), 100u);
  EXPECT_EQ(gcKeptLength(299), 200u);
  EXPECT_EQ(gcKeptLength(1000), 1000u);
  EXPECT_EQ(gcKeptLength(1001), 1000u);
  EXPECT_EQ(gcKeptLength(2500), 2000u);
}

}  // namespace
}  // namespace genostat::metrics_detail
