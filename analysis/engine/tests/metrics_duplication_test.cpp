// The tracked-sequence table, the deduplicated percentage and overrepresented sequences.
#include <gtest/gtest.h>

#include <string>

#include "metrics_internal.h"

namespace genostat::metrics_detail {
namespace {

// A distinct 20-base key for every number (base-4 digits).
std::string keyFor(std::uint64_t n) {
  std::string s(20, 'A');
  for (std::size_t i = 0; i < 20; ++i, n /= 4) s[19 - i] = "ACGT"[n % 4];
  return s;
}

TEST(MetricsDuplicateTable, CountsRepeatsAndRemembersTheLastTrackedRead) {
  DuplicateTable t;
  t.add("ACGT");
  t.add("ACGT");
  t.add("TTTT");
  t.add("");  // an empty read is a key like any other
  t.add("ACGT");
  EXPECT_EQ(t.totalReads(), 5u);
  EXPECT_EQ(t.distinct(), 3u);
  EXPECT_FALSE(t.frozen());
  EXPECT_EQ(t.countAtLimit(), 5u);  // never frozen: the total
  const auto levels = t.levels();
  ASSERT_EQ(levels.size(), 2u);
  EXPECT_EQ(levels.at(1), 2u);  // TTTT and the empty key
  EXPECT_EQ(levels.at(3), 1u);  // ACGT
}

TEST(MetricsDuplicateTable, KeysDifferingOnlyInLengthOrLastByteStaySeparate) {
  DuplicateTable t;
  t.add("AAAA");
  t.add("AAAAA");
  t.add("AAAT");
  t.add("AAAA");
  EXPECT_EQ(t.distinct(), 3u);
  EXPECT_EQ(t.levels().at(2), 1u);
}

TEST(MetricsDuplicateTable, FreezesAtTheDistinctLimitAndIgnoresLaterNewKeys) {
  DuplicateTable t;
  // Each key twice in a row: the limit counts distinct keys, not reads, so the freeze comes at
  // read 2 * 100000 - 1 (the first read of the last new key).
  for (std::uint64_t i = 0; i < kDistinctLimit; ++i) {
    t.add(keyFor(i));
    if (i + 1 < kDistinctLimit) t.add(keyFor(i));
  }
  EXPECT_TRUE(t.frozen());
  EXPECT_EQ(t.distinct(), kDistinctLimit);
  EXPECT_EQ(t.countAtLimit(), 2 * kDistinctLimit - 1);
  // New keys after the freeze are not counted anywhere; known keys still are, without moving
  // the freeze point.
  t.add(keyFor(kDistinctLimit + 5));
  t.add(keyFor(0));
  EXPECT_EQ(t.distinct(), kDistinctLimit);
  EXPECT_EQ(t.countAtLimit(), 2 * kDistinctLimit - 1);
  EXPECT_EQ(t.totalReads(), 2 * kDistinctLimit + 1);
  const auto levels = t.levels();
  EXPECT_EQ(levels.at(3), 1u);                    // key 0
  EXPECT_EQ(levels.at(2), kDistinctLimit - 2);    // keys 1 .. limit-2
  EXPECT_EQ(levels.at(1), 1u);                    // the last key, seen once
}

TEST(MetricsDeduplicated, WithoutFreezeItIsDistinctOverAll) {
  // 3 keys seen 1, 1 and 2 times: 3 / 4 -> 75 %.
  EXPECT_DOUBLE_EQ(deduplicatedPercentage({{1, 2}, {2, 1}}, 4, 4), 75.0);
  // No reads at all.
  EXPECT_DOUBLE_EQ(deduplicatedPercentage({}, 0, 0), 100.0);
}

TEST(MetricsDeduplicated, ShortCutComparesTheNumberOfKeysNotTheLevel) {
  // T = 10, frozen at C = 5. Level 1 holds 6 keys: T - 6 = 4 < 5 -> taken as is (6).
  // Level 2 holds 1 key: T - 1 = 9 >= 5 -> q = (8/10)(7/9)(6/8)(5/7)(4/6) = 6720/30240 = 2/9,
  // k = 1 / (1 - 2/9) = 9/7. dedup = 6 + 9/7 = 51/7, raw = 6 + 18/7 = 60/7 -> 85 %.
  // (Comparing the level 1 with C instead would correct level 1 to 12 keys and give 93/102.)
  EXPECT_NEAR(deduplicatedPercentage({{1, 6}, {2, 1}}, 5, 10), 85.0, 1e-12);
}

TEST(MetricsDeduplicated, CorrectionUsesTheChanceOfMissingAKeyBeforeTheFreeze) {
  // T = 200000, C = 100000. Level 1: 50000 keys, T - n = 150000 >= C, q = prod (T-j-1)/(T-j)
  // = (T-C)/T = 1/2, k1 = 100000. Level 2: 50000 keys, q = (T-C)(T-C-1) / (T(T-1))
  // = (100000 * 99999) / (200000 * 199999), k2 = 50000 / (1 - q).
  const double q2 = (100000.0 * 99999.0) / (200000.0 * 199999.0);
  const double k2 = 50000 / (1 - q2);
  const double expected = (100000 + k2) / (100000 + 2 * k2) * 100;  // 71.428...
  const double got = deduplicatedPercentage({{1, 50000}, {2, 50000}}, 100000, 200000);
  EXPECT_NEAR(got, expected, 1e-9);
  EXPECT_EQ(formatTwoDecimals(got), "71.43");
  // Uncorrected it would be 100000 / 150000 = 66.67 %.
}

TEST(MetricsDeduplicated, HighLevelsStopEarlyWhenTheChanceVanishes) {
  // T = 1000, C = 500, one key at level 900; the limit is 1 - 1/1.01 = 0.0099010. Step 1:
  // q = 100/1000 = 0.1; step 2: 0.1 * 99/999 = 0.0099099 (still above); step 3: * 98/998 =
  // 0.00097 < limit, so q becomes 0 and the key is taken as is.
  // dedup = 1, raw = 900 -> 100/900 %.
  EXPECT_NEAR(deduplicatedPercentage({{900, 1}}, 500, 1000), 100.0 / 900.0, 1e-12);
  // A level equal to the total makes the first factor 0: q = 0 at once, k = 1 -> 1/1000.
  EXPECT_NEAR(deduplicatedPercentage({{1000, 1}}, 10, 1000), 0.1, 1e-12);
}

TEST(MetricsOverrepresented, ThresholdsAreStrictOnAllReads) {
  // 100 of 100000 is exactly 0.1 %: not above.
  EXPECT_EQ(overrepresented({100}, 100000).count, 0u);
  EXPECT_EQ(overrepresented({100}, 100000).verdict, Verdict::Pass);
  // 101 of 100000 qualifies and warns.
  auto r = overrepresented({101, 5, 200}, 100000);
  EXPECT_EQ(r.count, 2u);
  EXPECT_EQ(r.verdict, Verdict::Warn);
  // Exactly 1 %: (1000 / 100000) * 100 is exactly 1.0 -> only warns.
  EXPECT_EQ(overrepresented({1000}, 100000).verdict, Verdict::Warn);
  EXPECT_EQ(overrepresented({1001}, 100000).verdict, Verdict::Fail);
  for (std::uint64_t t = 100; t <= 100000; t += 100) {
    ASSERT_EQ(overrepresented({t / 100}, t).verdict, Verdict::Warn) << t;
  }
  EXPECT_EQ(overrepresented({}, 0).count, 0u);
}

}  // namespace
}  // namespace genostat::metrics_detail
