// The system layer: wake-ups from other threads and from Ctrl-C, the module found by name beside
// the program, files and folders named by UTF-8 paths.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "console.h"
#include "jobs/GenoStatAlgoManager.h"

namespace zorv {
namespace {

using platform::WakeChannel;
namespace fs = std::filesystem;

TEST(ProgramFolder, HoldsTheRunningProgramAndTheModuleBesideIt) {
  const std::string folder = platform::programFolder();
  ASSERT_FALSE(folder.empty());
  EXPECT_TRUE(folder.back() == '/' || folder.back() == '\\') << folder;
  // The tests run from the build's bin/, where the module lies beside every program.
  EXPECT_TRUE(fs::exists(fs::u8path(folder + platform::moduleFileName()))) << folder;
}

TEST(WakeChannel, BytesPostedOnAnotherThreadWakeTheWaiterAndAreTakenOnceInOrder) {
  WakeChannel channel;
  EXPECT_FALSE(channel.wait(0));
  EXPECT_EQ(channel.take(), "");
  std::thread poster([&] {
    channel.post('m');
    channel.post('x');
  });
  poster.join();
  EXPECT_TRUE(channel.wait(10000));
  EXPECT_TRUE(channel.wait(0));  // waiting takes nothing
  EXPECT_EQ(channel.take(), "mx");
  EXPECT_FALSE(channel.wait(0));
  EXPECT_EQ(channel.take(), "");
}

TEST(WakeChannel, AWaiterWakesWhenAPostComesLater) {
  WakeChannel channel;
  std::thread poster([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    channel.post('m');
  });
  bool woken = channel.wait(-1);  // hangs (and times out in the runner) if the post is missed
  poster.join();
  EXPECT_TRUE(woken);
  EXPECT_EQ(channel.take(), "m");
}

TEST(WakeChannel, PostsFromManyThreadsAreAllTakenWhileTheyArrive) {
  WakeChannel channel;
  constexpr int kThreads = 4, kEach = 900;
  std::vector<std::thread> posters;
  for (int t = 0; t < kThreads; ++t) {
    posters.emplace_back([&] {
      for (int i = 0; i < kEach; ++i) channel.post('m');
    });
  }
  size_t taken = 0;
  while (taken < size_t{kThreads} * kEach && channel.wait(10000)) taken += channel.take().size();
  for (auto& poster : posters) poster.join();
  taken += channel.take().size();
  EXPECT_EQ(taken, size_t{kThreads} * kEach);
}

TEST(WakeChannel, AFloodOfPostsNeverBlocksAndAQuitAfterItIsKept) {
  WakeChannel channel;
  std::thread poster([&] {
    for (int i = 0; i < 200000; ++i) channel.post('m');
    channel.post('q');
  });
  poster.join();  // a blocking post would hang here
  std::string bytes = channel.take();
  EXPECT_NE(bytes.find('q'), std::string::npos);
  EXPECT_EQ(bytes.find_first_not_of("mq"), std::string::npos);
  EXPECT_FALSE(channel.wait(0));
}

TEST(Interrupts, CtrlCPostsAQuitInsteadOfEndingTheProcess) {
  // The handler may use the channel until the process ends.
  static WakeChannel* const channel = new WakeChannel();
  std::string error;
  ASSERT_TRUE(platform::catchInterrupts(*channel, error)) << error;
  ASSERT_TRUE(platform::interruptSelf());
  ASSERT_TRUE(channel->wait(10000));
  EXPECT_NE(channel->take().find('q'), std::string::npos);
}

TEST(Module, TheModuleBesideTheProgramGivesItsFunctionsAndIsTheCopyLinked) {
  ModuleEntry entry;
  std::string error;
  ASSERT_TRUE(loadModule(entry, error)) << error;
  ASSERT_NE(entry.genostat, nullptr);
  ASSERT_NE(entry.getManager, nullptr);
  ASSERT_NE(entry.cancel, nullptr);
  // One copy: the manager found by name is the one the program reaches through the link.
  EXPECT_EQ(entry.getManager(), getGenoManagerInstance());
  EXPECT_FALSE(entry.cancel(entry.getManager(), "zorv-platform-test-no-such-job"));
}

TEST(Module, AMissingLibraryOrOneWithoutTheFunctionsIsRefusedWithTheReason) {
  ModuleEntry entry;
  std::string error;
  EXPECT_FALSE(loadModule(entry, error, "zorv-no-such-module.dll"));
  EXPECT_EQ(error.rfind("cannot load ", 0), 0u) << error;
  EXPECT_NE(error.find("zorv-no-such-module.dll"), std::string::npos) << error;
  EXPECT_EQ(entry.genostat, nullptr);

  // The reference host lies beside the program too, without the module's functions.
  std::string host = platform::moduleFileName();
  host.replace(host.find("zorvwgnm"), 8, "zorvhost");
  error.clear();
  EXPECT_FALSE(loadModule(entry, error, host));
  EXPECT_EQ(error, host + " has no function GENOSTAT");
  EXPECT_EQ(entry.genostat, nullptr);

  void* module = platform::loadModule(platform::moduleFileName(), error);
  ASSERT_NE(module, nullptr) << error;
  EXPECT_EQ(platform::findFunction(module, "noSuchFunction"), nullptr);
}

class PlatformFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("zorv-platform-test-" + std::to_string(std::random_device{}()));
    fs::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  static std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  fs::path dir_;
};

TEST_F(PlatformFiles, AFileWithANonAsciiNameIsWrittenAsBytesUnderThatName) {
  const std::string name = "\xC3\xA4\xE6\x97\xA5\xE6\x9C\xAC\xE2\x9C\x93.jsonl";  // ä日本✓
  const std::string path = (dir_ / fs::u8path(name)).u8string();
  std::FILE* f = platform::openForWriting(path);
  ASSERT_NE(f, nullptr) << std::strerror(errno);
  std::fputs("a\nb\r\n", f);
  std::fclose(f);
  EXPECT_EQ(slurp(fs::u8path(path)), "a\nb\r\n");
  fs::directory_iterator it(dir_);
  ASSERT_NE(it, fs::directory_iterator());
  EXPECT_EQ(it->path().filename().u8string(), name);

  f = platform::openForWriting(path);  // opening again empties it
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  EXPECT_EQ(fs::file_size(fs::u8path(path)), 0u);
}

TEST_F(PlatformFiles, AFileInAMissingFolderIsRefusedWithTheSystemsReason) {
  errno = 0;
  EXPECT_EQ(platform::openForWriting((dir_ / "missing" / "events.jsonl").u8string()), nullptr);
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_EQ(platform::openForWriting(""), nullptr);
  EXPECT_NE(errno, 0);
}

TEST_F(PlatformFiles, TemporaryFoldersAreNewEmptyAndDistinctAlsoUnderANonAsciiFolder) {
  const fs::path base = dir_ / fs::u8path("temp-\xC3\xA4\xC3\x9F");  // temp-äß
  fs::create_directory(base);
  std::string a, b, error;
  ASSERT_TRUE(platform::makeTemporaryFolder(a, error, dir_.u8string())) << error;
  ASSERT_TRUE(platform::makeTemporaryFolder(b, error, base.u8string())) << error;
  EXPECT_NE(a, b);
  for (const auto& made : {a, b}) {
    EXPECT_TRUE(fs::is_directory(fs::u8path(made))) << made;
    EXPECT_TRUE(fs::is_empty(fs::u8path(made))) << made;
  }
  EXPECT_EQ(fs::u8path(a).parent_path(), dir_);
  EXPECT_EQ(fs::u8path(b).parent_path(), base);

  std::string inSystemTemp;
  ASSERT_TRUE(platform::makeTemporaryFolder(inSystemTemp, error)) << error;
  EXPECT_TRUE(fs::is_directory(fs::u8path(inSystemTemp)));
  fs::remove(fs::u8path(inSystemTemp));
}

TEST_F(PlatformFiles, ATemporaryFolderInAMissingFolderIsRefusedNamingIt) {
  std::string path, error;
  EXPECT_FALSE(platform::makeTemporaryFolder(path, error, (dir_ / "missing").u8string()));
  EXPECT_EQ(error.rfind("cannot create a temporary folder ", 0), 0u) << error;
  EXPECT_NE(error.find("missing"), std::string::npos) << error;
  EXPECT_TRUE(path.empty());
}

}  // namespace
}  // namespace zorv
