// Adapter content: first exact occurrence, cumulative along the read, judged per position group.
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "metrics_internal.h"

namespace genostat::metrics_detail {
namespace {

const std::string kIllumina = "AGATCGGAAGAG";

TEST(MetricsAdapters, SettingsPickTheirSequences) {
  EXPECT_EQ(adapterSequences(0, "").size(), 6u);
  EXPECT_EQ(adapterSequences(0, "")[4], "AAAAAAAAAAAA");
  EXPECT_EQ(adapterSequences(0, "")[5], "GGGGGGGGGGGG");
  EXPECT_EQ(adapterSequences(1, ""), std::vector<std::string>{kIllumina});
  EXPECT_EQ(adapterSequences(2, ""), std::vector<std::string>{"CTGTCTCTTATA"});
  // A custom sequence is cut to its first 12 bases, a shorter one kept whole.
  EXPECT_EQ(adapterSequences(3, "AGATCGGAAGAGCACACGTC"), std::vector<std::string>{kIllumina});
  EXPECT_EQ(adapterSequences(3, "ACG"), std::vector<std::string>{"ACG"});
}

TEST(MetricsAdapters, RefusesAdaptersItCannotSearch) {
  EXPECT_THROW(AdapterScanner({""}), std::invalid_argument);
  EXPECT_THROW(AdapterScanner({"ACGN"}), std::invalid_argument);
  EXPECT_THROW(AdapterScanner({"ACGTACGTACGTA"}), std::invalid_argument);  // 13 bases
  EXPECT_THROW(AdapterScanner({"ACGT", "ACG"}), std::invalid_argument);
  EXPECT_THROW(AdapterScanner(std::vector<std::string>{}), std::invalid_argument);
}

TEST(MetricsAdapters, NoReadLongerThanTheAdapterWarns) {
  AdapterScanner none({kIllumina});
  EXPECT_EQ(none.verdict(), Verdict::Warn);  // no reads at all
  AdapterScanner s({kIllumina});
  for (int i = 0; i < 500; ++i) s.add(kIllumina);  // 12 bp, adapter everywhere
  EXPECT_EQ(s.verdict(), Verdict::Warn);
  EXPECT_TRUE(s.groupValues().empty());
}

TEST(MetricsAdapters, ThirteenBaseReadHoldingTheAdapterCounts) {
  // R = 13 -> 13 - 12 + 1 = 2 entries; the hit at 0 fills both: 100 % at positions 1 and 2.
  AdapterScanner s({kIllumina});
  s.add(kIllumina + "T");
  const auto v = s.groupValues();
  ASSERT_EQ(v.size(), 1u);
  EXPECT_EQ(v[0], (std::vector<double>{100, 100}));
  EXPECT_EQ(s.verdict(), Verdict::Fail);
}

TEST(MetricsAdapters, CountIsCumulativeFromTheFirstHit) {
  // Ten 20-bp reads, one with the adapter starting at 0-based 5: 9 entries, entries 5..8 hold 1,
  // i.e. 100 * 1 / 10 = 10 % at positions 6..9. 10 is not above 10: warn only.
  AdapterScanner s({kIllumina});
  s.add("CCCCC" + kIllumina + "CCC");
  for (int i = 0; i < 9; ++i) s.add(std::string(20, 'C'));
  const auto v = s.groupValues();
  ASSERT_EQ(v.size(), 1u);
  EXPECT_EQ(v[0], (std::vector<double>{0, 0, 0, 0, 0, 10, 10, 10, 10}));
  EXPECT_EQ(s.verdict(), Verdict::Warn);
}

TEST(MetricsAdapters, OnlyTheFirstOccurrenceCountsAndNBreaksAMatch) {
  AdapterScanner s({kIllumina});
  s.add(kIllumina + kIllumina);             // hit at 0 only, counted once
  s.add("AGATCGNAAGAG" + std::string(12, 'T'));  // N inside: no hit
  const auto v = s.groupValues();
  // 13 entries; entry values 1 of 2 reads everywhere -> 50 %.
  ASSERT_EQ(v[0].size(), 13u);
  for (double x : v[0]) EXPECT_EQ(x, 50.0);
}

TEST(MetricsAdapters, HitsBeforeAnyLongReadAreLost) {
  // The first read is exactly adapter length: nothing is recorded while no read was longer.
  AdapterScanner s({kIllumina});
  s.add(kIllumina);
  s.add(std::string(20, 'C'));
  const auto before = s.groupValues();
  for (double x : before[0]) EXPECT_EQ(x, 0.0);
  EXPECT_EQ(s.verdict(), Verdict::Pass);
  // Once a long read was seen, a short read's hit counts from its position onwards.
  s.add(kIllumina);
  const auto after = s.groupValues();
  for (double x : after[0]) EXPECT_DOUBLE_EQ(x, 100.0 / 3);
}

TEST(MetricsAdapters, GroupsAverageTheirPositions) {
  // One 100-bp read with the adapter at 0-based 10: 89 entries -> M = 89 > 75 -> I = 2 groups
  // after 1..9: 10-11, 12-13, ...; entries 10.. hold 1 (100 %). Positions are 1-based: entry e
  // is position e + 1, so position 11 is the first at 100 %: group 10-11 averages 0 and 100.
  AdapterScanner s({kIllumina});
  s.add(std::string(10, 'T') + kIllumina + std::string(78, 'T'));
  const auto v = s.groupValues()[0];
  EXPECT_EQ(v[8], 0.0);    // position 9
  EXPECT_EQ(v[9], 50.0);   // group 10-11
  EXPECT_EQ(v[10], 100.0); // group 12-13
  EXPECT_EQ(v.back(), 100.0);
}

TEST(MetricsAdapters, PolyATailOfTheDefaultListFails) {
  AdapterScanner s(adapterSequences(0, ""));
  for (int i = 0; i < 200; ++i) s.add(std::string(30, 'A') + "CTCTCTCTCT");
  EXPECT_EQ(s.verdict(), Verdict::Fail);
  const auto v = s.groupValues();
  ASSERT_EQ(v.size(), 6u);
  EXPECT_EQ(v[4][0], 100.0);  // PolyA from position 1
  EXPECT_EQ(v[0][0], 0.0);
}

TEST(MetricsAdapters, ShortCustomAdapter) {
  // K = 3; "TTACGTT": R = 7, 5 entries, first hit at 2 -> 0, 0, 100, 100, 100.
  AdapterScanner s({"ACG"});
  s.add("TTACGTT");
  EXPECT_EQ(s.groupValues()[0], (std::vector<double>{0, 0, 100, 100, 100}));
}

// Random reads over A/C/G/T/N with planted adapters and near misses, a hit anywhere in the read
// (block edges of the vector search and its padded tail included); every per-position value must
// equal the one from std::string::find.
void expectPlainSubstringSearch(const std::vector<std::string>& adapters, Simd simd,
                                unsigned seed) {
  const std::size_t k = adapters.front().size();
  std::mt19937 rng(seed);
  std::vector<std::string> reads;
  for (int i = 0; i < 3000; ++i) {
    // Lengths 1..69 (odd and even, shorter than an adapter too); the first read is the longest
    // so that every read counts.
    std::string r(i == 0 ? 69 : 1 + rng() % 69, 'A');
    for (char& c : r) c = "ACGTN"[rng() % (rng() % 4 == 0 ? 5 : 4)];
    for (int plant = rng() % 3; plant < 2 && r.size() >= k; ++plant) {
      std::string a = adapters[rng() % adapters.size()];
      if (rng() % 2 == 0) a[rng() % a.size()] = 'C';  // near miss (or still a hit when it was C)
      // Near the end half of the time: the starts the tail copy handles.
      const std::size_t room = r.size() - a.size() + 1;
      const std::size_t at = rng() % 2 == 0 ? room - 1 - rng() % std::min<std::size_t>(room, 16)
                                            : rng() % room;
      r.replace(at, a.size(), a);
    }
    reads.push_back(r);
  }
  AdapterScanner s(adapters, simd);
  std::size_t longest = 0;
  std::vector<std::vector<std::uint64_t>> firstHits(adapters.size());
  for (const auto& r : reads) {
    s.add(r);
    longest = std::max(longest, r.size());
    for (std::size_t a = 0; a < adapters.size(); ++a) {
      firstHits[a].resize(longest - k + 1, 0);
      const auto at = r.find(adapters[a]);
      if (at != std::string::npos) ++firstHits[a][at];
    }
  }
  const auto v = s.groupValues();
  ASSERT_EQ(v.size(), adapters.size());
  for (std::size_t a = 0; a < adapters.size(); ++a) {
    // <= 75 entries: one group per position
    ASSERT_EQ(v[a].size(), longest - k + 1);
    std::uint64_t running = 0;
    for (std::size_t e = 0; e < v[a].size(); ++e) {
      running += firstHits[a][e];
      ASSERT_DOUBLE_EQ(v[a][e], (100.0 * static_cast<double>(running)) / 3000)
          << adapters[a] << " at " << e << " with vector level " << static_cast<int>(simd);
    }
  }
}

TEST(MetricsAdapters, AgreesWithAPlainSubstringSearch) {
  // Levels the processor lacks fall back to the next lower one.
  for (const Simd simd : {Simd::Avx2, Simd::Sse2, Simd::None}) {
    expectPlainSubstringSearch(adapterSequences(0, ""), simd, 7);
    expectPlainSubstringSearch(adapterSequences(1, ""), simd, 8);
    expectPlainSubstringSearch({"ACG"}, simd, 9);
    expectPlainSubstringSearch({"TTAGGCA"}, simd, 10);
    expectPlainSubstringSearch({"A"}, simd, 11);
    expectPlainSubstringSearch({"CA", "AC", "GG", "TA", "AT", "CC", "GA", "TT"}, simd, 12);
  }
}

}  // namespace
}  // namespace genostat::metrics_detail
