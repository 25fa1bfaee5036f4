// The published FASTQ example files: every malformed or wrapped one is refused with the record,
// the line and the reason of golden/biopython-refused.txt, every other one is read, plain or
// compressed, by the threaded engine too. Skipped when the collection is not beside the project.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "engine_test_support.h"
#include "genostat/engine.h"
#include "genostat/input_error.h"

namespace genostat {
namespace {

testing::KeepingSink readFile(const std::string& path, Inflater inflater = Inflater::Default) {
  testing::KeepingSink sink;
  readFastq(*openDecodedSource(openFileSource(path), path, inflater), path, sink);
  return sink;
}

TEST(BiopythonFiles, EveryFileIsReadOrRefusedAsListed) {
  const std::string folder = GENOSTAT_SHARED_TESTDATA;
  if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "no test data at " << folder;
  std::map<std::string, std::string> refused;
  for (const auto& row : testing::readTable("biopython-refused.txt")) refused[row[0]] = row[1];
  std::vector<std::string> accepted;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string ext = entry.path().extension().string();
    if (ext != ".fastq" && ext != ".gz" && ext != ".bgz") continue;
    const auto expected = refused.find(entry.path().filename().string());
    try {
      readFile(entry.path().string());
      EXPECT_EQ(expected, refused.end()) << entry.path() << " accepted, but should be refused";
      accepted.push_back(entry.path().string());
    } catch (const InputError& error) {
      ASSERT_NE(expected, refused.end()) << error.what();
      EXPECT_EQ(error.path(), entry.path().string());
      EXPECT_EQ(error.message().rfind(expected->second, 0), 0u) << error.message();
      refused.erase(expected);
    }
  }
  EXPECT_TRUE(refused.empty()) << refused.begin()->first << " is missing";
  EXPECT_EQ(readFile(folder + "/zero_length.fastq").records.size(), 5u);
  // Compressed and DOS copies read like the plain file, with either inflater.
  const auto plain = readFile(folder + "/example.fastq").records;
  for (Inflater inflater : {Inflater::Zlib, Inflater::Isal}) {
    for (const char* copy : {"example.fastq.gz", "example.fastq.bgz", "example_dos.fastq.bgz"}) {
      EXPECT_TRUE(readFile(folder + "/" + copy, inflater).records == plain) << copy;
    }
  }
  EngineOptions options;
  options.threads = 3;
  EXPECT_EQ(runEngine(accepted, options).size(), accepted.size());
}

}  // namespace
}  // namespace genostat
