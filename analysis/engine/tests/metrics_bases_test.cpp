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

TEST(MetricsBaseCounts, VectorAndScalarAgreeWithHandCounts) {
  std::mt19937 rng(11);
  // Skewed towards A/C/G/T as in real reads, with every other kind of byte present.
  const std::string alphabet = "ACGTACGTACGTACGTNNacgt.*~!Z";
  BaseCounts vector(true);
  BaseCounts scalar(false);
  std::vector<std::vector<std::uint64_t>> expected;  // [position][class]
  std::uniform_int_distribution<std::size_t> length(0, 70);
  // More than 255 reads, so the 8-bit working counters are folded several times, and reads that
  // grow the longest length after counting has begun.
  for (int r = 0; r < 1200; ++r) {
    const std::size_t n = r == 700 ? 161 : length(rng);
    const std::string read = randomRead(rng, n, alphabet);
    const std::size_t gcLength = n == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, n)(rng);
    std::size_t gc = 0;
    if (expected.size() < n) expected.resize(n, std::vector<std::uint64_t>(6, 0));
    for (std::size_t i = 0; i < n; ++i) {
      const std::size_t k = classOf(read[i]);
      ++expected[i][k];
      if (i < gcLength && (k == kC || k == kG)) ++gc;
    }
    ASSERT_EQ(vector.add(bytes(read), n, gcLength), gc) << "read " << r;
    ASSERT_EQ(scalar.add(bytes(read), n, gcLength), gc) << "read " << r;
  }
  const auto fromVector = vector.totals();
  const auto fromScalar = scalar.totals();
  ASSERT_EQ(fromVector.size(), expected.size() * kBaseStride);
  EXPECT_EQ(fromVector, fromScalar);
  for (std::size_t p = 0; p < expected.size(); ++p) {
    for (std::size_t k = 0; k < 6; ++k) {
      EXPECT_EQ(fromVector[p * kBaseStride + k], expected[p][k]) << "position " << p << " class " << k;
    }
  }
}

TEST(MetricsBaseCounts, CountersDoNotWrapOnManyIdenticalReads) {
  // 1000 reads of the same 20 bases: every working counter of the read's classes passes 255.
  const std::string read = "ACGTNacgt.ACGTNACGTN";
  BaseCounts vector(true);
  BaseCounts scalar(false);
  for (int r = 0; r < 1000; ++r) {
    vector.add(bytes(read), read.size(), read.size());
    scalar.add(bytes(read), read.size(), read.size());
  }
  const auto totals = vector.totals();
  EXPECT_EQ(totals, scalar.totals());
  ASSERT_EQ(totals.size(), read.size() * kBaseStride);
  for (std::size_t p = 0; p < read.size(); ++p) {
    for (std::size_t k = 0; k < 6; ++k) {
      EXPECT_EQ(totals[p * kBaseStride + k], k == classOf(read[p]) ? 1000u : 0u) << p << " " << k;
    }
  }
}

TEST(MetricsBaseCounts, NoReadsOrOnlyEmptyReadsGiveNoPositions) {
  BaseCounts none;
  EXPECT_TRUE(none.totals().empty());
  BaseCounts empty;
  EXPECT_EQ(empty.add(bytes(""), 0, 0), 0u);
  EXPECT_TRUE(empty.totals().empty());
}

TEST(MetricsBaseCounts, GcCountStopsAtTheJudgedLength) {
  // 40 bases: G/C at every even position; only the first 33 are judged (17 of them G/C).
  std::string read;
  for (int i = 0; i < 20; ++i) read += "GA";
  BaseCounts vector(true);
  BaseCounts scalar(false);
  EXPECT_EQ(vector.add(bytes(read), read.size(), 33), 17u);
  EXPECT_EQ(scalar.add(bytes(read), read.size(), 33), 17u);
  EXPECT_EQ(vector.add(bytes(read), read.size(), 0), 0u);
  EXPECT_EQ(vector.add(bytes(read), read.size(), 40), 20u);
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
