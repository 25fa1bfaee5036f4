// Number formatting, position groups and length bins.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "metrics_internal.h"

namespace genostat::metrics_detail {
namespace {

TEST(MetricsFormat, TwoDecimalsRoundCorrectlyFromTheStoredValue) {
  // 3.125 is exact in binary: a true tie, which goes to the even neighbour 3.12.
  EXPECT_EQ(formatTwoDecimals(3.125), "3.12");
  // 3.375 is exact too; the tie goes to 3.38 (8 even) - rules out "always down".
  EXPECT_EQ(formatTwoDecimals(3.375), "3.38");
  // 2.675 is stored as 2.67499999999999982236431605997495353221893310546875.
  EXPECT_EQ(formatTwoDecimals(2.675), "2.67");
  EXPECT_EQ(formatTwoDecimals(12.5), "12.50");
  EXPECT_EQ(formatTwoDecimals(100.0), "100.00");
  EXPECT_EQ(formatTwoDecimals(0.004999), "0.00");
  EXPECT_EQ(formatTwoDecimals(0.005000001), "0.01");
  // Large values stay in fixed notation, no exponent.
  EXPECT_EQ(formatTwoDecimals(123456789012.0), "123456789012.00");
}

TEST(MetricsFormat, TwoDecimalsNeverWritesNegativeZero) {
  EXPECT_EQ(formatTwoDecimals(-0.0), "0.00");
  EXPECT_EQ(formatTwoDecimals(-0.001), "0.00");
}

TEST(MetricsFormat, TruncatedPercentCutsInsteadOfRounding) {
  EXPECT_EQ(formatTruncatedPercent(1, 3), "33.33");  // 33.333...
  EXPECT_EQ(formatTruncatedPercent(2, 3), "66.66");  // 66.666... would round to 66.67
  // 45.996 %: rounding would print 46.00 while the whole-number figure is 45.
  EXPECT_EQ(formatTruncatedPercent(45996, 100000), "45.99");
  EXPECT_EQ(formatTruncatedPercent(1, 1), "100.00");
  EXPECT_EQ(formatTruncatedPercent(0, 7), "0.00");
  EXPECT_EQ(formatTruncatedPercent(1, 10000), "0.01");
  EXPECT_EQ(formatTruncatedPercent(1, 10001), "0.00");
  // No A/C/G/T at all.
  EXPECT_EQ(formatTruncatedPercent(0, 0), "0.00");
}

TEST(MetricsFormat, TruncatedPercentDoesNotOverflowOnHugeCounts) {
  // 10000 * 2^62 does not fit 64 bits; the exact result is 50 %.
  const std::uint64_t half = std::uint64_t{1} << 62;
  EXPECT_EQ(formatTruncatedPercent(half, half * 2), "50.00");
  // (2^64 - 1) / 3 of 2^64 - 1 -> 33.33
  const std::uint64_t max = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(formatTruncatedPercent(max / 3, max), "33.33");
}

std::vector<std::string> labels(std::size_t m) {
  std::vector<std::string> out;
  for (const auto& g : positionGroups(m)) out.push_back(g.label());
  return out;
}

TEST(MetricsPositionGroups, UpTo75PositionsEveryPositionIsItsOwnGroup) {
  auto l = labels(75);
  ASSERT_EQ(l.size(), 75u);
  EXPECT_EQ(l.front(), "1");
  EXPECT_EQ(l[73], "74");
  EXPECT_EQ(l[74], "75");
  EXPECT_EQ(labels(1), std::vector<std::string>{"1"});
  EXPECT_TRUE(labels(0).empty());
}

struct GroupRow {
  std::size_t m;
  const char* tenth;       // first group after 1..9
  const char* secondLast;
  const char* last;
  std::size_t count;
};

TEST(MetricsPositionGroups, LongerReadsUseTheDocumentedIntervals) {
  // Counts: 9 single positions + groups from 10. E.g. M=76, I=2: 10-11 .. 74-75 is 33 groups,
  // plus 76 -> 9 + 34 = 43 (and 9 + ceil(67/2) = 43 < 75 while I=1 is not offered).
  // M=1000, I=20: 10-19, then 20-39 .. 980-999 (49 groups), then 1000 -> 9 + 1 + 49 + 1 = 60.
  // M=5000, I=100: 10-99, 100-199 .. 4900-4999 (49), 5000 -> 60.
  const GroupRow rows[] = {
      {76, "10-11", "74-75", "76", 43},           {101, "10-11", "98-99", "100-101", 55},
      {150, "10-14", "145-149", "150", 38},       {151, "10-14", "145-149", "150-151", 38},
      {300, "10-14", "295-299", "300", 68},       {500, "10-19", "490-499", "500", 59},
      {1000, "10-19", "980-999", "1000", 60},     {5000, "10-99", "4900-4999", "5000", 60},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.m);
    auto l = labels(row.m);
    ASSERT_GT(l.size(), 10u);
    for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(l[i], std::to_string(i + 1));
    EXPECT_EQ(l[9], row.tenth);
    EXPECT_EQ(l[l.size() - 2], row.secondLast);
    EXPECT_EQ(l.back(), row.last);
    EXPECT_EQ(l.size(), row.count);
  }
  // With I = 20 the group after the short first one is 20-39.
  EXPECT_EQ(labels(1000)[10], "20-39");
}

TEST(MetricsPositionGroups, GroupsCoverEveryPositionOnce) {
  for (std::size_t m : {76u, 99u, 333u, 2500u, 12345u}) {
    std::size_t next = 1;
    for (const auto& g : positionGroups(m)) {
      EXPECT_EQ(g.first, next) << m;
      EXPECT_LE(g.first, g.last);
      next = g.last + 1;
    }
    EXPECT_EQ(next, m + 1) << m;
    EXPECT_LT(positionGroups(m).size(), 75u);
  }
}

std::vector<std::uint64_t> countsOf(std::initializer_list<std::pair<std::size_t, std::uint64_t>> items) {
  std::vector<std::uint64_t> counts;
  for (const auto& [len, n] : items) {
    if (counts.size() <= len) counts.resize(len + 1, 0);
    counts[len] += n;
  }
  return counts;
}

TEST(MetricsLengthBins, WorkedExampleWithFiveBaseBins) {
  // Lengths 35..151: lo = 34, hi = 152, span 118; 118 div 2 = 59 > 50, 118 div 5 = 23 -> W = 5.
  // Bins start at 30; 30-34 is empty padding and dropped; the last one is cut: 150-152.
  std::vector<std::uint64_t> counts(152, 0);
  for (std::size_t len = 35; len <= 151; ++len) counts[len] = 1;
  const auto bins = lengthBins(counts);
  ASSERT_FALSE(bins.empty());
  EXPECT_EQ(bins.front().label(), "35-39");
  EXPECT_EQ(bins.back().label(), "150-152");
  EXPECT_EQ(bins.back().count, 2u);  // 150 and 151
  EXPECT_EQ(bins.size(), 24u);       // 35-39 .. 145-149 is 23 bins, plus 150-152
}

TEST(MetricsLengthBins, MeanAndMedianComeFromTheBins) {
  // A 36-bp read sits in 35-39 and counts as (35 + 39) / 2 = 37; a 151-bp read in 150-152
  // counts as 151. Mean (74 + 302) / 4 = 94 (exact mean 93.5); median: half = 1, reached in the
  // first bin -> 35 + 4 div 2 = 37.
  const auto bins = lengthBins(countsOf({{36, 1}, {151, 1}}));
  const auto s = summariseLengthBins(bins);
  ASSERT_TRUE(s.present);
  EXPECT_DOUBLE_EQ(s.mean, 94.0);
  EXPECT_EQ(s.median, 37u);
  // Three reads 35, 151, 151: median needs running >= 1.5 -> bin 150-152 -> 150 + 2 div 2 = 151.
  const auto s2 = summariseLengthBins(lengthBins(countsOf({{35, 1}, {151, 2}})));
  EXPECT_EQ(s2.median, 151u);
}

TEST(MetricsLengthBins, NarrowRangesGiveExactMeanAndLowerMedian) {
  // 100 and 101 bp: span 102 - 99 = 3 -> single-length bins, labels without a hyphen.
  const auto bins = lengthBins(countsOf({{100, 1}, {101, 1}}));
  ASSERT_EQ(bins.size(), 2u);
  EXPECT_EQ(bins[0].label(), "100");
  const auto s = summariseLengthBins(bins);
  EXPECT_DOUBLE_EQ(s.mean, 100.5);
  EXPECT_EQ(s.median, 100u);  // the smaller of the two middle lengths
  // A single length: both equal it.
  const auto one = summariseLengthBins(lengthBins(countsOf({{151, 7}})));
  EXPECT_DOUBLE_EQ(one.mean, 151.0);
  EXPECT_EQ(one.median, 151u);
}

TEST(MetricsLengthBins, EmptyReadsKeepLowAtZeroAndInnerEmptyBinsStay) {
  // Lengths 0 and 30: lo stays 0, hi 31, span 31 -> W = 1; bins 0..31, 31 dropped (empty end).
  const auto bins = lengthBins(countsOf({{0, 1}, {30, 1}}));
  ASSERT_EQ(bins.size(), 31u);
  EXPECT_EQ(bins.front().label(), "0");
  EXPECT_EQ(bins[1].count, 0u);  // inner empty bin kept
  EXPECT_EQ(bins.back().label(), "30");
  const auto s = summariseLengthBins(bins);
  EXPECT_DOUBLE_EQ(s.mean, 15.0);
  EXPECT_EQ(s.median, 0u);
}

TEST(MetricsLengthBins, CutBinOfOneValueKeepsARangeLabel) {
  // 101 and 151: lo 100, hi 152, span 52 -> W = 2; start 100; the last bin 152-153 is cut to
  // 152-152 and, being empty padding, dropped; 150-151 ends the list.
  auto bins = lengthBins(countsOf({{101, 1}, {151, 1}}));
  EXPECT_EQ(bins.front().label(), "100-101");
  EXPECT_EQ(bins.back().label(), "150-151");
  // 152 needs its own cut bin: lengths 50..152 -> lo 49, hi 153, span 104 -> W 5, start 45;
  // last bin 150-153 cut at hi.
  bins = lengthBins(countsOf({{50, 1}, {152, 1}}));
  EXPECT_EQ(bins.back().label(), "150-153");
  // A wider bin cut down to one value keeps the range form.
  EXPECT_EQ((LengthBin{152, 152, 0, false}.label()), "152-152");
  EXPECT_EQ((LengthBin{152, 152, 0, true}.label()), "152");
}

TEST(MetricsLengthBins, NoReadsNoBins) {
  EXPECT_TRUE(lengthBins({}).empty());
  EXPECT_FALSE(summariseLengthBins({}).present);
}

TEST(MetricsHistogramMedian, OddAndEvenPools) {
  std::vector<std::uint64_t> h(128, 0);
  h[33 + 10] = 1;
  h[33 + 20] = 1;
  h[33 + 30] = 1;
  EXPECT_DOUBLE_EQ(histogramMedian(h, 33), 20.0);
  h[33 + 31] = 1;  // 10, 20, 30, 31 -> (20 + 30) / 2
  EXPECT_DOUBLE_EQ(histogramMedian(h, 33), 25.0);
  h.assign(128, 0);
  h[33 + 7] = 1;
  h[33 + 8] = 1;  // 7.5
  EXPECT_DOUBLE_EQ(histogramMedian(h, 33), 7.5);
  h.assign(128, 0);
  h[64 + 40] = 4;  // offset 64
  EXPECT_DOUBLE_EQ(histogramMedian(h, 64), 40.0);
}

}  // namespace
}  // namespace genostat::metrics_detail
