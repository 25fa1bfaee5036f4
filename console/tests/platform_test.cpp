// The system layer where zorv end to end cannot reach it: wake-ups from many threads and from
// Ctrl-C, the module found by name beside the program, temporary folders under any folder.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <filesystem>
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

TEST(WakeChannel, PostsFromOtherThreadsWakeTheWaiterAndAreTakenOnceInOrder) {
  WakeChannel channel;
  EXPECT_FALSE(channel.wait(0));
  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    channel.post('m');
    channel.post('x');
  });
  EXPECT_TRUE(channel.wait(-1));  // hangs (and times out in the runner) if the post is missed
  late.join();
  EXPECT_TRUE(channel.wait(0));  // waiting takes nothing
  EXPECT_EQ(channel.take(), "mx");
  EXPECT_FALSE(channel.wait(0));

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
  EXPECT_EQ(taken + channel.take().size(), size_t{kThreads} * kEach);
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
}

TEST(Interrupts, CtrlCPostsAQuitInsteadOfEndingTheProcess) {
  static WakeChannel* const channel = new WakeChannel();  // the handler may use it until the end
  std::string error;
  ASSERT_TRUE(platform::catchInterrupts(*channel, error)) << error;
  ASSERT_TRUE(platform::interruptSelf());
  ASSERT_TRUE(channel->wait(10000));
  // 'i' where a line editor may take the interrupt back (POSIX), 'q' where it quits at once.
  EXPECT_NE(channel->take().find_first_of("iq"), std::string::npos);
}

TEST(Module, TheCopyBesideTheProgramIsTheOneLinkedAndOtherLibrariesAreRefusedWithTheReason) {
  const std::string folder = platform::programFolder();
  ASSERT_FALSE(folder.empty());
  EXPECT_TRUE(folder.back() == '/' || folder.back() == '\\') << folder;
  ModuleEntry entry;
  std::string error;
  ASSERT_TRUE(loadModule(entry, error)) << error;
  EXPECT_EQ(entry.getManager(), getGenoManagerInstance());
  EXPECT_FALSE(entry.cancel(entry.getManager(), "zorv-platform-test-no-such-job"));

  ModuleEntry none;
  EXPECT_FALSE(loadModule(none, error, "zorv-no-such-module.dll"));
  EXPECT_EQ(error.rfind("cannot load ", 0), 0u) << error;
  EXPECT_NE(error.find("zorv-no-such-module.dll"), std::string::npos) << error;
  std::string host = platform::moduleFileName();  // the reference host lies beside it too
  host.replace(host.find("zorvwgnm"), 8, "zorvhost");
  EXPECT_FALSE(loadModule(none, error, host));
  EXPECT_EQ(error, host + " has no function GENOSTAT");
  EXPECT_EQ(none.genostat, nullptr);
}

TEST(TemporaryFolders, NewEmptyAndDistinctUnderANonAsciiFolderAndRefusedInAMissingOne) {
  const fs::path dir = fs::temp_directory_path() / ("zorv-platform-" + std::to_string(std::random_device{}()));
  const fs::path base = dir / fs::u8path("temp-\xC3\xA4\xC3\x9F");  // temp-äß
  fs::create_directories(base);
  std::string a, b, error;
  ASSERT_TRUE(platform::makeTemporaryFolder(a, error, base.u8string())) << error;
  ASSERT_TRUE(platform::makeTemporaryFolder(b, error, base.u8string())) << error;
  EXPECT_NE(a, b);
  EXPECT_EQ(fs::u8path(a).parent_path(), base);
  EXPECT_TRUE(fs::is_empty(fs::u8path(b)));

  std::string missing;
  EXPECT_FALSE(platform::makeTemporaryFolder(missing, error, (dir / "missing").u8string()));
  EXPECT_EQ(error.rfind("cannot create a temporary folder ", 0), 0u) << error;
  EXPECT_NE(error.find("missing"), std::string::npos) << error;
  EXPECT_TRUE(missing.empty());
  fs::remove_all(dir);
}

}  // namespace
}  // namespace zorv
