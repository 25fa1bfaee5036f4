// SampleMetrics end to end: crafted reads in, the 27 fields out. Each expectation is derived by
// hand in the comment beside it.
#include "genostat/metrics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace genostat {
namespace {

struct Read {
  std::string header;
  std::string sequence;
  std::string quality;
};

using Row = std::vector<std::string>;

Row run(const std::vector<Read>& reads, MetricsOptions options = {}) {
  SampleMetrics m(options);
  for (const Read& r : reads) m.add(FastqRecord{r.header, r.sequence, r.quality});
  return m.finish("sample");
}

// Index of a column by name, so a test reads like the CSV.
std::size_t col(const std::string& name) {
  const auto& names = csvColumnNames();
  const auto it = std::find(names.begin(), names.end(), name);
  if (it == names.end()) throw std::logic_error("no column " + name);
  return static_cast<std::size_t>(it - names.begin());
}

Read read(const std::string& seq, char q = 'I', const std::string& header = "@r") {
  return {header, seq, std::string(seq.size(), q)};
}

std::vector<Read> repeat(const Read& r, int n) { return std::vector<Read>(static_cast<std::size_t>(n), r); }

// A distinct sequence of `len` bases for every number: base-4 digits from the left (so the first
// bases differ and keys cut to 50 bases stay distinct), padded with A.
std::string distinct(std::uint64_t n, std::size_t len) {
  std::string s(len, 'A');
  for (std::size_t i = 0; i < len && n > 0; ++i, n /= 4) s[i] = "ACGT"[n % 4];
  return s;
}

TEST(MetricsColumns, NamesAndOrder) {
  const auto& names = csvColumnNames();
  ASSERT_EQ(names.size(), 27u);
  std::string joined;
  for (const auto& n : names) joined += (joined.empty() ? "" : ",") + n;
  EXPECT_EQ(joined,
            "Sample,Adapter_Type,Total_Sequences,Total_Bases,Sequence_length,GC,"
            "total_deduplicated_percentage,avg_sequence_length,median_sequence_length,"
            "basic_statistics,per_base_sequence_quality,per_sequence_quality_scores,"
            "per_base_sequence_content,per_sequence_gc_content,per_base_n_content,"
            "sequence_length_distribution,sequence_duplication_levels,overrepresented_sequences,"
            "adapter_content,per_tile_sequence_quality,qc_score,median_phred_first_10bp,"
            "median_phred_last_10bp,mean_phred_all_reads,low_complexity_percentage,"
            "unexpected_bases_percentage,overrepresented_seq_count");
}

TEST(MetricsEmptyFile, EveryAbsentAndZeroRule) {
  // Eight modules report: seven pass, adapter warns (no read long enough); the three quality
  // modules are absent. qc_score = 100 * 7.5 / 8 = 93.75.
  const Row expected = {"sample", "NONE", "0",    "0",     "0",    "0.00", "100.00", "",     "",
                        "pass",   "",     "",     "pass",  "pass", "pass", "pass",   "pass", "pass",
                        "warn",   "",     "93.75", "",     "",     "",     "",       "",     "0"};
  EXPECT_EQ(run({}), expected);
}

TEST(MetricsIdentity, SampleNameAndAdapterKeywordArePassedThrough) {
  MetricsOptions o;
  o.adapter = AdapterSetting::Custom;
  o.customSequence = "ACGTTT";
  SampleMetrics m(o);
  const Row r = m.finish("a,b \"c\"");
  EXPECT_EQ(r[0], "a,b \"c\"");  // quoting is the writer's business
  EXPECT_EQ(r[1], "CUSTOM");
  o.adapter = AdapterSetting::Illumina;
  EXPECT_EQ(run({}, o)[1], "ILLUMINA");
  o.adapter = AdapterSetting::Nextera;
  EXPECT_EQ(run({}, o)[1], "NEXTERA");
}

TEST(MetricsIdentity, CustomAdapterThatCannotBeSearchedIsRefused) {
  MetricsOptions o;
  o.adapter = AdapterSetting::Custom;
  o.customSequence = "";
  EXPECT_THROW(SampleMetrics{o}, std::invalid_argument);
  o.customSequence = "ACGN";
  EXPECT_THROW(SampleMetrics{o}, std::invalid_argument);
}

TEST(MetricsBasic, CountsLengthsAndGc) {
  // 3 reads: "GCAN" (4), "AT" (2), "" (0). Bases 6. Lengths 0..4 -> "0-4".
  // GC: G+C = 2, A+C+G+T = 5 (N ignored) -> 40.00. Length: an empty read fails the module.
  const Row r = run({read("GCAN"), read("AT"), read("")});
  EXPECT_EQ(r[col("Total_Sequences")], "3");
  EXPECT_EQ(r[col("Total_Bases")], "6");
  EXPECT_EQ(r[col("Sequence_length")], "0-4");
  EXPECT_EQ(r[col("GC")], "40.00");
  EXPECT_EQ(r[col("basic_statistics")], "pass");
  EXPECT_EQ(r[col("sequence_length_distribution")], "fail");
  // Bins 0..5 (W = 1, lo stays 0, hi 5, the empty 5 dropped): mean (0 + 2 + 4) / 3 = 2.00,
  // median: running 1, 1, 2 reaches 1.5 at length 2.
  EXPECT_EQ(r[col("avg_sequence_length")], "2.00");
  EXPECT_EQ(r[col("median_sequence_length")], "2");
}

TEST(MetricsBasic, GcTruncatesAndIgnoresN) {
  // G+C = 2 of A+C+G+T = 3: 66.666... -> 66.66, not 66.67.
  EXPECT_EQ(run({read("GCANNNN")})[col("GC")], "66.66");
  EXPECT_EQ(run({read("GAANNNN")})[col("GC")], "33.33");
  // No A/C/G/T at all.
  EXPECT_EQ(run({read("NNNN")})[col("GC")], "0.00");
}

TEST(MetricsBasic, SequenceLengthSingleOrRange) {
  EXPECT_EQ(run(repeat(read("ACGTACGTAC"), 3))[col("Sequence_length")], "10");
  EXPECT_EQ(run({read("ACG"), read("ACGTACG")})[col("Sequence_length")], "3-7");
  EXPECT_EQ(run({read("")})[col("Sequence_length")], "0");
}

TEST(MetricsLengths, OneLengthPassesTwoWarnEmptyFails) {
  EXPECT_EQ(run(repeat(read("ACGT"), 5))[col("sequence_length_distribution")], "pass");
  EXPECT_EQ(run({read("ACGT"), read("ACG")})[col("sequence_length_distribution")], "warn");
  EXPECT_EQ(run({read("ACGT"), read(""), read("ACGT")})[col("sequence_length_distribution")], "fail");
}

TEST(MetricsLengths, MeanAndMedianFollowTheBinnedDistribution) {
  // 36 bp and 151 bp: 5-bp bins, 36 counts as 37 (bin 35-39), 151 as 151 (bin 150-152):
  // mean (74 + 302) / 4 = 94.00 (the exact mean would be 93.50); median 37.
  const Row r = run({read(std::string(36, 'A')), read(std::string(151, 'C'))});
  EXPECT_EQ(r[col("avg_sequence_length")], "94.00");
  EXPECT_EQ(r[col("median_sequence_length")], "37");
}

TEST(MetricsQuality, HighQualityPhred33IsReadAsPhred64) {
  // Lowest character 'I' (73) >= 64: offset 64, every 'I' is Q9. The one read's mean is 9, the
  // mode 9 <= 20 -> fail. Medians and mean are 9 too. One read (<= 100) cannot fail per base.
  const Row r = run({read("ACGTACGTAC", 'I')});
  EXPECT_EQ(r[col("per_sequence_quality_scores")], "fail");
  EXPECT_EQ(r[col("per_base_sequence_quality")], "pass");
  EXPECT_EQ(r[col("median_phred_first_10bp")], "9.00");
  EXPECT_EQ(r[col("median_phred_last_10bp")], "9.00");
  EXPECT_EQ(r[col("mean_phred_all_reads")], "9.00");
  // One '5' (53) anywhere in the file switches the whole file back to offset 33: 'I' is Q40.
  Read mixed = read("ACGTACGTAC", 'I');
  mixed.quality[0] = '5';
  const Row r2 = run({read("ACGTACGTAC", 'I'), mixed});
  EXPECT_EQ(r2[col("median_phred_first_10bp")], "40.00");
  EXPECT_EQ(r2[col("per_sequence_quality_scores")], "pass");  // means 40 and 38 (38.0)
}

TEST(MetricsQuality, AtMost100ReadsNeverWarnPerBase) {
  // ')' is Q8: lower quartile 8 >= 5, median 8 < 20 -> fail, but only where a position has more
  // than 100 observations.
  EXPECT_EQ(run(repeat(read("ACGTA", ')'), 100))[col("per_base_sequence_quality")], "pass");
  EXPECT_EQ(run(repeat(read("ACGTA", ')'), 101))[col("per_base_sequence_quality")], "fail");
}

TEST(MetricsQuality, PercentileRankIsFloorOfNTimesP) {
  // 101 one-base reads: 50 at Q15 ('0'), 51 at Q30 ('?'). Median target 101 * 50 div 100 = 50:
  // the 50th smallest is Q15 -> median 15 < 20 -> fail (the textbook median, the 51st, is 30).
  std::vector<Read> reads = repeat(read("A", '0'), 50);
  for (int i = 0; i < 51; ++i) reads.push_back(read("A", '?'));
  EXPECT_EQ(run(reads)[col("per_base_sequence_quality")], "fail");
  // 49 at Q15 and 52 at Q30: the 50th is Q30; lower quartile (target 25) Q15 -> pass.
  reads = repeat(read("A", '0'), 49);
  for (int i = 0; i < 52; ++i) reads.push_back(read("A", '?'));
  EXPECT_EQ(run(reads)[col("per_base_sequence_quality")], "pass");
}

TEST(MetricsQuality, GroupsAveragePerPositionPercentiles) {
  // 101 reads of 76 bp, all Q30 ('?') except position 11 at Q14 ('/'). Group 10-11 averages the
  // per-position medians (30 + 14) / 2 = 22 < 25 -> warn; lower quartile 22 is fine. Pooling
  // the group (202 values, target 101 -> Q14) would fail instead.
  Read r = read(std::string(76, 'C'), '?');
  r.quality[10] = '/';
  EXPECT_EQ(run(repeat(r, 101))[col("per_base_sequence_quality")], "warn");
  // Lower-quartile rule: Q9 at position 11 -> group LQ (30 + 9) / 2 = 19.5 fine, median 19.5 < 20
  // -> fail.
  r.quality[10] = '*';
  EXPECT_EQ(run(repeat(r, 101))[col("per_base_sequence_quality")], "fail");
}

TEST(MetricsQuality, PerSequenceModeUsesLessOrEqualAndLowestTie) {
  auto verdict = [](char q) { return run(repeat(read("ACGTACGT", q), 4))[col("per_sequence_quality_scores")]; };
  EXPECT_EQ(verdict('<'), "warn");  // Q27
  EXPECT_EQ(verdict('='), "pass");  // Q28
  EXPECT_EQ(verdict('5'), "fail");  // Q20
  EXPECT_EQ(verdict('6'), "warn");  // Q21
  // Half the reads at Q20, half at Q30: tie, the lowest mode (20) -> fail.
  std::vector<Read> reads = repeat(read("ACGT", '5'), 3);
  for (int i = 0; i < 3; ++i) reads.push_back(read("ACGT", '?'));
  EXPECT_EQ(run(reads)[col("per_sequence_quality_scores")], "fail");
}

TEST(MetricsQuality, ReadMeanIsFloored) {
  // Nine Q28 ('=') and one Q27 ('<'): mean 27.9 -> 27 -> warn.
  Read r = read("ACGTACGTAC", '=');
  r.quality[3] = '<';
  EXPECT_EQ(run({r})[col("per_sequence_quality_scores")], "warn");
}

TEST(MetricsContent, DivisionComesBeforeTheMultiplication) {
  // 200 one-base reads: 35 A, 55 T, 55 G, 55 C. %T = (55 / 200) * 100 = 27.500000000000004,
  // %A = 17.5: the difference is just above 10 -> warn. (100 * 55 / 200 would be exactly 27.5.)
  std::vector<Read> reads = repeat(read("A"), 35);
  for (const char* b : {"T", "G", "C"}) {
    for (int i = 0; i < 55; ++i) reads.push_back(read(b));
  }
  EXPECT_EQ(run(reads)[col("per_base_sequence_content")], "warn");
}

TEST(MetricsContent, ImbalanceThresholds) {
  // 10 reads "A"/"T" mixes at one position: 4 A 6 T -> 40/60 -> diff 20 -> warn (not > 20);
  // 3 A 7 T -> diff 40 -> fail; 5/5 -> pass.
  auto verdict = [](int a, int t) {
    std::vector<Read> reads = repeat(read("A"), a);
    for (int i = 0; i < t; ++i) reads.push_back(read("T"));
    return run(reads)[col("per_base_sequence_content")];
  };
  EXPECT_EQ(verdict(5, 5), "pass");
  EXPECT_EQ(verdict(4, 6), "warn");
  EXPECT_EQ(verdict(3, 7), "fail");
}

TEST(MetricsContent, AllNGroupsAreIgnoredButFailNContent) {
  // No A/C/G/T: 0 / 0 = NaN, never above a threshold -> pass; N is 100 % -> fail.
  const Row r = run(repeat(read("NNNNN"), 10));
  EXPECT_EQ(r[col("per_base_sequence_content")], "pass");
  EXPECT_EQ(r[col("per_base_n_content")], "fail");
  EXPECT_EQ(r[col("GC")], "0.00");
}

TEST(MetricsContent, NContentThresholds) {
  // 100 one-base reads with k of them N: (k / 100) * 100 = k %.
  auto verdict = [](int n) {
    std::vector<Read> reads = repeat(read("N"), n);
    for (int i = n; i < 100; ++i) reads.push_back(read("A"));
    return run(reads)[col("per_base_n_content")];
  };
  EXPECT_EQ(verdict(5), "pass");
  EXPECT_EQ(verdict(6), "warn");
  EXPECT_EQ(verdict(20), "warn");
  EXPECT_EQ(verdict(21), "fail");
}

TEST(MetricsGc, FiveShortReadsWarn) {
  // 16 bp, 8 G/C: bins 47..53 with 2.5, 5, 5, 5, 5, 5, 2.5 -> deviation 29.8 % -> warn.
  EXPECT_EQ(run(repeat(read("ACGTACGTACGTACGT"), 5))[col("per_sequence_gc_content")], "warn");
}

TEST(MetricsGc, DegenerateCases) {
  // One 100-bp read: S = 1 -> infinite spread -> 100 % -> fail.
  EXPECT_EQ(run({read(std::string(50, 'G') + std::string(50, 'A'))})[col("per_sequence_gc_content")], "fail");
  // 200 reads of pure G: spread 0, NaN curve -> pass.
  EXPECT_EQ(run(repeat(read(std::string(100, 'G')), 200))[col("per_sequence_gc_content")], "pass");
  // Only empty reads: nothing is added, NaN -> pass.
  EXPECT_EQ(run(repeat(read(""), 3))[col("per_sequence_gc_content")], "pass");
}

TEST(MetricsGc, LongReadsAreJudgedOnWholeHundreds) {
  // 150-bp reads "100 G + 50 A": only bases 1..100 count, so every read is 100 % GC: one pile at
  // the top bin, the band runs off the top, spread 0, NaN curve -> pass. Judged on all 150 bases
  // (100 of 150) the reads would pile on bins 66 (weight 1/3) and 67 (1/2), a narrow peak a
  // normal curve misses by about 43 % -> fail.
  EXPECT_EQ(run(repeat(read(std::string(100, 'G') + std::string(50, 'A')), 200))[col("per_sequence_gc_content")],
            "pass");
}

TEST(MetricsDuplication, KeysAreCutTo50Bases) {
  // 400 reads of 51 bp, identical in their first 50 bases: one key counted 400 times.
  // Deduplicated 1 / 400 -> 0.25 % -> fail; the key is 100 % of reads -> overrepresented fail.
  std::vector<Read> reads;
  for (int i = 0; i < 400; ++i) reads.push_back(read(std::string(50, 'C') + "ACGT"[i % 4]));
  const Row r = run(reads);
  EXPECT_EQ(r[col("total_deduplicated_percentage")], "0.25");
  EXPECT_EQ(r[col("sequence_duplication_levels")], "fail");
  EXPECT_EQ(r[col("overrepresented_sequences")], "fail");
  EXPECT_EQ(r[col("overrepresented_seq_count")], "1");
  // 50-bp reads differing in the last base stay four keys: 1 % of ... each 25 % -> 4 keys.
  reads.clear();
  for (int i = 0; i < 400; ++i) reads.push_back(read(std::string(49, 'C') + "ACGT"[i % 4]));
  const Row r2 = run(reads);
  EXPECT_EQ(r2[col("total_deduplicated_percentage")], "1.00");
  EXPECT_EQ(r2[col("overrepresented_seq_count")], "4");
}

TEST(MetricsDuplication, Thresholds) {
  // 10 reads, 5 distinct sequences each twice: 50 % -> warn (not < 50). 3 distinct of 10
  // (4, 3, 3) -> 30 % -> fail. 7 distinct of 10 -> 70 % -> pass.
  auto verdict = [](std::vector<int> copies) {
    std::vector<Read> reads;
    for (std::size_t k = 0; k < copies.size(); ++k) {
      for (int i = 0; i < copies[k]; ++i) reads.push_back(read(distinct(k, 8)));
    }
    const Row r = run(reads);
    return r[col("total_deduplicated_percentage")] + " " + r[col("sequence_duplication_levels")];
  };
  EXPECT_EQ(verdict({2, 2, 2, 2, 2}), "50.00 warn");
  EXPECT_EQ(verdict({4, 3, 3}), "30.00 fail");
  EXPECT_EQ(verdict({4, 1, 1, 1, 1, 1, 1}), "70.00 pass");
}

TEST(MetricsDuplication, SequencesFirstSeenAfterTheFreezeAreInvisible) {
  // 110 000 distinct 60-bp reads, then 20 000 reads drawn from 50 new sequences (400 each).
  // The table froze at read 100 000 with every key counted once: n_1 = 100 000, C = 100 000,
  // T = 130 000; T - n_1 = 30 000 < C -> no correction: 100.00 %, pass; nothing overrepresented.
  std::vector<Read> reads;
  reads.reserve(130000);
  for (std::uint64_t i = 0; i < 110000; ++i) reads.push_back(read(distinct(i, 60)));
  for (int i = 0; i < 20000; ++i) reads.push_back(read(distinct(1000000 + static_cast<std::uint64_t>(i % 50), 60)));
  const Row r = run(reads);
  EXPECT_EQ(r[col("total_deduplicated_percentage")], "100.00");
  EXPECT_EQ(r[col("sequence_duplication_levels")], "pass");
  EXPECT_EQ(r[col("overrepresented_sequences")], "pass");
  EXPECT_EQ(r[col("overrepresented_seq_count")], "0");
}

TEST(MetricsDuplication, CorrectionAfterAnEarlyFreeze) {
  // Reads 1..100 000 distinct (freeze at C = 100 000), then keys 1..50 000 once more and 50 000
  // new keys (ignored). T = 200 000; levels n_1 = 50 000, n_2 = 50 000. Corrected:
  // k_1 = 50 000 / (1 - 1/2) = 100 000; k_2 = 50 000 / (1 - (100000 * 99999) / (200000 *
  // 199999)) = 66 666.56; (100 000 + k_2) / (100 000 + 2 k_2) = 71.43 % -> pass. Without the
  // correction it would be 100 000 / 150 000 = 66.67 % -> warn.
  std::vector<Read> reads;
  reads.reserve(200000);
  for (std::uint64_t i = 0; i < 100000; ++i) reads.push_back(read(distinct(i, 30)));
  for (std::uint64_t i = 0; i < 50000; ++i) {
    reads.push_back(read(distinct(i, 30)));
    reads.push_back(read(distinct(500000 + i, 30)));
  }
  const Row r = run(reads);
  EXPECT_EQ(r[col("total_deduplicated_percentage")], "71.43");
  EXPECT_EQ(r[col("sequence_duplication_levels")], "pass");
}

TEST(MetricsOverrepresented, ExactlyOnePercentOnlyWarns) {
  // 10 000 reads; one sequence 100 times = 1 %: (100 / 10000) * 100 = 1.0, not above 1 -> warn.
  // Another sequence 11 times = 0.11 % > 0.1 -> listed too; 10 times = 0.1 % is not.
  std::vector<Read> reads = repeat(read(distinct(1, 20)), 100);
  for (int i = 0; i < 11; ++i) reads.push_back(read(distinct(2, 20)));
  for (int i = 0; i < 10; ++i) reads.push_back(read(distinct(3, 20)));
  for (std::uint64_t i = 0; reads.size() < 10000; ++i) reads.push_back(read(distinct(100 + i, 20)));
  const Row r = run(reads);
  EXPECT_EQ(r[col("overrepresented_sequences")], "warn");
  EXPECT_EQ(r[col("overrepresented_seq_count")], "2");
}

TEST(MetricsAdaptersColumn, ShortReadsWarnAndPolyAFails) {
  EXPECT_EQ(run(repeat(read("ACGTACGTACGT"), 500))[col("adapter_content")], "warn");
  const Read polyA = read(std::string(30, 'A') + "CTCTCTCTCT");
  EXPECT_EQ(run(repeat(polyA, 200))[col("adapter_content")], "fail");
  // With the Illumina setting only AGATCGGAAGAG is searched: the poly-A reads pass.
  MetricsOptions o;
  o.adapter = AdapterSetting::Illumina;
  EXPECT_EQ(run(repeat(polyA, 200), o)[col("adapter_content")], "pass");
  // Custom: the job's own sequence.
  o.adapter = AdapterSetting::Custom;
  o.customSequence = "CTCTCT";
  EXPECT_EQ(run(repeat(polyA, 200), o)[col("adapter_content")], "fail");
  o.customSequence = "GGGGGG";
  EXPECT_EQ(run(repeat(polyA, 200), o)[col("adapter_content")], "pass");
}

TEST(MetricsTilesColumn, AbsentWithoutTilesAndFailsForAShortReadTile) {
  EXPECT_EQ(run(repeat(read("ACGT", 'I', "@SRR1.1 1 length=4"), 5))[col("per_tile_sequence_quality")], "");
  std::vector<Read> reads;
  for (int i = 0; i < 20; ++i) {
    reads.push_back(read(std::string(100, 'A'), '5', "@M:1:FC:1:11:5:6"));
    reads.push_back(read(std::string(100, 'A'), '5', "@M:1:FC:1:12:5:6"));
    reads.push_back(read(std::string(40, 'A'), '5', "@M:1:FC:1:13:5:6"));
  }
  EXPECT_EQ(run(reads)[col("per_tile_sequence_quality")], "fail");
}

TEST(MetricsOwn, MedianPhredOfFirstAndLastTenBases) {
  // Read 1, 12 bp: Q values 0..11 ('!' + i). First ten: 0..9; last ten: 2..11.
  // Read 2, 4 bp, all Q20: it feeds both pools with 4 values.
  // First pool: 0..9 plus four 20s (14 values): middle pair 6 and 7 -> 6.50.
  // Last pool: 2..11 plus four 20s: middle pair 8 and 9 -> 8.50.
  // Mean: (0 + ... + 11 + 4 * 20) / 16 = (66 + 80) / 16 = 9.125 -> 9.12 (tie to even).
  Read a{"@a", "ACGTACGTACGT", ""};
  for (int i = 0; i < 12; ++i) a.quality += static_cast<char>('!' + i);
  const Row r = run({a, read("ACGT", '5')});
  EXPECT_EQ(r[col("median_phred_first_10bp")], "6.50");
  EXPECT_EQ(r[col("median_phred_last_10bp")], "8.50");
  EXPECT_EQ(r[col("mean_phred_all_reads")], "9.12");
}

TEST(MetricsOwn, QualityColumnsEmptyWhenThereIsNoQuality) {
  const Row r = run(repeat(read(""), 4));
  EXPECT_EQ(r[col("median_phred_first_10bp")], "");
  EXPECT_EQ(r[col("median_phred_last_10bp")], "");
  EXPECT_EQ(r[col("mean_phred_all_reads")], "");
  EXPECT_EQ(r[col("per_base_sequence_quality")], "");
  EXPECT_EQ(r[col("per_sequence_quality_scores")], "");
  EXPECT_EQ(r[col("per_tile_sequence_quality")], "");
  // Four empty reads: all low complexity (length <= 1); no bases -> unexpected empty.
  EXPECT_EQ(r[col("low_complexity_percentage")], "100.00");
  EXPECT_EQ(r[col("unexpected_bases_percentage")], "");
}

TEST(MetricsOwn, LowComplexityBoundary) {
  // 11 bp: 10 neighbour pairs. 3 changes: 10 * 3 < 3 * 10 is false -> not low (exactly 30 %).
  // 2 changes -> low. 1 bp -> low. 51 bp with 3 changes (6 %) -> low.
  const Read three = read("AAAACCCGGGT");  // A->C, C->G, G->T
  const Read two = read("AAAACCCCGGG");
  const Read fiftyOne = read(std::string(20, 'A') + std::string(20, 'C') + std::string(10, 'G') + "T");
  EXPECT_EQ(run({three})[col("low_complexity_percentage")], "0.00");
  EXPECT_EQ(run({two})[col("low_complexity_percentage")], "100.00");
  EXPECT_EQ(run({read("A")})[col("low_complexity_percentage")], "100.00");
  EXPECT_EQ(run({fiftyOne})[col("low_complexity_percentage")], "100.00");
  // 1 of 3 low -> 33.33; N equals N.
  EXPECT_EQ(run({three, two, read("ACGTACGTAC")})[col("low_complexity_percentage")], "33.33");
  EXPECT_EQ(run({read("NNNNNNNNNNN")})[col("low_complexity_percentage")], "100.00");
}

TEST(MetricsOwn, UnexpectedBases) {
  // "ACGTNRY." has R, Y and '.': 3 of 8 -> 37.50. Plain A/C/G/T/N: 0.00.
  EXPECT_EQ(run({read("ACGTNRY.")})[col("unexpected_bases_percentage")], "37.50");
  EXPECT_EQ(run({read("ACGTN")})[col("unexpected_bases_percentage")], "0.00");
  // 1 of 3 -> 33.333 -> 33.33.
  EXPECT_EQ(run({read("AC1")})[col("unexpected_bases_percentage")], "33.33");
}

TEST(MetricsOwn, QcScoreCountsPresentVerdicts) {
  // One read ACGTACGTAC / IIIIIIIIII with a plain header: per-tile absent; 10 verdicts:
  // basic pass, per-base quality pass (<= 100 reads), per-sequence fail (Q9), content: one read
  // per position -> 100 % of one base -> fail; GC: the read (5 G/C of 10) spreads over bins
  // 45..55 (0.5, nine times 1, 0.5), a flat block the normal curve misses by 31.7 % -> fail; N pass;
  // length pass; duplication 100 % pass; overrepresented 100 % -> fail; adapter: no read over 12
  // -> warn. Points 1 + 1 + 0 + 0 + 0 + 1 + 1 + 1 + 0 + 0.5 = 5.5 of 10 -> 55.00.
  const Row r = run({read("ACGTACGTAC", 'I')});
  EXPECT_EQ(r[col("per_tile_sequence_quality")], "");
  EXPECT_EQ(r[col("per_base_sequence_content")], "fail");
  EXPECT_EQ(r[col("per_sequence_gc_content")], "fail");
  EXPECT_EQ(r[col("overrepresented_sequences")], "fail");
  EXPECT_EQ(r[col("qc_score")], "55.00");
}

TEST(MetricsObject, CountersSurviveManyReadsAtOnePosition) {
  // 70 000 reads "A" at Q20 then 1 000 reads "C" at Q30: more reads at one position than a
  // 16-bit counter holds. GC = 1000 / 71000 = 1.408 % -> 1.40; mean Phred (70000 * 20 + 1000 *
  // 30) / 71000 = 20.1408 -> 20.14; per-position median of 71 000 values is Q20 (< 25 -> warn).
  std::vector<Read> reads = repeat(read("A", '5'), 70000);
  for (int i = 0; i < 1000; ++i) reads.push_back(read("C", '?'));
  const Row r = run(reads);
  EXPECT_EQ(r[col("GC")], "1.40");
  EXPECT_EQ(r[col("mean_phred_all_reads")], "20.14");
  EXPECT_EQ(r[col("median_phred_first_10bp")], "20.00");
  EXPECT_EQ(r[col("per_base_sequence_quality")], "warn");
}

TEST(MetricsObject, MovedAccumulatorKeepsItsState) {
  SampleMetrics a(MetricsOptions{});
  a.add(FastqRecord{"@r", "ACGT", "IIII"});
  SampleMetrics b(std::move(a));
  b.add(FastqRecord{"@r", "ACG", "III"});
  const Row r = b.finish("x");
  EXPECT_EQ(r[col("Total_Sequences")], "2");
  EXPECT_EQ(r[col("Total_Bases")], "7");
}

}  // namespace
}  // namespace genostat
