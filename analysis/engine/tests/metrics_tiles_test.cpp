// Per-tile quality: header parsing, sampling, abandonment and the deviation verdict.
#include <gtest/gtest.h>

#include <string>

#include "metrics_internal.h"

namespace genostat::metrics_detail {
namespace {

std::string header(int tile) { return "@M1:7:FC1:1:" + std::to_string(tile) + ":100:200 1:N:0:1"; }

TEST(MetricsTiles, NewStyleHeadersUseTheFifthField) {
  TileTracker t;
  t.add(header(1101), "IIII5");
  t.add(header(1102), "IIII5");
  EXPECT_FALSE(t.abandoned());
  EXPECT_EQ(t.tileCount(), 2u);
  EXPECT_EQ(t.verdict(), Verdict::Pass);
}

TEST(MetricsTiles, OldStyleHeadersUseTheThirdField) {
  // 5 fields: @HWUSI-EAS100R, 6, 73, 941, 1973#0/1 -> tile 73.
  TileTracker t;
  t.add("@HWUSI-EAS100R:6:73:941:1973#0/1", "IIII5");
  t.add("@HWUSI-EAS100R:6:74:941:1973#0/1", "IIII5");
  EXPECT_EQ(t.tileCount(), 2u);
  EXPECT_EQ(t.verdict(), Verdict::Pass);
}

TEST(MetricsTiles, HeadersWithoutTileFieldsMakeTheModuleAbsent) {
  const char* bad[] = {
      "@SRR1.1 length=5",      // one field
      "@A:B:C:0",              // four fields
      "@A:B:C:0:x:y",          // six fields: the third (C) is read, not a number
      "@a:b:c:d::",            // trailing empty fields do not count: four fields
  };
  for (const char* h : bad) {
    TileTracker t;
    t.add(h, "IIIII");
    EXPECT_TRUE(t.abandoned()) << h;
    EXPECT_EQ(t.verdict(), Verdict::Absent) << h;
  }
  // Seven raw fields, but the two trailing empty ones are dropped: five fields, tile is the
  // third field (12), not the fifth (which would be empty and fail).
  TileTracker t;
  t.add("@a:b:12:d:e::", "IIIII");
  EXPECT_FALSE(t.abandoned());
  EXPECT_EQ(t.tileCount(), 1u);
}

TEST(MetricsTiles, TileFieldMustBeA32BitInteger) {
  const char* good[] = {"1101", "+12", "-3", "007", "2147483647", "-2147483648"};
  for (const char* f : good) {
    TileTracker t;
    t.add(std::string("@i:r:f:1:") + f + ":1:2", "II");
    EXPECT_FALSE(t.abandoned()) << f;
  }
  const char* badFields[] = {"X12", "1101 1", "", "+", "12a", "2147483648", "-2147483649", "1.5"};
  for (const char* f : badFields) {
    TileTracker t;
    t.add(std::string("@i:r:f:1:") + f + ":1:2", "II");
    EXPECT_TRUE(t.abandoned()) << f;
  }
}

TEST(MetricsTiles, ALaterSampledReadWithABadHeaderAbandons) {
  // 12 000 reads; after read 10 000 only every tenth is sampled. Read 11 010 is sampled, so its
  // bad header makes the module absent; read 11 002 is not looked at.
  for (int badRead : {11010, 11002}) {
    TileTracker t;
    for (int k = 1; k <= 12000; ++k) {
      t.add(k == badRead ? "@SRR1.1" : header(1101 + k % 3), "IIII5");
    }
    EXPECT_EQ(t.abandoned(), badRead == 11010) << badRead;
  }
  // A later read with too few fields for the chosen index also abandons.
  TileTracker t;
  t.add(header(1), "II5");
  t.add("@x:y:z:w:v", "II5");  // 5 fields, index 4 exists -> "v" is not a number
  EXPECT_TRUE(t.abandoned());
  TileTracker u;
  u.add(header(1), "II5");
  u.add("@x:y:3", "II5");
  EXPECT_TRUE(u.abandoned());
}

TEST(MetricsTiles, ReadsWithoutQualityAreNotNumbered) {
  // Ten empty reads shift the numbering: read 11 020 of the file is the 11 010th numbered read,
  // so a bad header there is sampled.
  TileTracker t;
  for (int k = 1; k <= 10; ++k) t.add("@whatever", "");
  for (int k = 11; k <= 12000; ++k) t.add(k == 11020 ? "@SRR1.1" : header(5), "IIII5");
  EXPECT_TRUE(t.abandoned());
  // Only empty quality strings: nothing used, module absent though never abandoned.
  TileTracker e;
  e.add(header(1), "");
  EXPECT_FALSE(e.abandoned());
  EXPECT_EQ(e.verdict(), Verdict::Absent);
}

TEST(MetricsTiles, MoreThan2501TilesAbandon) {
  TileTracker t;
  for (int tile = 1; tile <= 2501; ++tile) t.add(header(tile), "5");
  EXPECT_FALSE(t.abandoned());
  EXPECT_EQ(t.tileCount(), 2501u);
  t.add(header(7), "5");  // known tile: fine
  EXPECT_FALSE(t.abandoned());
  t.add(header(2502), "5");
  EXPECT_TRUE(t.abandoned());
  EXPECT_EQ(t.verdict(), Verdict::Absent);
}

TEST(MetricsTiles, DeviationThresholdsAreFiveAndTenEitherWay) {
  // Two tiles, one position: A = mean of the two, D = half the difference.
  struct Case {
    char better;
    Verdict expected;
  } cases[] = {
      {'?', Verdict::Pass},  // Q30 vs Q20: D = 5, not above
      {'@', Verdict::Warn},  // Q31: D = 5.5
      {'I', Verdict::Warn},  // Q40: D = 10
      {'J', Verdict::Fail},  // Q41: D = 10.5
  };
  for (const auto& c : cases) {
    TileTracker t;
    t.add(header(1), "5");
    t.add(header(2), std::string(1, c.better));
    EXPECT_EQ(t.verdict(), c.expected) << c.better;
  }
}

TEST(MetricsTiles, TileWithOnlyShortReadsScoresZeroInLaterGroups) {
  // Tiles 1 and 2 have 100-bp reads, tile 3 40-bp reads, all Q20. In group 42-43 tile 3 has no
  // observation and scores 0: A = (20 + 20 + 0) / 3 = 13.33, D = 13.33 > 10 -> fail.
  TileTracker t;
  for (int i = 0; i < 30; ++i) {
    t.add(header(1), std::string(100, '5'));
    t.add(header(2), std::string(100, '5'));
    t.add(header(3), std::string(40, '5'));
  }
  EXPECT_NEAR(t.maxDeviation(), 40.0 / 3, 1e-12);
  EXPECT_EQ(t.verdict(), Verdict::Fail);
}

TEST(MetricsTiles, GroupMeanAveragesPositionMeans) {
  // 76-bp reads -> group 10-11. Tile 1: a 76-bp read with Q0 at position 10 and Q30 at 11, and
  // a 10-bp read with Q0 at position 10; everything else Q15 ('0'). Position means: 10 -> 0,
  // 11 -> 30, so the group scores (0 + 30) / 2 = 15 (pooling the three values would give 10).
  // Tile 2 is Q15 everywhere. Every group then agrees: D = 0.
  std::string longRead(76, '0');
  longRead[9] = '!';
  longRead[10] = '?';
  std::string shortRead(10, '0');
  shortRead[9] = '!';
  TileTracker t;
  t.add(header(1), longRead);
  t.add(header(1), shortRead);
  t.add(header(2), std::string(76, '0'));
  EXPECT_DOUBLE_EQ(t.maxDeviation(), 0.0);
}

}  // namespace
}  // namespace genostat::metrics_detail
