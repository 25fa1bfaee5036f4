// What keeps the accumulator's memory and per-file cost small must not change a figure: long
// reads keeping the positions that at most 100 reads reach as text, tables reused from file to
// file, tile sums added many codes at a time.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "genostat/metrics.h"
#include "metrics_internal.h"

namespace genostat {
namespace {

struct Case {
  const char* name;
  std::size_t reads;
  std::size_t shortest;
  std::size_t longest;
  int order;  // 0 as drawn, 1 ascending, -1 descending
  // Tile 1 holds the first fifth of the reads, tiles 2 and 3 the rest in turn, each a read of the
  // longest length, at Q10, Q20 and Q30: the tiles' group means stay 10 from their average (warn)
  // unless a tile misses a group (fail). Otherwise tiles and qualities are drawn.
  bool steady;
  unsigned seed;  // cases of one seed hold the same reads
};

// One accumulator keeps all but the first ten positions of long reads as text and is reset
// between the cases; the other counts every position.
TEST(MetricsLongReads, RowsDoNotDependOnWhichPositionsAreKeptAsText) {
  const Case cases[] = {
      {"fewer than 101 reads", 80, 20, 2500, 0, false, 1},
      {"rising lengths", 300, 10, 3000, 1, true, 2},
      {"falling lengths", 300, 10, 3000, -1, true, 3},
      {"random lengths", 400, 1, 5000, 0, false, 4},
      {"short reads", 250, 0, 160, 0, true, 5},
      {"one length", 250, 100, 100, 0, true, 6},
      {"the same reads again", 250, 100, 100, 0, true, 6},
  };
  MetricsOptions tails;
  tails.densePositions = 10;
  MetricsOptions dense;
  dense.densePositions = std::size_t{1} << 40;
  SampleMetrics reused(tails);
  std::uint64_t state = 0;
  const auto draw = [&state](std::size_t n) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<std::size_t>((state >> 33) % n);
  };
  for (const Case& c : cases) {
    state = c.seed;
    std::vector<std::size_t> lengths(c.reads);
    for (auto& l : lengths) l = c.shortest + draw(c.longest - c.shortest + 1);
    if (c.order > 0) std::sort(lengths.begin(), lengths.end());
    if (c.order < 0) std::sort(lengths.rbegin(), lengths.rend());
    const std::size_t fifth = c.reads / 5;
    if (c.steady) lengths[0] = lengths[fifth] = lengths[fifth + 1] = c.longest;
    SampleMetrics all(dense);
    std::string previous;
    for (std::size_t i = 0; i < lengths.size(); ++i) {
      // New tile numbers in every case; N and odd letters here and there, now and then the
      // adapter near the end (where long reads keep their text), and duplicates.
      const std::size_t tile = !c.steady ? 1 + draw(3) : i < fifth ? 1 : 2 + i % 2;
      const std::string header = "@i:1:f:1:" + std::to_string(10 * (&c - cases) + tile) + ":5:5";
      std::string sequence(lengths[i], 'A');
      std::string quality(lengths[i], static_cast<char>('!' + 10 * tile));
      for (std::size_t p = 0; p < lengths[i]; ++p) {
        const std::size_t x = draw(1000);
        sequence[p] = x < 20 ? 'N' : x < 23 ? 'R' : "ACGT"[x % 4];
        if (!c.steady) quality[p] = static_cast<char>('!' + 8 * tile + draw(14));
      }
      if (lengths[i] >= 40 && draw(12) == 0) sequence.replace(lengths[i] - 30, 12, "AGATCGGAAGAG");
      if (i > 0 && lengths[i] == lengths[i - 1] && draw(2) == 0) sequence = previous;
      previous = sequence;
      const FastqRecord record{header, sequence, quality};
      all.add(record);
      reused.add(record);
    }
    EXPECT_EQ(reused.finish("s"), all.finish("s")) << c.name;
    reused.reset();
  }
}

TEST(MetricsDuplicateTable, ResetForgetsEveryKey) {
  // Keys met again after a reset, in another order, are new keys.
  metrics_detail::DuplicateTable table;
  table.add("ACGT");
  table.add("TTTT");
  table.reset();
  table.add("TTTT");
  table.add("TTTT");
  EXPECT_EQ(table.counts(), std::vector<std::uint64_t>{2});
}

TEST(MetricsTileSums, EveryLevelAgreesWithOneCodeAtATime) {
  // One read of random qualities beside one of steady quality: the deviation is that of the
  // most extreme code, so a code added at the wrong position shows. Every length around the
  // 8-, 16- and 32-code steps.
  using metrics_detail::Simd;
  using metrics_detail::TileTracker;
  std::mt19937 rng(5);
  for (std::size_t length = 1; length <= 100; ++length) {
    TileTracker levels[] = {TileTracker(Simd::None), TileTracker(Simd::Sse2),
                            TileTracker(Simd::Avx2)};
    std::string quality(length, '!');
    for (char& c : quality) c = static_cast<char>('!' + rng() % 94);
    for (auto& t : levels) {
      t.add("@i:1:f:1:1:5:5", quality);
      t.add("@i:1:f:1:2:5:5", std::string(length, 'I'));
      EXPECT_EQ(t.maxDeviation(), levels[0].maxDeviation()) << length;
    }
  }
}

TEST(MetricsQualityCounts, EveryPositionHoldsWhatItWasGiven) {
  // Positions from 3 on laid out code by code, reads growing in length (the layout widens as
  // they do), some counted in two steps, and more reads than a 16-bit counter holds.
  metrics_detail::QualityCounts counts(3);
  std::vector<std::array<std::uint64_t, 94>> expected(12, std::array<std::uint64_t, 94>{});
  std::mt19937 rng(3);
  for (std::size_t r = 0; r < 70000; ++r) {
    std::string quality(rng() % (1 + std::min<std::size_t>(r, 12)), '!');
    for (char& c : quality) c = static_cast<char>('!' + rng() % 94);
    for (std::size_t p = 0; p < quality.size(); ++p) ++expected[p][quality[p] - '!'];
    const auto* q = reinterpret_cast<const unsigned char*>(quality.data());
    const std::size_t first = r % 7 == 0 ? quality.size() / 2 : quality.size();
    counts.add(q, first);
    counts.extend(q + first, first, quality.size());
  }
  ASSERT_EQ(counts.positions(), expected.size());
  std::array<std::uint64_t, 94> got;
  for (std::size_t p = 0; p < expected.size(); ++p) {
    counts.countsAt(p, got);
    EXPECT_EQ(got, expected[p]) << p;
  }

  // The tails of reads added before a fold (as long reads' tails are) reach a position after a
  // full 16-bit counter's worth of new reads: the count must not wrap.
  metrics_detail::QualityCounts late(3);
  const auto* q = reinterpret_cast<const unsigned char*>("IIIIIIII");
  for (int r = 0; r < 100; ++r) late.add(q, 4);
  for (int r = 0; r < 2 * 65535 - 101; ++r) late.add(q, 8);
  for (int r = 0; r < 100; ++r) late.extend(q, 4, 8);
  late.countsAt(5, got);
  EXPECT_EQ(got['I' - '!'], 2u * 65535 - 1);
}

}  // namespace
}  // namespace genostat
