// The two counts read from a result CSV, and the removal of that CSV once the client has it.
#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include "module_test_support.h"

namespace mt {
namespace {

class ResultFileTest : public ::testing::Test {
 protected:
  ScratchFolder dir_;
  std::unique_ptr<GenoStatAlgoManager> manager_ = Peer::make();
};

TEST_F(ResultFileTest, HeaderFieldsAreVariablesNonEmptyLinesAfterItAreSamples) {
  std::string realistic =
      "Sample,Adapter_Type,Total_Sequences,Total_Bases,Sequence_length,GC,total_deduplicated_percentage,"
      "avg_sequence_length,median_sequence_length,basic_statistics,per_base_sequence_quality,"
      "per_sequence_quality_scores,per_base_sequence_content,per_sequence_gc_content,per_base_n_content,"
      "sequence_length_distribution,sequence_duplication_levels,overrepresented_sequences,adapter_content,"
      "per_tile_sequence_quality,qc_score,median_phred_first_10bp,median_phred_last_10bp,"
      "mean_phred_all_reads,low_complexity_percentage,unexpected_bases_percentage,"
      "overrepresented_seq_count\r\n";
  for (int i = 0; i < 4; ++i) realistic += "s" + std::to_string(i) + ",NONE,1,2,3\r\n";
  const std::pair<const char*, std::pair<int32_t, int32_t>> cases[] = {
      {"", {0, 0}},
      {"Sample,Adapter_Type,GC\n", {0, 3}},
      {"Sample,Adapter_Type,GC", {0, 3}},
      {"a,b,\n", {0, 2}},      // a trailing comma adds nothing
      {"a,b,\r\n", {0, 2}},    // nor does the CR of a CRLF header (it was counted as a field)
      {"\r\nrow\r\n", {1, 0}}, // an empty CRLF header
      {"a,,b\n", {0, 3}},      // an empty field between two names counts
      {"\"x,y\",z\n", {0, 3}}, // quotes are not honoured
      {"\nrow\n", {1, 0}},     // an empty header line
      {",\n", {0, 1}},
      {"h1,h2\nr1\nr2", {2, 2}},                 // no final line feed
      {"h1,h2\r\nr1\r\nr2\r\n", {2, 2}},         // CR LF endings
      {"h1,h2\nr1\n\n\nr2\n\n\n", {2, 2}},       // empty lines do not count
      {"h1,h2\n   \n\r\n\t\n", {3, 2}},          // blank lines do
      {realistic.c_str(), {4, 27}},
  };
  for (const auto& [content, expected] : cases) {
    SCOPED_TRACE(content);
    int32_t samples = -7;
    int32_t variables = -7;
    EXPECT_TRUE(Peer::parseCSVForCounts(*manager_, dir_.write("result.csv", content), samples, variables));
    EXPECT_EQ(std::make_pair(samples, variables), expected);
  }
}

TEST_F(ResultFileTest, MissingFileOrFolderLeavesTheCountsAlone) {
  int32_t samples = 5;
  int32_t variables = 6;
  EXPECT_FALSE(Peer::parseCSVForCounts(*manager_, dir_.file("absent.csv"), samples, variables));
  EXPECT_EQ(samples, 5);
  EXPECT_EQ(variables, 6);
  // Opening a folder as a stream either fails or reads nothing; it never invents rows.
  if (Peer::parseCSVForCounts(*manager_, dir_.path(), samples, variables)) {
    EXPECT_EQ(std::make_pair(samples, variables), std::make_pair(0, 0));
  } else {
    EXPECT_EQ(std::make_pair(samples, variables), std::make_pair(5, 6));
  }
}

TEST_F(ResultFileTest, CleanUpRemovesOnlyThatFileAndTakesNoRecordAsNothing) {
  GenoJobSettings record;
  record.csvFilePath = dir_.write("1731721138.csv", "a,b\n1,2\n");
  const std::string other = dir_.write("other.csv", "x\n");
  manager_->cleanUpCSVFileCreated(&record);
  EXPECT_FALSE(exists(record.csvFilePath));
  EXPECT_TRUE(exists(other));
  std::filesystem::create_directory(dir_.file("sub"));
  record.csvFilePath = dir_.file("sub");
  manager_->cleanUpCSVFileCreated(&record);
  EXPECT_TRUE(std::filesystem::is_directory(dir_.file("sub"))) << "an empty folder is what remove() would take";
  manager_->cleanUpCSVFileCreated(nullptr);
}

}  // namespace
}  // namespace mt
