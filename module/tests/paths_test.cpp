// Paths and file names: joining and splitting, existence checks, the result CSV name, and the
// platform queries beneath them.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "jobs_test_support.h"
#include "platform/platform.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace jobs_test {
namespace {

namespace fs = std::filesystem;
using Peer = GenoStatAlgoManagerTestPeer;
using genostat::platform::InputFileCheck;

// A folder of its own under the system's temporary folder, removed afterwards.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (fs::temp_directory_path() / "genostat-paths-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
  }
  ~TempFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name, const std::string& content = "x") const {
    const std::string full = path_ + "/" + name;
    std::ofstream(full, std::ios::binary) << content;
    return full;
  }

 private:
  std::string path_;
};

// A pinned clock that counts how often it is read.
std::atomic<int> g_clockReads{0};
constexpr int64_t kStamp = 1731721138;
int64_t pinnedClock() {
  ++g_clockReads;
  return kStamp;
}
class PinnedClock {
 public:
  PinnedClock() : previous_(genostat::platform::setClock(&pinnedClock)) { g_clockReads = 0; }
  ~PinnedClock() { genostat::platform::setClock(previous_); }
  PinnedClock(const PinnedClock&) = delete;
  PinnedClock& operator=(const PinnedClock&) = delete;

 private:
  genostat::platform::ClockFunction previous_;
};

TEST(JoinPath, AddsTheSystemSeparatorOnlyWhenMissing) {
  EXPECT_EQ(Peer::joinPath("/tmp", "x.csv"), "/tmp/x.csv");
  EXPECT_EQ(Peer::joinPath("/tmp/", "x.csv"), "/tmp/x.csv");
  EXPECT_EQ(Peer::joinPath("C:/tmp/", "x.csv"), "C:/tmp/x.csv");
  // A trailing backslash counts as a separator too; nothing is added after it.
  EXPECT_EQ(Peer::joinPath("C:\\tmp\\", "x.csv"), "C:\\tmp\\x.csv");
  EXPECT_EQ(Peer::joinPath("C:\\tmp", "x.csv"), "C:\\tmp/x.csv");
}

TEST(JoinPath, EmptyPartsAndLeadingSeparators) {
  EXPECT_EQ(Peer::joinPath("", "x.csv"), "x.csv");
  EXPECT_EQ(Peer::joinPath("/tmp", ""), "/tmp/");
  EXPECT_EQ(Peer::joinPath("", ""), "");
  EXPECT_EQ(Peer::joinPath("/tmp", "/x.csv"), "/tmp//x.csv") << "the name is appended unchanged";
}

TEST(GetFolderPath, KeepsEverythingUpToTheLastSeparator) {
  EXPECT_EQ(Peer::getFolderPath("C:\\data\\run1\\a.fastq"), "C:\\data\\run1\\");
  EXPECT_EQ(Peer::getFolderPath("/data/run1/a.fastq"), "/data/run1/");
  EXPECT_EQ(Peer::getFolderPath("dir/sub\\file"), "dir/sub\\");
  EXPECT_EQ(Peer::getFolderPath("dir\\sub/file"), "dir\\sub/");
  EXPECT_EQ(Peer::getFolderPath("\\"), "\\");
  EXPECT_EQ(Peer::getFolderPath("/"), "/");
  EXPECT_EQ(Peer::getFolderPath("dir/"), "dir/");
}

TEST(GetFolderPath, NoSeparatorGivesEmpty) {
  EXPECT_EQ(Peer::getFolderPath(""), "");
  EXPECT_EQ(Peer::getFolderPath("file"), "");
  EXPECT_EQ(Peer::getFolderPath("a.fastq"), "");
}

TEST(Existence, FilesAndFoldersAreToldApart) {
  TempFolder folder;
  ASSERT_FALSE(folder.path().empty());
  const std::string file = folder.file("a.csv");
  const std::string empty = folder.file("empty.csv", "");
  EXPECT_TRUE(Peer::fileExists(file));
  EXPECT_TRUE(Peer::fileExists(empty)) << "size plays no part";
  EXPECT_FALSE(Peer::directoryExists(file));
  EXPECT_TRUE(Peer::directoryExists(folder.path()));
  EXPECT_TRUE(Peer::directoryExists(folder.path() + "/"));
  EXPECT_FALSE(Peer::fileExists(folder.path()));
  EXPECT_FALSE(Peer::fileExists(folder.path() + "/missing.csv"));
  EXPECT_FALSE(Peer::directoryExists(folder.path() + "/missing"));
  EXPECT_FALSE(Peer::fileExists(""));
  EXPECT_FALSE(Peer::directoryExists(""));
}

TEST(UniqueFilename, MissingFolderGivesEmptyWithoutReadingTheClock) {
  PinnedClock clock;
  TempFolder folder;
  std::string hint = "job";
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path() + "/missing", hint), "");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.file("a-file"), hint), "") << "a file is no folder";
  EXPECT_EQ(Peer::generateUniqueFilename("", hint), "");
  EXPECT_EQ(g_clockReads.load(), 0);
}

