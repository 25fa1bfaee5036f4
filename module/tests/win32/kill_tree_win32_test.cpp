// Stopping an analysis on Windows: the Toolhelp walk ends the launcher, the script and everything
// the script started; ids that are no process are refused.
#include <sstream>
#include <string>

#include "module_test_support.h"
#include "platform/platform.h"
#include "win32_test_support.h"

namespace mt {
namespace {

namespace platform = genostat::platform;

// Whatever of a test's processes survived it does not outlive the test.
struct Survivors {
  std::vector<int> pids;
  ~Survivors() {
    for (int pid : pids) terminateIfRunning(pid);
  }
};

std::string standIn() { return (testProgramFolder() / "standin-analysis.exe").u8string(); }

class KillTreeTest : public RunTest {};

TEST_F(KillTreeTest, CancelEndsLauncherScriptChildAndGrandchild) {
  const std::string tree = scratch_.file("tree");
  const std::string echo = scratch_.file("echo.json");
  submit("tree", hangingPlan(R"(,"rows":1,"echo":")" + echo + R"(","children":")" + tree + "\""));
  ASSERT_TRUE(ready());
  const int launcher = Peer::processId(*manager_);
  int script = 0;
  {
    const std::string report = readAll(echo);
    const std::string key = "\"pid\":";
    const std::size_t at = report.find(key);
    ASSERT_NE(at, std::string::npos) << report;
    script = std::stoi(report.substr(at + key.size()));
  }
  int child = 0;
  int grandchild = 0;
  std::istringstream(readAll(tree)) >> child >> grandchild;
  Survivors survivors{{grandchild, child, script, launcher}};
  ASSERT_GT(launcher, 0);
  ASSERT_GT(child, 0);
  ASSERT_GT(grandchild, 0);
  // launcher (cmd.exe) -> script -> child -> grandchild
  EXPECT_EQ(parentOf(static_cast<DWORD>(script)), static_cast<DWORD>(launcher));
  EXPECT_EQ(parentOf(static_cast<DWORD>(child)), static_cast<DWORD>(script));
  EXPECT_EQ(parentOf(static_cast<DWORD>(grandchild)), static_cast<DWORD>(child));

  EXPECT_TRUE(manager_->cancelJob("tree"));
  for (int pid : {grandchild, child, script, launcher}) {
    EXPECT_TRUE(eventually([&] { return processGone(pid); }, 5.0)) << "process " << pid << " survived";
  }
  ASSERT_TRUE(workerIdle());
  // Only the cancel's own end message, with no syntax; the partial result is removed.
  const std::vector<Recorded> ends = client_.ends();
  ASSERT_EQ(ends.size(), 1u);
  EXPECT_EQ(ends[0].message, "");
  EXPECT_TRUE(tempFiles().empty());
  EXPECT_EQ(Peer::processId(*manager_), -1);
}

TEST(KillProcessTree, EndsEveryLevelAndTheRootWithExitCodeOne) {
  ScratchFolder folder;
  const std::string idFile = folder.file("grandchild");
  const int root = platform::startProcess(standIn(), {"--child", idFile});
  ASSERT_GT(root, 0);
  ASSERT_TRUE(eventually([&] { return !readAll(idFile).empty(); }));
  const int grandchild = std::stoi(readAll(idFile));
  Survivors survivors{{grandchild, root}};
  EXPECT_EQ(parentOf(static_cast<DWORD>(grandchild)), static_cast<DWORD>(root));

  EXPECT_TRUE(platform::killProcessTree(root));
  EXPECT_EQ(platform::waitForExitKeepingId(root), 1) << "what the waiting launch reads";
  EXPECT_TRUE(eventually([&] { return processGone(grandchild); }, 5.0));
  platform::reapProcess(root);
}

TEST(KillProcessTree, IdsThatAreNoRunningProcessAreRefused) {
  EXPECT_FALSE(platform::killProcessTree(0)) << "the idle process, its own parent";
  EXPECT_FALSE(platform::killProcessTree(-1)) << "no job has started yet";
  // A multiple of four, as every process id is, far above any id handed out.
  EXPECT_FALSE(platform::killProcessTree(0x7ffffffc)) << "no such process";
}

}  // namespace
}  // namespace mt
