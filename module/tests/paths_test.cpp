// Paths and file names: joining and splitting, existence checks, the result CSV name, and the
// platform queries beneath them.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>

#include "module_test_support.h"
#include "platform/platform.h"

namespace mt {
namespace {

namespace fs = std::filesystem;
namespace platform = genostat::platform;
using platform::InputFileCheck;

// A pinned clock that counts how often it is read.
std::atomic<int> g_clockReads{0};
constexpr int64_t kStamp = 1731721138;
int64_t pinnedClock() {
  ++g_clockReads;
  return kStamp;
}
class PinnedClock {
 public:
  PinnedClock() : previous_(platform::setClock(&pinnedClock)) { g_clockReads = 0; }
  ~PinnedClock() { platform::setClock(previous_); }
  PinnedClock(const PinnedClock&) = delete;
  PinnedClock& operator=(const PinnedClock&) = delete;

 private:
  platform::ClockFunction previous_;
};

TEST(PathText, JoinAddsTheSeparatorOnlyWhenMissingFolderKeepsUpToTheLastOne) {
  // The separator put in is the system's own: a backslash on Windows, a slash elsewhere.
  const std::string s(1, platform::pathSeparator());
  const std::pair<std::pair<const char*, const char*>, std::string> joins[] = {
      {{"/tmp", "x.csv"}, "/tmp" + s + "x.csv"},   {{"/tmp/", "x.csv"}, "/tmp/x.csv"},
      {{"C:\\tmp\\", "x.csv"}, "C:\\tmp\\x.csv"},  // a trailing backslash is a separator too
      {{"C:\\tmp", "x.csv"}, "C:\\tmp" + s + "x.csv"}, {{"", "x.csv"}, "x.csv"},
      {{"/tmp", ""}, "/tmp" + s},                  {{"", ""}, ""},
      {{"/tmp", "/x.csv"}, "/tmp" + s + "/x.csv"},  // the name is appended unchanged
  };
  for (const auto& [parts, joined] : joins) EXPECT_EQ(Peer::joinPath(parts.first, parts.second), joined);
  const std::pair<const char*, const char*> folders[] = {
      {"C:\\data\\run1\\a.fastq", "C:\\data\\run1\\"}, {"/data/run1/a.fastq", "/data/run1/"},
      {"dir/sub\\file", "dir/sub\\"}, {"dir\\sub/file", "dir\\sub/"}, {"\\", "\\"}, {"/", "/"},
      {"dir/", "dir/"}, {"", ""}, {"a.fastq", ""},
  };
  for (const auto& [path, folder] : folders) EXPECT_EQ(Peer::getFolderPath(path), folder) << path;
}

TEST(PathChecks, FilesAndFoldersAreToldApart) {
  ScratchFolder folder;
  const std::string file = folder.write("a.csv", "x");
  const std::string empty = folder.write("empty.csv", "");
  EXPECT_TRUE(Peer::fileExists(file));
  EXPECT_TRUE(Peer::fileExists(empty)) << "size plays no part";
  EXPECT_FALSE(Peer::directoryExists(file));
  EXPECT_TRUE(Peer::directoryExists(folder.path()));
  EXPECT_TRUE(Peer::directoryExists(folder.path() + "/"));
  EXPECT_FALSE(Peer::fileExists(folder.path()));
  EXPECT_FALSE(Peer::fileExists(folder.file("missing.csv")));
  EXPECT_FALSE(Peer::directoryExists(folder.file("missing")));
  EXPECT_FALSE(Peer::fileExists(""));
  EXPECT_FALSE(Peer::directoryExists(""));
  const auto missing = platform::pathAttributes(folder.file("none"));
  EXPECT_FALSE(missing.exists || missing.directory);
}

TEST(PathChecks, InputFileReadableEmptyMissingFolderOrUnreadable) {
  ScratchFolder folder;
  EXPECT_EQ(platform::checkInputFile(folder.write("reads.fastq", "@r\nA\n+\nI\n")), InputFileCheck::Readable);
  EXPECT_EQ(platform::checkInputFile(folder.write("\xc3\xa9" "chantillon \xe2\x82\xac.fastq", "ACGT")),
            InputFileCheck::Readable) << "UTF-8 paths are used as they are";
  EXPECT_EQ(platform::checkInputFile(folder.write("empty.fastq", "")), InputFileCheck::EmptyOrNoSize);
  EXPECT_EQ(platform::checkInputFile(folder.file("missing.fastq")), InputFileCheck::CannotOpen);
  EXPECT_EQ(platform::checkInputFile(folder.path()), InputFileCheck::CannotOpen);
  EXPECT_EQ(platform::checkInputFile(""), InputFileCheck::CannotOpen);
}

TEST(UniqueFilename, MissingFolderGivesEmptyWithoutReadingTheClock) {
  PinnedClock clock;
  ScratchFolder folder;
  std::string hint = "job";
  EXPECT_EQ(Peer::generateUniqueFilename(folder.file("missing"), hint), "");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.write("a-file", "x"), hint), "") << "a file is no folder";
  EXPECT_EQ(Peer::generateUniqueFilename("", hint), "");
  EXPECT_EQ(g_clockReads.load(), 0);
}

TEST(UniqueFilename, TimeStampThenTheFirstFreeSuffixFoldersDoNotCount) {
  PinnedClock clock;
  ScratchFolder folder;
  std::string hint = "my job";
  const std::string base = folder.path() + platform::pathSeparator() + "1731721138";
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), base + ".csv");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path() + platform::pathSeparator(), hint), base + ".csv");
  EXPECT_EQ(hint, "my job") << "the hint is neither read nor written";
  EXPECT_FALSE(exists(base + ".csv")) << "nothing is created";
  fs::create_directory(base + ".csv");  // only files are in the way
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), base + ".csv");
  fs::remove(base + ".csv");
  folder.write("1731721138.csv", "x");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), base + "_1.csv");
  folder.write("1731721138_1.csv", "x");
  folder.write("1731721138_3.csv", "x");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), base + "_2.csv");
  EXPECT_EQ(g_clockReads.load(), 5) << "one clock reading per call";
}

TEST(UniqueFilename, EveryCandidateTakenGivesTheLastOne) {
  PinnedClock clock;
  ScratchFolder folder;
  std::string hint;
  folder.write("1731721138.csv", "x");
  for (int n = 1; n <= 998; ++n) folder.write("1731721138_" + std::to_string(n) + ".csv", "x");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), folder.path() + platform::pathSeparator() + "1731721138_999.csv");
  folder.write("1731721138_999.csv", "x");
  // All 1,000 taken: the last candidate is returned although it exists.
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), folder.path() + platform::pathSeparator() + "1731721138_999.csv");
}

TEST(UniqueFilename, SystemClockGivesCurrentEpochSeconds) {
  EXPECT_EQ(platform::setClock(nullptr), nullptr) << "no clock left installed";
  ScratchFolder folder;
  std::string hint;
  const int64_t before = platform::currentTimeSeconds();
  const std::string name = Peer::generateUniqueFilename(folder.path(), hint);
  const int64_t after = platform::currentTimeSeconds();
  EXPECT_GT(before, 1700000000);  // after November 2023
  EXPECT_LT(after, 4102444800);   // before 2100
  ASSERT_EQ(name.substr(0, folder.path().size() + 1), folder.path() + platform::pathSeparator());
  const int64_t stamp = std::stoll(name.substr(folder.path().size() + 1));
  EXPECT_GE(stamp, before);
  EXPECT_LE(stamp, after);
  EXPECT_EQ(name.substr(name.size() - 4), ".csv");
}

}  // namespace
}  // namespace mt