TEST(UniqueFilename, TimeStampNameInAnEmptyFolder) {
  PinnedClock clock;
  TempFolder folder;
  std::string hint = "my job";
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), folder.path() + "/1731721138.csv");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path() + "/", hint), folder.path() + "/1731721138.csv");
  EXPECT_EQ(hint, "my job") << "the hint is neither read nor written";
  EXPECT_EQ(g_clockReads.load(), 2) << "one clock reading per call";
  EXPECT_FALSE(Peer::fileExists(folder.path() + "/1731721138.csv")) << "nothing is created";
}

TEST(UniqueFilename, TakenStampGetsTheFirstFreeSuffix) {
  PinnedClock clock;
  TempFolder folder;
  std::string hint;
  folder.file("1731721138.csv");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), folder.path() + "/1731721138_1.csv");
  folder.file("1731721138_1.csv");
  folder.file("1731721138_3.csv");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), folder.path() + "/1731721138_2.csv");
  EXPECT_EQ(g_clockReads.load(), 2);
}

TEST(UniqueFilename, FolderOfTheSameNameCountsAsFree) {
  // Only files are in the way: a folder named like the candidate does not push it on.
  PinnedClock clock;
  TempFolder folder;
  std::string hint;
  fs::create_directory(folder.path() + "/1731721138.csv");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), folder.path() + "/1731721138.csv");
}

TEST(UniqueFilename, EveryCandidateTakenGivesTheLastOne) {
  PinnedClock clock;
  TempFolder folder;
  std::string hint;
  folder.file("1731721138.csv");
  for (int n = 1; n <= 998; ++n) folder.file("1731721138_" + std::to_string(n) + ".csv");
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), folder.path() + "/1731721138_999.csv");
  folder.file("1731721138_999.csv");
  // All 1,000 taken: the last candidate is returned although it exists.
  EXPECT_EQ(Peer::generateUniqueFilename(folder.path(), hint), folder.path() + "/1731721138_999.csv");
}

TEST(UniqueFilename, SystemClockGivesCurrentSeconds) {
  TempFolder folder;
  std::string hint;
  const int64_t before = genostat::platform::currentTimeSeconds();
  const std::string name = Peer::generateUniqueFilename(folder.path(), hint);
  const int64_t after = genostat::platform::currentTimeSeconds();
  ASSERT_EQ(name.substr(0, folder.path().size() + 1), folder.path() + "/");
  const int64_t stamp = std::stoll(name.substr(folder.path().size() + 1));
  EXPECT_GE(stamp, before);
  EXPECT_LE(stamp, after);
  EXPECT_EQ(name.substr(name.size() - 4), ".csv");
}

TEST(PlatformClock, SystemClockIsEpochSeconds) {
  EXPECT_EQ(genostat::platform::setClock(nullptr), nullptr) << "no clock left installed";
  const int64_t now = genostat::platform::currentTimeSeconds();
  EXPECT_GT(now, 1700000000);  // after November 2023
  EXPECT_LT(now, 4102444800);  // before 2100
  {
    PinnedClock clock;
    EXPECT_EQ(genostat::platform::currentTimeSeconds(), kStamp);
  }
  EXPECT_NE(genostat::platform::currentTimeSeconds(), kStamp);
}

TEST(PlatformPaths, AttributesOfFileFolderAndMissing) {
  TempFolder folder;
  const auto file = genostat::platform::pathAttributes(folder.file("f"));
  EXPECT_TRUE(file.exists);
  EXPECT_FALSE(file.directory);
  const auto dir = genostat::platform::pathAttributes(folder.path());
  EXPECT_TRUE(dir.exists);
  EXPECT_TRUE(dir.directory);
  const auto missing = genostat::platform::pathAttributes(folder.path() + "/none");
  EXPECT_FALSE(missing.exists);
  EXPECT_FALSE(missing.directory);
}

TEST(InputFileCheck, ReadableEmptyMissingAndFolder) {
  TempFolder folder;
  EXPECT_EQ(genostat::platform::checkInputFile(folder.file("reads.fastq", "@r\nA\n+\nI\n")),
            InputFileCheck::Readable);
  EXPECT_EQ(genostat::platform::checkInputFile(folder.file("empty.fastq", "")), InputFileCheck::EmptyOrNoSize);
  EXPECT_EQ(genostat::platform::checkInputFile(folder.path() + "/missing.fastq"), InputFileCheck::CannotOpen);
  EXPECT_EQ(genostat::platform::checkInputFile(folder.path()), InputFileCheck::CannotOpen);
  EXPECT_EQ(genostat::platform::checkInputFile(""), InputFileCheck::CannotOpen);
}

TEST(InputFileCheck, UnreadableFileCannotBeOpened) {
#ifndef _WIN32
  if (::geteuid() == 0) GTEST_SKIP() << "root reads any file; permissions cannot refuse it";
  TempFolder folder;
  const std::string file = folder.file("secret.fastq", "data");
  fs::permissions(file, fs::perms::none);
  EXPECT_EQ(genostat::platform::checkInputFile(file), InputFileCheck::CannotOpen);
#endif
}

TEST(InputFileCheck, Utf8PathsAreUsedAsTheyAre) {
  TempFolder folder;
  const std::string file = folder.file("\xc3\xa9" "chantillon \xe2\x82\xac.fastq", "ACGT");
  EXPECT_EQ(genostat::platform::checkInputFile(file), InputFileCheck::Readable);
}

}  // namespace
}  // namespace jobs_test
