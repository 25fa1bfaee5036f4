// The POSIX process-tree kill on real processes: a launcher leading its own group, its child and
// grandchild; an orphaned grandchild; ids that must never be signalled.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <mutex>
#include <vector>

#include "module_test_support.h"
#include "platform/platform.h"
#include "platform/posix/process_tree.h"
#include "process_test_support.h"

namespace mt {
namespace {

using genostat::platform::killProcessTree;
namespace posix = genostat::platform::posix;
using process_test::Tree;

// Records every signal killProcessTree sends; forwards it to the system only when asked to.
struct SignalLog {
  std::mutex mutex;
  std::vector<pid_t> targets;
  bool forward = false;
};
SignalLog g_log;

int recordingSender(pid_t pid, int signal) {
  {
    std::lock_guard<std::mutex> lock(g_log.mutex);
    g_log.targets.push_back(pid);
  }
  if (g_log.forward) return ::kill(pid, signal);
  return 0;
}

class RecordedSignals {
 public:
  explicit RecordedSignals(bool forward) {
    std::lock_guard<std::mutex> lock(g_log.mutex);
    g_log.targets.clear();
    g_log.forward = forward;
    posix::setSignalSender(&recordingSender);
  }
  ~RecordedSignals() { posix::setSignalSender(nullptr); }
  RecordedSignals(const RecordedSignals&) = delete;
  RecordedSignals& operator=(const RecordedSignals&) = delete;
  std::vector<pid_t> targets() {
    std::lock_guard<std::mutex> lock(g_log.mutex);
    return g_log.targets;
  }
};

// Kills whatever of the tree a failed test left behind.
class TreeGuard {
 public:
  explicit TreeGuard(const Tree& tree) : tree_(tree) {}
  ~TreeGuard() { process_test::killTree(tree_); }
  TreeGuard(const TreeGuard&) = delete;
  TreeGuard& operator=(const TreeGuard&) = delete;

