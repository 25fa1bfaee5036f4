// The published FASTQ example files: every valid one is read, every malformed or wrapped one is
// refused naming the file, the record, the line and the reason. Skipped when the folder is absent.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "engine_test_support.h"
#include "genostat/byte_source.h"
#include "genostat/csv.h"
#include "genostat/engine.h"
#include "genostat/input_error.h"
#include "genostat/reader.h"

namespace genostat {
namespace {

// Reads a file as the engine does; returns the record count or throws.
std::uint64_t readFile(const std::string& path, Inflater inflater = Inflater::Default) {
  auto source = openDecodedSource(openFileSource(path), path, inflater);
  testing::KeepingSink sink;
  return readFastq(*source, path, sink);
}

class BiopythonFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::sharedTestDataPresent()) {
      GTEST_SKIP() << "shared test data not found at " << testing::sharedTestData();
    }
  }
  static std::string path(const std::string& name) {
    return testing::sharedTestData() + "/" + name;
  }
};

// Refused files and the record and line where each goes wrong, checked by reading them: the
// error_* files of the collection, plus the files that wrap sequences over several lines.
const std::map<std::string, std::string>& refusedFiles() {
  static const std::map<std::string, std::string> files{
      {"error_diff_ids.fastq", "record 3, line 11: the text after '+' differs"},
      {"error_double_qual.fastq", "record 4, line 13: the header line does not start with '@'"},
      {"error_double_seq.fastq", "record 4, line 15: the line after the sequence does not start"},
      {"error_long_qual.fastq",
       "record 4, line 16: quality length 26 differs from sequence length 25"},
      {"error_no_qual.fastq", "record 1, line 4: quality length 0 differs"},
      {"error_qual_del.fastq", "record 4, line 16: the quality has code 127 at position 13"},
      {"error_qual_escape.fastq", "record 5, line 20: the quality has code 27 at position 8"},
      {"error_qual_null.fastq", "record 1, line 4: the quality has code 0 at position 4"},
      {"error_qual_space.fastq", "record 4, line 16: the quality has a blank (code 32)"},
      {"error_qual_tab.fastq", "record 5, line 20: the quality has a tab (code 9)"},
      {"error_qual_unit_sep.fastq", "record 3, line 12: the quality has code 31"},
      {"error_qual_vtab.fastq", "record 1, line 4: the quality has code 11"},
      {"error_short_qual.fastq", "record 3, line 12: quality length 24 differs"},
      {"error_spaces.fastq", "record 1, line 2: the sequence has a blank (code 32)"},
      {"error_tabs.fastq", "record 1, line 2: the sequence has a tab (code 9)"},
      {"error_trunc_at_plus.fastq", "record 5, line 19: the line after the sequence is empty"},
      {"error_trunc_at_qual.fastq", "record 5, line 20: the file ends after the '+' line"},
      {"error_trunc_at_seq.fastq", "record 5, line 19: the file ends after the sequence line"},
      {"error_trunc_in_plus.fastq", "record 5, line 19: the text after '+' differs"},
      {"error_trunc_in_qual.fastq", "record 5, line 20: quality length 24 differs"},
      {"error_trunc_in_seq.fastq", "record 5, line 19: the file ends after the sequence line"},
      {"error_trunc_in_title.fastq", "record 5, line 18: the file ends after the header line"},
      {"longreads_original_sanger.fastq", "record 1, line 3: the line after the sequence does not"},
      {"wrapping_original_sanger.fastq",
       "record 1, line 4: quality length 30 differs from sequence length 135"},
      {"tricky.fastq", "record 4, line 15: the line after the sequence does not start with '+'"},
  };
  return files;
}

TEST_F(BiopythonFiles, EveryFileIsReadOrRefusedAsExpected) {
  std::size_t accepted = 0;
  std::size_t refused = 0;
  for (const auto& entry : std::filesystem::directory_iterator(testing::sharedTestData())) {
    const std::string name = entry.path().filename().string();
    const std::string ext = entry.path().extension().string();
    if (ext != ".fastq" && ext != ".gz" && ext != ".bgz") continue;
    SCOPED_TRACE(name);
    const auto expected = refusedFiles().find(name);
    try {
      readFile(entry.path().string());
      EXPECT_EQ(expected, refusedFiles().end()) << "accepted, but should be refused";
      ++accepted;
    } catch (const InputError& error) {
      ASSERT_NE(expected, refusedFiles().end()) << "refused: " << error.what();
      EXPECT_EQ(error.kind(), InputErrorKind::Malformed);
      EXPECT_EQ(error.path(), entry.path().string());
      EXPECT_EQ(error.message().rfind(expected->second, 0), 0u) << error.message();
      ++refused;
    }
  }
  EXPECT_EQ(refused, refusedFiles().size());
  EXPECT_EQ(accepted, 37u);  // every other file of the collection
}

TEST_F(BiopythonFiles, RecordCountsOfKnownFiles) {
  EXPECT_EQ(readFile(path("example.fastq")), 3u);
  EXPECT_EQ(readFile(path("zero_length.fastq")), 5u);
  EXPECT_EQ(readFile(path("sanger_full_range_as_sanger.fastq")), 2u);
  EXPECT_EQ(readFile(path("longreads_as_sanger.fastq")), 10u);
}

TEST_F(BiopythonFiles, CompressedAndDosCopiesReadLikeThePlainFile) {
  for (Inflater inflater : {Inflater::Zlib, Inflater::Isal}) {
    EXPECT_EQ(readFile(path("example.fastq.gz"), inflater), 3u);
    EXPECT_EQ(readFile(path("example.fastq.bgz"), inflater), 3u);
    EXPECT_EQ(readFile(path("example_dos.fastq.bgz"), inflater), 3u);
  }
  auto recordsOf = [](const std::string& file) {
    auto source = openDecodedSource(openFileSource(file), file);
    testing::KeepingSink sink;
    readFastq(*source, file, sink);
    return sink.records;
  };
  const auto plain = recordsOf(path("example.fastq"));
  EXPECT_EQ(recordsOf(path("example.fastq.bgz")), plain);
  EXPECT_EQ(recordsOf(path("example_dos.fastq")), plain);
  EXPECT_EQ(recordsOf(path("example_dos.fastq.bgz")), plain);
}

TEST_F(BiopythonFiles, ThreadedEngineGivesARowForEveryAcceptedFile) {
  std::vector<std::string> accepted;
  for (const auto& entry : std::filesystem::directory_iterator(testing::sharedTestData())) {
    const std::string name = entry.path().filename().string();
    const std::string ext = entry.path().extension().string();
    if ((ext == ".fastq" || ext == ".gz" || ext == ".bgz") && refusedFiles().count(name) == 0) {
      accepted.push_back(entry.path().string());
    }
  }
  std::sort(accepted.begin(), accepted.end());
  ASSERT_EQ(accepted.size(), 37u);
  EngineOptions options;
  options.threads = 1;
  const auto rows = runEngine(accepted, options);
  ASSERT_EQ(rows.size(), accepted.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].size(), csvColumnNames().size()) << accepted[i];
    EXPECT_EQ(rows[i][0], uniqueSampleNames(accepted)[i]);
  }
  options.threads = 3;
  EXPECT_EQ(runEngine(accepted, options), rows);
}

}  // namespace
}  // namespace genostat
