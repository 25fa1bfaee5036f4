// The vectorised per-read scans against their one-byte-at-a-time forms and against counts made
// here by hand: random reads of every length around the 16-byte block edges, with lower-case,
// N and other printable bytes mixed in.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "metrics_internal.h"

namespace genostat::metrics_detail {
namespace {

const unsigned char* bytes(const std::string& s) {
  return reinterpret_cast<const unsigned char*>(s.data());
}

std::string randomRead(std::mt19937& rng, std::size_t length, const std::string& alphabet) {
  std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
  std::string s(length, 'A');
  for (char& c : s) c = alphabet[pick(rng)];
  return s;
}

std::size_t classOf(char c) {
  switch (c) {
    case 'A': return kA;
    case 'C': return kC;
    case 'G': return kG;
    case 'T': return kT;
    case 'N': return kN;
    default: return kOther;
  }
}

// Every vector level (a level the processor lacks falls back to the next lower one).
const Simd kLevels[] = {Simd::Avx2, Simd::Sse2, Simd::None};

TEST(MetricsBaseCounts, EveryLevelAgreesWithHandCounts) {
  // Skewed towards A/C/G/T as in real reads, with every other kind of byte present.
  const std::string alphabet = "ACGTACGTACGTACGTNNacgt.*~!Z";
  for (const Simd simd : kLevels) {
    std::mt19937 rng(11);
    BaseCounts counts(simd);
    std::vector<std::vector<std::uint64_t>> expected;  // [position][class]
    std::uniform_int_distribution<std::size_t> length(0, 70);
    // More than 255 reads, so the 8-bit working counters are folded several times, and a read
    // that grows the longest length after counting has begun.
    for (int r = 0; r < 1200; ++r) {
      const std::size_t n = r == 700 ? 161 : length(rng);
      const std::string read = randomRead(rng, n, alphabet);
      const std::size_t gcLength =
          n == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, n)(rng);
      std::size_t gc = 0;
      if (expected.size() < n) expected.resize(n, std::vector<std::uint64_t>(6, 0));
      for (std::size_t i = 0; i < n; ++i) {
        const std::size_t k = classOf(read[i]);
        ++expected[i][k];
        if (i < gcLength && (k == kC || k == kG)) ++gc;
      }
      ASSERT_EQ(counts.add(bytes(read), n, gcLength), gc)
          << "read " << r << " level " << static_cast<int>(simd);
    }
    const auto totals = counts.totals();
    ASSERT_EQ(totals.size(), expected.size() * kBaseStride);
    for (std::size_t p = 0; p < expected.size(); ++p) {
      for (std::size_t k = 0; k < 6; ++k) {
        EXPECT_EQ(totals[p * kBaseStride + k], expected[p][k])
            << "position " << p << " class " << k << " level " << static_cast<int>(simd);
      }
    }
  }
}

TEST(MetricsBaseCounts, CountersDoNotWrapOnManyIdenticalReads) {
  // 1000 reads of the same 40 bases: every working counter of the read's classes passes 255.
  const std::string read = "ACGTNacgt.ACGTNACGTNACGTNacgt.ACGTNACGTN";
  for (const Simd simd : kLevels) {
    BaseCounts counts(simd);
    for (int r = 0; r < 1000; ++r) counts.add(bytes(read), read.size(), read.size());
    const auto totals = counts.totals();
    ASSERT_EQ(totals.size(), read.size() * kBaseStride);
    for (std::size_t p = 0; p < read.size(); ++p) {
      for (std::size_t k = 0; k < 6; ++k) {
        EXPECT_EQ(totals[p * kBaseStride + k], k == classOf(read[p]) ? 1000u : 0u)
            << p << " " << k << " level " << static_cast<int>(simd);
      }
    }
  }
}

TEST(MetricsBaseCounts, LevelsAreLoweredToWhatTheProcessorHas) {
  EXPECT_EQ(usableSimd(Simd::None), Simd::None);
  EXPECT_EQ(usableSimd(bestSimd()), bestSimd());
  EXPECT_LE(static_cast<int>(usableSimd(Simd::Avx2)), static_cast<int>(bestSimd()));
#if defined(__x86_64__)
  EXPECT_NE(bestSimd(), Simd::None);  // SSE2 is part of every x86-64
#endif
}

TEST(MetricsBaseCounts, NoReadsOrOnlyEmptyReadsGiveNoPositions) {
  BaseCounts none;
  EXPECT_TRUE(none.totals().empty());
  BaseCounts empty;
  EXPECT_EQ(empty.add(bytes(""), 0, 0), 0u);
  EXPECT_TRUE(empty.totals().empty());
}

TEST(MetricsBaseCounts, GcCountStopsAtTheJudgedLength) {
  // 80 bases: G/C at every even position; only the first 33 (17 G/C) or 65 (33 G/C) are judged.
  std::string read;
  for (int i = 0; i < 40; ++i) read += "GA";
  for (const Simd simd : kLevels) {
    BaseCounts counts(simd);
    EXPECT_EQ(counts.add(bytes(read), read.size(), 33), 17u);
    EXPECT_EQ(counts.add(bytes(read), read.size(), 65), 33u);
    EXPECT_EQ(counts.add(bytes(read), read.size(), 0), 0u);
    EXPECT_EQ(counts.add(bytes(read), read.size(), 80), 40u);
  }
}

TEST(MetricsByteScans, NeighbourDifferencesAndByteSumsMatchPlainLoops) {
  std::mt19937 rng(5);
  for (std::size_t n = 0; n < 100; ++n) {
    for (const std::string alphabet : {"A", "AC", "ACGTN", "!#~IJ"}) {
      const std::string s = randomRead(rng, n, alphabet);
      std::size_t diff = 0;
      std::uint64_t sum = 0;
      for (std::size_t j = 0; j < n; ++j) {
        if (j + 1 < n && s[j] != s[j + 1]) ++diff;
        sum += static_cast<unsigned char>(s[j]);
      }
      EXPECT_EQ(neighbourDifferences(bytes(s), n), diff) << s;
      EXPECT_EQ(neighbourDifferences(bytes(s), n, false), diff) << s;
      EXPECT_EQ(byteSum(bytes(s), n), sum) << s;
      EXPECT_EQ(byteSum(bytes(s), n, false), sum) << s;
    }
  }
  // Bytes of 128 and above count at their unsigned value.
  const std::string high = std::string(40, '\xff');
  EXPECT_EQ(byteSum(bytes(high), high.size()), 40u * 255u);
}

}  // namespace
}  // namespace genostat::metrics_detail
