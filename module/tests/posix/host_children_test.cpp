// Regressions of the module inside hosts that do things of their own with children, pipes and
// links: SIGCHLD ignored or reaped by the host, a FIFO or a device named as an input file, and a
// dangling link where the result file would go.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <thread>

#include "module_test_support.h"
#include "platform/platform.h"

namespace mt {
namespace {

namespace platform = genostat::platform;

// A host's way with SIGCHLD, in force for the lifetime of the object.
class HostChildHandling {
 public:
  enum Kind { Ignored, NoChildWait, OwnReaper };
  explicit HostChildHandling(Kind kind) {
    struct sigaction action {};
    action.sa_handler = kind == Ignored ? SIG_IGN : SIG_DFL;
    if (kind == NoChildWait) action.sa_flags = SA_NOCLDWAIT;
    ::sigaction(SIGCHLD, &action, &previous_);
    if (kind == OwnReaper) {
      reaper_ = std::thread([this] {
        while (!stop_.load()) {
          int status = 0;
          if (::waitpid(-1, &status, WNOHANG) <= 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
      });
    }
  }
  ~HostChildHandling() {
    stop_.store(true);
    if (reaper_.joinable()) reaper_.join();
    ::sigaction(SIGCHLD, &previous_, nullptr);
  }

 private:
  struct sigaction previous_ {};
  std::atomic<bool> stop_{false};
  std::thread reaper_;
};

TEST(HostChildren, ExitCodeSurvivesAHostThatIgnoresOrReapsSigchld) {
  // Before, waitid failed with ECHILD and every good run counted as failed (exit code -1).
  for (auto kind : {HostChildHandling::Ignored, HostChildHandling::NoChildWait, HostChildHandling::OwnReaper}) {
    HostChildHandling host(kind);
    for (int code : {0, 3}) {
      const int pid = platform::startProcess("/bin/sh", {"-c", "sleep 0.05; exit " + std::to_string(code)});
      ASSERT_GT(pid, 1) << kind;
      EXPECT_EQ(platform::waitForExitKeepingId(pid), code) << kind;
      // The ended launcher keeps its id until released, whatever the host does.
      EXPECT_TRUE(exists("/proc/" + std::to_string(pid))) << kind;
      platform::reapProcess(pid);
      EXPECT_TRUE(eventually([&] { return !exists("/proc/" + std::to_string(pid)); })) << kind;
    }
  }
}

TEST(HostChildren, FifoOrDeviceNamedAsInputIsRefusedWithoutWaiting) {
  // Before, opening a FIFO blocked the host's command thread until a writer came.
  ScratchFolder dir;
  const std::string fifo = dir.file("reads.fastq");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {fifo, std::string("/dev/zero")}) {
    auto check = std::async(std::launch::async, [&] { return platform::checkInputFile(path); });
    if (check.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
      const int unblock = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);  // lets a stuck open go on
      ADD_FAILURE() << path << " blocked the check";
      check.wait();
      ::close(unblock);
      continue;
    }
    EXPECT_EQ(check.get(), platform::InputFileCheck::EmptyOrNoSize) << path;
  }
}

TEST(HostChildren, DanglingLinkIsATakenResultName) {
  // Before, stat followed the link, the name counted as free and the script wrote through it.
  ScratchFolder dir;
  ASSERT_EQ(::symlink(dir.file("nowhere").c_str(), dir.file("link.csv").c_str()), 0);
  EXPECT_TRUE(Peer::fileExists(dir.file("link.csv")));
  EXPECT_FALSE(exists(dir.file("nowhere")));
}

}  // namespace
}  // namespace mt