 private:
  Tree tree_;
};

TEST(ProcessTree, ThreeLevelsEndInnermostFirstThenTheGroup) {
  const Tree tree = process_test::startTree(true);
  TreeGuard guard(tree);
  ASSERT_GT(tree.child, 1);
  ASSERT_GT(tree.grandchild, 1);
  EXPECT_EQ(posix::childProcesses(tree.launcher), std::vector<pid_t>{tree.child});
  EXPECT_EQ(posix::childProcesses(tree.child), std::vector<pid_t>{tree.grandchild});
  EXPECT_TRUE(posix::childProcesses(tree.grandchild).empty());
  std::vector<pid_t> targets;
  {
    RecordedSignals signals(true);
    EXPECT_TRUE(killProcessTree(tree.launcher));
    targets = signals.targets();
  }
  EXPECT_EQ(targets, (std::vector<pid_t>{tree.grandchild, tree.child, tree.launcher, -tree.launcher}));
  const int status = process_test::reap(tree.launcher);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  EXPECT_TRUE(process_test::endsWithin(tree.child, 5));
  EXPECT_TRUE(process_test::endsWithin(tree.grandchild, 5));
}

TEST(ProcessTree, OrphanedGrandchildIsCaughtThroughTheGroup) {
  const Tree tree = process_test::startTree(true);
  TreeGuard guard(tree);
  ASSERT_GT(tree.child, 1);
  ASSERT_GT(tree.grandchild, 1);
  // The middle process dies first: its child is handed to another parent and can no longer be
  // found from the launcher by parent links.
  ASSERT_EQ(::kill(tree.child, SIGKILL), 0);
  ASSERT_TRUE(process_test::endsWithin(tree.child, 5));
  for (int i = 0; i < 500 && process_test::parentOf(tree.grandchild) == tree.child; ++i) ::usleep(10000);
  ASSERT_NE(process_test::parentOf(tree.grandchild), tree.child);
  ASSERT_TRUE(posix::processAlive(tree.grandchild));

  EXPECT_TRUE(killProcessTree(tree.launcher));
  process_test::reap(tree.launcher);
  EXPECT_TRUE(process_test::endsWithin(tree.grandchild, 5));
}

TEST(ProcessTree, LauncherOutsideItsOwnGroupGetsNoGroupSignal) {
  // Signalling the group of a process that does not lead one would hit our own test process.
  const Tree tree = process_test::startTree(false);
  TreeGuard guard(tree);
  ASSERT_GT(tree.grandchild, 1);
  ASSERT_NE(::getpgid(tree.launcher), tree.launcher);
  std::vector<pid_t> targets;
  {
    RecordedSignals signals(true);
    EXPECT_TRUE(killProcessTree(tree.launcher));
    targets = signals.targets();
  }
  const std::vector<pid_t> expected = {tree.grandchild, tree.child, tree.launcher};
  EXPECT_EQ(targets, expected);
  process_test::reap(tree.launcher);
  EXPECT_TRUE(process_test::endsWithin(tree.grandchild, 5));
}

TEST(ProcessTree, ReapedOrZombieProcessIsFalse) {
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(0);
  ASSERT_GT(pid, 1);
  process_test::reap(pid);  // gone for good: the id names nothing now
  {
    RecordedSignals signals(false);
    EXPECT_FALSE(killProcessTree(pid));
    for (pid_t target : signals.targets()) EXPECT_EQ(target, pid) << "only the dead id itself";
  }
  const pid_t zombie = ::fork();
  if (zombie == 0) ::_exit(0);
  ASSERT_GT(zombie, 1);
  ASSERT_TRUE(process_test::endsWithin(zombie, 5));  // ended, not yet reaped
  EXPECT_FALSE(killProcessTree(zombie));
  const int status = process_test::reap(zombie);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "it ended by itself";
}

TEST(ProcessTree, IdsOfOneAndBelowAreNeverSignalled) {
  RecordedSignals signals(false);  // nothing reaches the system even if the guard were missing
  for (int pid : {1, 0, -1, -2, -12345}) {
    EXPECT_FALSE(killProcessTree(pid)) << pid;
  }
  EXPECT_TRUE(signals.targets().empty());
}

TEST(ProcessTree, ManagerKillForwardsToTheTreeKill) {
  auto manager = GenoStatAlgoManagerTestPeer::make();
  {
    RecordedSignals signals(false);
    EXPECT_FALSE(GenoStatAlgoManagerTestPeer::killProcess(*manager, -1));
    EXPECT_FALSE(GenoStatAlgoManagerTestPeer::killProcess(*manager, 0));
    EXPECT_TRUE(signals.targets().empty());
  }
  const pid_t pid = process_test::startShell("exec sleep 600", true);
  ASSERT_GT(pid, 1);
  EXPECT_TRUE(GenoStatAlgoManagerTestPeer::killProcess(*manager, pid));
  const int status = process_test::reap(pid);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  EXPECT_EQ(GenoStatAlgoManagerTestPeer::waitForPythonProcessToEnd(*manager), 0);
}

TEST(CancelRunning, KillsTheStoredProcess) {
  Client client;
  auto manager = Peer::make();
  const pid_t launcher = process_test::startShell("exec sleep 600", true);
  ASSERT_GT(launcher, 1);
  GenoJobSettings running;
  running.jobName = "live";
  Peer::setCurrentJob(*manager, &running, launcher);
  EXPECT_TRUE(manager->cancelJob("live"));
  const int status = process_test::reap(launcher);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  EXPECT_EQ(running.jobStatus.load(), JobStatus::Cancelled);
  EXPECT_EQ(client.messages().size(), 1u);
  EXPECT_EQ(Peer::processId(*manager), launcher) << "the id is never reset by a cancel";
  Peer::setCurrentJob(*manager, nullptr, -1);
}

}  // namespace
}  // namespace mt

