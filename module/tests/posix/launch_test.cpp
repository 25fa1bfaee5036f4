// Starting the analysis: the platform's process calls on their own, then the command line, the
// process the stand-in script finds itself in, and the launches that cannot go ahead.
#include <fcntl.h>
#include <rapidjson/document.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "process_test_support.h"
#include "module_test_support.h"

namespace mt {
namespace {

namespace platform = genostat::platform;

// ---- the platform's process calls ------------------------------------------------------------

TEST(StartProcess, ExitCodeSignalDeathAndProgramsThatCannotRun) {
  ScratchFolder dir;
  const std::string notExecutable = dir.write("plain", "#!/bin/sh\nexit 0\n");
  struct Case {
    std::string program, argument;
    int code;
  };
  const Case cases[] = {{"/bin/sh", "exit 0", 0}, {"/bin/sh", "exit 7", 7}, {"/bin/sh", "exit 255", 255},
                        {"/bin/sh", "kill -TERM $$", 128 + SIGTERM}, {"/bin/sh", "kill -KILL $$", 128 + SIGKILL},
                        {dir.file("missing"), "x", 127}, {notExecutable, "x", 127}, {dir.path(), "x", 127}};
  for (const Case& c : cases) {
    const int pid = platform::startProcess(c.program, {"-c", c.argument});
    ASSERT_GT(pid, 1) << c.program << " " << c.argument;
    EXPECT_EQ(platform::waitForExitKeepingId(pid), c.code) << c.program << " " << c.argument;
    platform::reapProcess(pid);
  }
}

TEST(StartProcess, EndedChildKeepsItsIdUntilReapedOtherIdsAreRefused) {
  const int pid = platform::startProcess("/bin/sh", {"-c", "exit 3"});
  ASSERT_GT(pid, 1);
  ASSERT_EQ(platform::waitForExitKeepingId(pid), 3);
  // Still a zombie of ours: the id is taken, and waiting again gives the same code.
  EXPECT_TRUE(std::filesystem::exists("/proc/" + std::to_string(pid)));
  EXPECT_EQ(platform::waitForExitKeepingId(pid), 3);
  platform::reapProcess(pid);
  EXPECT_TRUE(eventually([&] { return !std::filesystem::exists("/proc/" + std::to_string(pid)); }, 2.0));
  for (int other : {pid, -1, 0, 1}) EXPECT_EQ(platform::waitForExitKeepingId(other), -1) << other;
  platform::reapProcess(-1);  // nothing to release, nothing happens
  platform::reapProcess(0);
}

TEST(StartProcess, ChildLeadsItsOwnGroupAndGetsNoOtherDescriptor) {
  // A descriptor the host left inheritable, at a number the child would not open itself.
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  ASSERT_EQ(::dup2(fds[0], 100), 100);
  const int pid = platform::startProcess("/bin/sleep", {"5"});
  ::close(100);
  ::close(fds[0]);
  ::close(fds[1]);
  ASSERT_GT(pid, 1);
  const std::string proc = "/proc/" + std::to_string(pid);
  ASSERT_TRUE(eventually([&] { return readAll(proc + "/comm") == "sleep\n"; }));

  EXPECT_EQ(::getpgid(pid), pid);
  std::vector<std::string> open;
  for (const auto& entry : std::filesystem::directory_iterator(proc + "/fd")) {
    open.push_back(entry.path().filename().string());
  }
  std::sort(open.begin(), open.end());
  EXPECT_EQ(open, (std::vector<std::string>{"0", "1", "2"}));

  ::kill(pid, SIGKILL);
  EXPECT_EQ(platform::waitForExitKeepingId(pid), 128 + SIGKILL);
  platform::reapProcess(pid);
}

// ---- the analysis process as the stand-in sees it -------------------------------------------

class LaunchTest : public RunTest {
 protected:
  // Runs one job that echoes what it received, and returns the stand-in's report.
  rapidjson::Document echo(GenoJobSettings* settings) {
    queue(settings);
    rapidjson::Document report;
    if (!client_.waitForEnds(1)) return report;
    report.Parse(readAll(scratch_.file("echo.json")).c_str());
    return report;
  }
  std::string echoPlan() { return plan(R"({"echo":")" + scratch_.file("echo.json") + R"(","rows":1})"); }
};

TEST_F(LaunchTest, ArgumentsAreScriptAndBase64Parameters) {
  GenoJobSettings* settings = job("args", echoPlan());
  settings->adapterType = AdapterType::ILLUMINA;
  const std::string planFile = settings->fastqFiles[0];
  const rapidjson::Document report = echo(settings);
  ASSERT_TRUE(report.IsObject());

  const auto& argv = report["argv"];
  ASSERT_EQ(argv.Size(), 2u) << "script and payload, nothing else";
  EXPECT_EQ(std::string(argv[0].GetString()), installDir_ + "/scripts/genostat.pyc");
  const auto& job = report["params"]["fastq_data"][0];
  EXPECT_EQ(std::string(job["adapter"].GetString()), "ILLUMINA");
  EXPECT_EQ(std::string(job["files"][0].GetString()), planFile);
  const std::string csv = job["CSV_Path"].GetString();
  EXPECT_EQ(csv.rfind(tempDir_ + "/", 0), 0u) << csv;
  EXPECT_EQ(csv.substr(csv.size() - 4), ".csv");
  // The end message names the same file the script was told to write.
  EXPECT_EQ(client_.ends()[0].csvFilePath, csv);
}

TEST_F(LaunchTest, ProcessLeadsItsGroupAndInheritsEnvironmentAndFolder) {
  ASSERT_EQ(::setenv("GENOSTAT_TEST_MARK", "inherited", 1), 0);
  const rapidjson::Document report = echo(job("env", echoPlan()));
  ::unsetenv("GENOSTAT_TEST_MARK");
  ASSERT_TRUE(report.IsObject());

  // The launcher execs the interpreter, so the script runs as the group's leader.
  EXPECT_EQ(report["pgid"].GetInt(), report["pid"].GetInt());
  EXPECT_EQ(std::string(report["mark"].GetString()), "inherited");
  EXPECT_EQ(std::string(report["cwd"].GetString()), std::filesystem::current_path().string());
}

TEST_F(LaunchTest, ScriptOutsideTheScriptsFolderIsTheFallback) {
  std::filesystem::remove_all(installDir_ + "/scripts");
  install(installDir_, Launcher::Runs, /*scriptInScripts=*/false);
  std::filesystem::remove_all(installDir_ + "/scripts");
  const rapidjson::Document report = echo(job("fallback", echoPlan()));
  ASSERT_TRUE(report.IsObject());
  EXPECT_EQ(std::string(report["argv"][0].GetString()), installDir_ + "/genostat.pyc");
}

TEST_F(LaunchTest, ProcessIdIsKeptWhileRunningAndForgottenOnceEnded) {
  submit("watched", R"({"ready":")" + scratch_.file("ready") + R"(","sleep":0.3,"rows":1})");
  ASSERT_TRUE(ready());
  const int32_t pid = Peer::processId(*manager_);
  EXPECT_GT(pid, 1);
  EXPECT_TRUE(genostat::platform::posix::processAlive(pid));
  ASSERT_TRUE(client_.waitForEnds(1));
  EXPECT_EQ(Peer::processId(*manager_), -1) << "an ended job's id must not reach a later kill";
}

// ---- launches that cannot go ahead -----------------------------------------------------------

TEST_F(LaunchTest, MissingOrNotExecutableLauncherFailsWithCode127) {
  // Not a silently dropped job: the child reports the failure as a shell would.
  int round = 0;
  for (Launcher launcher : {Launcher::Missing, Launcher::NotExecutable}) {
    std::filesystem::remove(installDir_ + "/statisticspython3");
    install(installDir_, launcher);
    const std::string name = "no launcher " + std::to_string(++round);
    submit(name, R"({"rows":2})");
    ASSERT_TRUE(client_.waitForEnds(static_cast<std::size_t>(round)));
    const Recorded end = client_.ends().back();
    EXPECT_EQ(end.jobName, name);
    EXPECT_NE(end.message.find("MESSAGE=327."), std::string::npos) << end.message;
    EXPECT_EQ(end.message.find("GET DATA"), std::string::npos) << "the failure form has no import";
    std::string text;
    EXPECT_TRUE(Peer::takeFailureMessage(*manager_, "no_launcher_" + std::to_string(round), 327, text));
    EXPECT_EQ(text, "Unknown error occurred");
  }
  EXPECT_TRUE(tempFiles().empty());
}

TEST_F(LaunchTest, MissingTemporaryFolderDropsTheJobAndTheNextRuns) {
  // The run has no result name, so it ends before any process: the client hears of its start only.
  zorvhost::setTempPath(scratch_.file("no-such-folder"));
  submit("lost", R"({"rows":1})");
  ASSERT_TRUE(client_.waitForStarted("lost"));
  ASSERT_TRUE(workerIdle());
  EXPECT_TRUE(client_.ends().empty());
  EXPECT_FALSE(manager_->isJobPendingOrRunning("lost"));

  zorvhost::setTempPath(tempDir_);
  submit("found", R"({"rows":1})");
  ASSERT_TRUE(client_.waitForEnds(1));
  EXPECT_EQ(client_.ends()[0].jobName, "found");
  const std::vector<Recorded> lost = client_.of("lost");
  ASSERT_EQ(lost.size(), 2u);
  EXPECT_FALSE(lost[0].started);
  EXPECT_TRUE(lost[1].started);
}

TEST_F(LaunchTest, NullRecordIsRefused) {
  EXPECT_FALSE(Peer::launchPythonProcess(*manager_, nullptr));
  EXPECT_TRUE(client_.messages().empty());
}

}  // namespace
}  // namespace mt

