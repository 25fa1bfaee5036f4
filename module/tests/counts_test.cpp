// Reading the two counts from a result CSV.
#include <gtest/gtest.h>

#include "entry_test_support.h"
#include "test_peer.h"

namespace {

using Peer = GenoStatAlgoManagerTestPeer;

class CountsTest : public ::testing::Test {
 protected:
  // Counts of a file holding `content`; fails the test when the file cannot be read.
  std::pair<int32_t, int32_t> counts(const std::string& content) {
    const std::string path = dir_.write("result.csv", content);
    int32_t samples = -7;
    int32_t variables = -7;
    EXPECT_TRUE(Peer::parseCSVForCounts(*manager_, path, samples, variables));
    return {samples, variables};
  }

  entry_test::ScratchFolder dir_;
  std::unique_ptr<GenoStatAlgoManager> manager_ = Peer::make();
};

TEST_F(CountsTest, MissingFileLeavesTheCountsAlone) {
  int32_t samples = 5;
  int32_t variables = 6;
  EXPECT_FALSE(Peer::parseCSVForCounts(*manager_, dir_.file("absent.csv"), samples, variables));
  EXPECT_EQ(samples, 5);
  EXPECT_EQ(variables, 6);
}

TEST_F(CountsTest, EmptyFileCountsNothing) { EXPECT_EQ(counts(""), std::make_pair(0, 0)); }

TEST_F(CountsTest, HeaderOnly) {
  EXPECT_EQ(counts("Sample,Adapter_Type,GC\n"), std::make_pair(0, 3));
  EXPECT_EQ(counts("Sample,Adapter_Type,GC"), std::make_pair(0, 3));
}

TEST_F(CountsTest, HeaderSplitIsPlain) {
  EXPECT_EQ(counts("a,b,\n").second, 2);        // a trailing comma adds nothing
  EXPECT_EQ(counts("a,,b\n").second, 3);        // an empty field between two names counts
  EXPECT_EQ(counts("\"x,y\",z\n").second, 3);   // quotes are not honoured
  EXPECT_EQ(counts("\nrow\n").second, 0);       // an empty header line
  EXPECT_EQ(counts(",\n").second, 1);
  EXPECT_EQ(counts("only\n").second, 1);
}

TEST_F(CountsTest, EveryNonEmptyLineIsASample) {
  EXPECT_EQ(counts("h1,h2\nr1\nr2\n"), std::make_pair(2, 2));
  EXPECT_EQ(counts("h1,h2\nr1\nr2"), std::make_pair(2, 2));             // no final line feed
  EXPECT_EQ(counts("h1,h2\r\nr1\r\nr2\r\n"), std::make_pair(2, 2));     // CR LF endings
  EXPECT_EQ(counts("h1,h2\nr1\n\n\nr2\n\n\n"), std::make_pair(2, 2));   // empty lines do not count
  EXPECT_EQ(counts("h1,h2\n   \n\r\n\t\n"), std::make_pair(3, 2));      // blank lines do
}

TEST_F(CountsTest, RealisticResult) {
  std::string csv =
      "Sample,Adapter_Type,Total_Sequences,Total_Bases,Sequence_length,GC,total_deduplicated_percentage,"
      "avg_sequence_length,median_sequence_length,basic_statistics,per_base_sequence_quality,"
      "per_sequence_quality_scores,per_base_sequence_content,per_sequence_gc_content,per_base_n_content,"
      "sequence_length_distribution,sequence_duplication_levels,overrepresented_sequences,adapter_content,"
      "per_tile_sequence_quality,qc_score,median_phred_first_10bp,median_phred_last_10bp,"
      "mean_phred_all_reads,low_complexity_percentage,unexpected_bases_percentage,"
      "overrepresented_seq_count\r\n";
  for (int i = 0; i < 4; ++i) csv += "s" + std::to_string(i) + ",NONE,1,2,3\r\n";
  EXPECT_EQ(counts(csv), std::make_pair(4, 27));
}

TEST_F(CountsTest, FolderIsNotAResult) {
  int32_t samples = 1;
  int32_t variables = 1;
  // Opening a folder as a stream either fails or reads nothing; it never invents rows.
  bool ok = Peer::parseCSVForCounts(*manager_, dir_.path(), samples, variables);
  if (ok) {
    EXPECT_EQ(samples, 0);
    EXPECT_EQ(variables, 0);
  } else {
    EXPECT_EQ(samples, 1);
    EXPECT_EQ(variables, 1);
  }
}

}  // namespace
