// The metrics' building blocks where a whole-file golden cannot reach: the vector code against
// plain loops at every level (a golden runs only the processor's best), rules whose inputs would
// take a large file (the frozen duplicate table and its correction), figures a verdict hides (the
// GC deviation) and the tile headers' many forms. Whole files: golden/*.csv.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "metrics_internal.h"

namespace genostat::metrics_detail {
namespace {

const unsigned char* bytes(const std::string& s) { return reinterpret_cast<const unsigned char*>(s.data()); }

std::string randomRead(std::mt19937& rng, std::size_t length, const std::string& alphabet) {
  std::string s(length, 'A');
  for (char& c : s) c = alphabet[rng() % alphabet.size()];
  return s;
}

// Every vector level (a level the processor lacks falls back to the next lower one).
const Simd kLevels[] = {Simd::Avx2, Simd::Sse2, Simd::None};

TEST(MetricsVectorCode, BaseCountsAgreeWithHandCountsAtEveryLevel) {
  const std::string alphabet = "ACGTACGTACGTACGTNNacgt.*~!Z";
  const std::string classes = "ACGTN";
  for (const Simd simd : kLevels) {
    std::mt19937 rng(11);
    BaseCounts counts(simd);
    std::vector<std::uint64_t> expected;  // [position * kBaseStride + class]
    // Over 255 reads, so the 8-bit working counters are folded several times, one read growing
    // the longest length after counting began, and 300 copies of one read that pass 255 alone.
    for (int r = 0; r < 1500; ++r) {
      const std::size_t n = r == 700 ? 161 : r >= 1200 ? 40 : rng() % 71;
      const std::string read = r >= 1200 ? (alphabet + alphabet).substr(0, 40) : randomRead(rng, n, alphabet);
      const std::size_t gcLength = n == 0 ? 0 : rng() % (n + 1);
      std::size_t gc = 0;
      expected.resize(std::max(expected.size(), n * kBaseStride), 0);
      for (std::size_t i = 0; i < n; ++i) {
        const std::size_t k = std::min(classes.find(read[i]), std::size_t{kOther});
        ++expected[i * kBaseStride + k];
        gc += i < gcLength && (k == kC || k == kG);
      }
      ASSERT_EQ(counts.add(bytes(read), n, gcLength), gc) << r << " level " << int(simd);
    }
    EXPECT_TRUE(counts.totals() == expected) << "level " << int(simd);
  }
}

TEST(MetricsVectorCode, NeighbourDifferencesAndByteSumsMatchPlainLoops) {
  std::mt19937 rng(5);
  for (std::size_t n = 0; n < 100; ++n) {
    for (const std::string alphabet : {"A", "AC", "ACGTN", "!#~\xff"}) {
      const std::string s = randomRead(rng, n, alphabet);
      std::size_t diff = 0;
      std::uint64_t sum = 0;
      for (std::size_t j = 0; j < n; ++j) {
        diff += j + 1 < n && s[j] != s[j + 1];
        sum += static_cast<unsigned char>(s[j]);
      }
      for (bool vectorised : {true, false}) {
        EXPECT_EQ(neighbourDifferences(bytes(s), n, vectorised), diff) << s;
        EXPECT_EQ(byteSum(bytes(s), n, vectorised), sum) << s;
      }
    }
  }
}

// Random reads over A/C/G/T/N with planted adapters and near misses anywhere in the read (the
// block edges of the vector search and its padded tail included); every per-position value must
// equal the cumulative count of first hits found by std::string::find.
void expectPlainSubstringSearch(const std::vector<std::string>& adapters, Simd simd, unsigned seed) {
  const std::size_t k = adapters.front().size();
  std::mt19937 rng(seed);
  AdapterScanner scanner(adapters, simd);
  std::vector<std::vector<std::uint64_t>> firstHits(adapters.size(), std::vector<std::uint64_t>(70 - k));
  for (int i = 0; i < 3000; ++i) {
    // The first read is the longest, so that every read counts.
    std::string r = randomRead(rng, i == 0 ? 69 : 1 + rng() % 69, rng() % 4 == 0 ? "ACGTN" : "ACGT");
    for (int plant = rng() % 3; plant < 2 && r.size() >= k; ++plant) {
      std::string a = adapters[rng() % adapters.size()];
      if (rng() % 2 == 0) a[rng() % a.size()] = 'C';  // a near miss (or still a hit)
      const std::size_t room = r.size() - a.size() + 1;
      r.replace(rng() % 2 == 0 ? room - 1 - rng() % std::min<std::size_t>(room, 16) : rng() % room,
                a.size(), a);
    }
    scanner.add(r);
    for (std::size_t a = 0; a < adapters.size(); ++a) {
      const auto at = r.find(adapters[a]);
      if (at != std::string::npos) ++firstHits[a][at];
    }
  }
  const auto values = scanner.groupValues();
  ASSERT_EQ(values.size(), adapters.size());
  for (std::size_t a = 0; a < adapters.size(); ++a) {
    ASSERT_EQ(values[a].size(), 70 - k);  // at most 75 entries: one group per position
    std::uint64_t running = 0;
    for (std::size_t e = 0; e < values[a].size(); ++e) {
      running += firstHits[a][e];
      ASSERT_DOUBLE_EQ(values[a][e], (100.0 * static_cast<double>(running)) / 3000)
          << adapters[a] << " at " << e << " level " << int(simd);
    }
  }
}

TEST(MetricsVectorCode, AdapterSearchAgreesWithAPlainSubstringSearch) {
  for (const Simd simd : kLevels) {
    expectPlainSubstringSearch(adapterSequences(0, ""), simd, 7);
    expectPlainSubstringSearch(adapterSequences(3, "AGATCGGAAGAGCACACGTC"), simd, 8);  // cut to 12
    expectPlainSubstringSearch({"ACG"}, simd, 9);
    expectPlainSubstringSearch({"TTAGGCA"}, simd, 10);
    expectPlainSubstringSearch({"A"}, simd, 11);
    expectPlainSubstringSearch({"CA", "AC", "GG", "TA", "AT", "CC", "GA", "TT"}, simd, 12);
  }
}

TEST(MetricsFormat, TruncatedPercentOfHugeCounts) {
  // 10000 * 2^62 does not fit 64 bits.
  const std::uint64_t half = std::uint64_t{1} << 62;
  EXPECT_EQ(formatTruncatedPercent(half, half * 2), "50.00");
  EXPECT_EQ(formatTruncatedPercent(~std::uint64_t{0} / 3, ~std::uint64_t{0}), "33.33");
}

TEST(MetricsPositionGroups, LongReadsStartWithAShorterGroup) {
  // M = 1000 takes 20-base groups: 10-19, then 20-39 up to 980-999, then 1000 alone. (Shorter
  // reads: golden/groups-*.fastq.gz.)
  const auto groups = positionGroups(1000);
  ASSERT_EQ(groups.size(), 60u);
  EXPECT_EQ(groups[9].label() + " " + groups[10].label() + " " + groups[58].label() + " " + groups[59].label(),
            "10-19 20-39 980-999 1000");
}

TEST(MetricsGc, DeviationFiguresAndTheirThresholds) {
  // Five 16-bp reads with 8 G/C: 2.5, 5, 5, 5, 5, 5, 2.5 on bins 47..53; the band 48..52 centres
  // on 50, sd^2 = 95 / 29; the curve misses by 29.7979... %.
  std::array<double, 101> v{};
  for (int i = 0; i < 5; ++i) GcModel(16).addTo(8, v);
  EXPECT_NEAR(gcDeviation(v), 29.797938767447835, 1e-9);
  // A peak at 0 with a band running off the bottom: the centre is the peak, not the band's mean.
  v = {};
  v[0] = v[1] = 10;
  v[2] = 1;
  const double sd2 = 14.0 / 20.0, pi = 3.14159265358979323846;
  double sum = 0;
  for (int p = 0; p <= 100; ++p) {
    sum += std::fabs(21 * std::exp(-(p * p) / (2 * sd2)) / std::sqrt(2 * pi * sd2) - v[std::size_t(p)]);
  }
  EXPECT_NEAR(gcDeviation(v), (sum / 21) * 100, 1e-9);
  EXPECT_EQ(gcVerdict(15.0), Verdict::Pass);
  EXPECT_EQ(gcVerdict(30.000001), Verdict::Fail);
}

// A distinct 20-base key for every number.
std::string keyFor(std::uint64_t n) {
  std::string s(20, 'A');
  for (std::size_t i = 0; i < 20; ++i, n /= 4) s[19 - i] = "ACGT"[n % 4];
  return s;
}

TEST(MetricsDuplication, TableFreezesAtTheDistinctLimitAndIgnoresLaterKeys) {
  DuplicateTable t;
  // Each key twice in a row: the limit counts distinct keys, so the freeze comes with the first
  // read of the last new key, read 2 * 100 000 - 1.
  for (std::uint64_t i = 0; i < kDistinctLimit; ++i) {
    t.add(keyFor(i));
    if (i + 1 < kDistinctLimit) t.add(keyFor(i));
  }
  t.add(keyFor(kDistinctLimit + 5));  // new after the freeze: counted nowhere
  t.add(keyFor(0));                   // known: counted, the freeze point stays
  EXPECT_EQ(t.distinct(), kDistinctLimit);
  EXPECT_EQ(t.countAtLimit(), 2 * kDistinctLimit - 1);
  EXPECT_EQ(t.totalReads(), 2 * kDistinctLimit + 1);
  const std::map<std::uint64_t, std::uint64_t> levels{{1, 1}, {2, kDistinctLimit - 2}, {3, 1}};
  EXPECT_EQ(t.levels(), levels);
}

TEST(MetricsDuplication, CorrectionForKeysMissedAfterTheFreeze) {
  // T = 200 000, C = 100 000: level 1 holds 50 000 keys, q = (T - C) / T = 1/2, k = 100 000;
  // level 2 holds 50 000, q = (100 000 * 99 999) / (200 000 * 199 999). Uncorrected: 66.67 %.
  const double k2 = 50000 / (1 - (100000.0 * 99999.0) / (200000.0 * 199999.0));
  EXPECT_NEAR(deduplicatedPercentage({{1, 50000}, {2, 50000}}, 100000, 200000),
              (100000 + k2) / (100000 + 2 * k2) * 100, 1e-9);
  // T = 10, C = 5: level 1 with 6 keys is taken as is (T - 6 < 5: the number of keys is compared,
  // not the level); level 2 with one key: q = 2/9, k = 9/7 -> (6 + 9/7) / (6 + 18/7) = 85 %.
  EXPECT_NEAR(deduplicatedPercentage({{1, 6}, {2, 1}}, 5, 10), 85.0, 1e-12);
  // q drops below 1 - 1/1.01 at the third step and becomes 0: the key is taken as is.
  EXPECT_NEAR(deduplicatedPercentage({{900, 1}}, 500, 1000), 100.0 / 900.0, 1e-12);
  EXPECT_NEAR(deduplicatedPercentage({{1000, 1}}, 10, 1000), 0.1, 1e-12);
}

// Which headers give a tile number. (Sampling, the tile limit and the verdicts: golden/tiles-*.)
TEST(MetricsTiles, HeadersThatAbandonTheModule) {
  const std::pair<std::string, bool> firstHeaders[] = {
      {"@SRR1.1 length=5", true}, {"@A:B:C:0", true},
      {"@A:B:C:0:x:y", true},     // six fields: the third (C) is read
      {"@a:b:c:d::", true},       // trailing empty fields do not count: four
      {"@a:b:12:d:e::", false},   // five fields once the empty ones go: tile 12
      {"@i:r:f:1:+12:1:2", false}, {"@i:r:f:1:-2147483648:1:2", false},
      {"@i:r:f:1:2147483648:1:2", true}, {"@i:r:f:1:1101 1:1:2", true}, {"@i:r:f:1:+:1:2", true}};
  for (const auto& [h, abandoned] : firstHeaders) {
    TileTracker t;
    t.add(h, "IIIII");
    EXPECT_EQ(t.abandoned(), abandoned) << h;
  }
  TileTracker tooFew;
  tooFew.add("@M1:7:FC1:1:1101:100:200", "II5");
  tooFew.add("@x:y:3", "II5");  // fewer fields than the chosen index needs
  EXPECT_TRUE(tooFew.abandoned());
}

}  // namespace
}  // namespace genostat::metrics_detail
