// The POSIX process layer on real processes, inside hosts that do things of their own: exit codes
// and ids as the launch reads them, what the child inherits, SIGCHLD ignored or reaped by the host,
// FIFOs and devices named as input, dangling links, and the tree kill.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <future>

#include "module_test_support.h"
#include "platform/posix/process_tree.h"

namespace mt {
namespace {

namespace platform = genostat::platform;

bool live(int pid) { return exists("/proc/" + std::to_string(pid)); }

// A host's way with SIGCHLD, in force for the lifetime of the object.
class HostChildHandling {
 public:
  enum Kind { Ignored, NoChildWait, OwnReaper };
  explicit HostChildHandling(Kind kind) {
    struct sigaction action {};
    action.sa_handler = kind == Ignored ? SIG_IGN : SIG_DFL;
    action.sa_flags = kind == NoChildWait ? SA_NOCLDWAIT : 0;
    ::sigaction(SIGCHLD, &action, &previous_);
    if (kind != OwnReaper) return;
    reaper_ = std::thread([this] {
      for (int status = 0; !stop_.load();) {
        if (::waitpid(-1, &status, WNOHANG) <= 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
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

TEST(StartProcess, ExitCodesWhateverTheHostDoesWithSigchldAndTheIdKeptUntilReaped) {
  // Before, waitid failed with ECHILD in such hosts and every good run counted as failed.
  ScratchFolder dir;
  const std::string plain = dir.write("plain", "#!/bin/sh\nexit 0\n");
  const struct {
    std::string program, script;
    int code;
  } runs[] = {{"/bin/sh", "sleep 0.05; exit 0", 0},
              {"/bin/sh", "exit 255", 255},
              {"/bin/sh", "kill -TERM $$", 143},
              {dir.file("missing"), "", 127},
              {plain, "", 127},
              {dir.path(), "", 127}};
  for (auto kind : {HostChildHandling::Ignored, HostChildHandling::NoChildWait, HostChildHandling::OwnReaper}) {
    HostChildHandling host(kind);
    for (const auto& run : runs) {
      const int pid = platform::startProcess(run.program, {"-c", run.script});
      ASSERT_GT(pid, 1) << kind;
      EXPECT_EQ(platform::waitForExitKeepingId(pid), run.code) << kind << " " << run.program << " " << run.script;
      EXPECT_EQ(platform::waitForExitKeepingId(pid), run.code) << "asked again";
      EXPECT_TRUE(live(pid)) << "an ended launcher keeps its id until released, whatever the host does";
      platform::reapProcess(pid);
      EXPECT_TRUE(eventually([&] { return !live(pid); })) << kind;
      EXPECT_EQ(platform::waitForExitKeepingId(pid), -1);
    }
  }
}

TEST(StartProcess, ChildLeadsItsOwnGroupAndGetsNoOtherDescriptor) {
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  ASSERT_EQ(::dup2(fds[0], 100), 100);  // left inheritable by the host, where the child would not open one
  const int pid = platform::startProcess("/bin/sleep", {"30"});
  for (int fd : {100, fds[0], fds[1]}) ::close(fd);
  ASSERT_GT(pid, 1);
  const std::string proc = "/proc/" + std::to_string(pid);
  ASSERT_TRUE(eventually([&] { return readAll(proc + "/comm") == "sleep\n"; }, 30.0));
  EXPECT_EQ(::getpgid(pid), pid);
  // Read until it holds: sleep itself opens its locale files for a moment as it starts.
  Texts open;
  EXPECT_TRUE(eventually([&] {
    open.clear();
    for (const auto& entry : std::filesystem::directory_iterator(proc + "/fd")) open.push_back(entry.path().filename());
    std::sort(open.begin(), open.end());
    return open == Texts{"0", "1", "2"};
  })) << ::testing::PrintToString(open);
  ::kill(pid, SIGKILL);
  EXPECT_EQ(platform::waitForExitKeepingId(pid), 128 + SIGKILL);
  platform::reapProcess(pid);
}

TEST(InputFiles, FifoOrDeviceIsRefusedWithoutWaitingAndADanglingLinkIsATakenName) {
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
    } else {
      EXPECT_EQ(check.get(), platform::InputFileCheck::EmptyOrNoSize) << path;
    }
  }
  // Before, stat followed the link, the name counted as free and the script wrote through it.
  ASSERT_EQ(::symlink(dir.file("nowhere").c_str(), dir.file("link.csv").c_str()), 0);
  EXPECT_TRUE(platform::pathAttributes(dir.file("link.csv")).exists);
  if (::geteuid() != 0) {  // root reads any file
    const std::string secret = dir.write("secret.fastq", "data");
    ::chmod(secret.c_str(), 0);
    EXPECT_EQ(platform::checkInputFile(secret), platform::InputFileCheck::CannotOpen);
  }
}

std::vector<pid_t> g_signalled;
int recordOnly(pid_t pid, int) {
  g_signalled.push_back(pid);
  return 0;
}

TEST(TreeKill, OrphanedGrandchildIsCaughtThroughTheGroupAndIdsUpToOneAreNeverSignalled) {
  ScratchFolder dir;
  const int launcher = platform::startProcess(
      "/bin/sh", {"-c", "cd '" + dir.path() +
                            "' && { sh -c 'sleep 600 & echo $! > g; exec sleep 600' & echo $! > c; exec sleep 600; }"});
  ASSERT_GT(launcher, 1);
  int child = 0;
  int grandchild = 0;
  ASSERT_TRUE(eventually([&] {
    child = std::atoi(readAll(dir.file("c")).c_str());
    grandchild = std::atoi(readAll(dir.file("g")).c_str());
    return child > 1 && grandchild > 1;
  }));
  // The middle process dies first: its child is handed to another parent and can no longer be
  // found from the launcher by parent links.
  ::kill(child, SIGKILL);
  EXPECT_TRUE(eventually([&] { return processGone(child); }));
  EXPECT_TRUE(platform::killProcessTree(launcher));
  EXPECT_EQ(platform::waitForExitKeepingId(launcher), 128 + SIGKILL);
  platform::reapProcess(launcher);
  EXPECT_TRUE(eventually([&] { return processGone(grandchild); }, 5.0));

  // kill(0) would hit the test's own group, kill(-1) every process of the user, 1 is init.
  platform::posix::setSignalSender(&recordOnly);
  for (int pid : {1, 0, -1}) EXPECT_FALSE(platform::killProcessTree(pid)) << pid;
  platform::posix::setSignalSender(nullptr);
  EXPECT_TRUE(g_signalled.empty());
}

}  // namespace
}  // namespace mt
