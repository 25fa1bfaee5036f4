// Faults around a job run: the result CSV missing, empty or header-only; a hanging script with
// children and grandchildren, cancelled; the queue limit with a job running; cancels racing with
// the worker.
#include <atomic>
#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "process_test_support.h"
#include "module_test_support.h"

namespace mt {
namespace {

class JobFaultsTest : public RunTest {};

TEST_F(JobFaultsTest, ResultCsvMissingEmptyOrHeaderOnly) {
  submit("no csv", R"({})");
  submit("empty csv", R"({"csv":"empty"})");
  submit("header only", R"({"csv":"header"})");
  ASSERT_TRUE(client_.waitForEnds(3));
  const std::vector<Recorded> ends = client_.ends();

  // No CSV: no results (101), and only the /PRINT.
  EXPECT_NE(ends[0].message.find("/PRINT SAMPLE_COUNT=0 VARIABLE_COUNT=0 MESSAGE=101."), std::string::npos)
      << ends[0].message;
  EXPECT_EQ(ends[0].message.find("GET DATA"), std::string::npos);
  // A CSV without data rows keeps the record's counts and code, and gets the full syntax.
  for (std::size_t i : {1u, 2u}) {
    EXPECT_NE(ends[i].message.find("/PRINT SAMPLE_COUNT=-1 VARIABLE_COUNT=-1 MESSAGE=0."), std::string::npos)
        << ends[i].message;
    EXPECT_NE(ends[i].message.find("GET DATA"), std::string::npos);
    EXPECT_NE(ends[i].message.find("/DELETE FILE='" + ends[i].csvFilePath + "'."), std::string::npos);
  }
  std::string text;
  EXPECT_FALSE(Peer::takeFailureMessage(*manager_, "no_csv", 101, text)) << "not a failure of the script";
}

TEST_F(JobFaultsTest, CancelOfTheRunningJobEndsItOnceAtOnceAndLeavesNoProcessOfTheTree) {
  const std::string tree = scratch_.file("tree");
  submit("tree", hangingPlan(R"(,"rows":1,"children":")" + tree + "\""));
  ASSERT_TRUE(ready());
  const pid_t launcher = Peer::processId(*manager_);
  pid_t child = -1;
  pid_t grandchild = -1;
  std::istringstream(readAll(tree)) >> child >> grandchild;
  ASSERT_GT(child, 1);
  ASSERT_GT(grandchild, 1);
  EXPECT_EQ(process_test::parentOf(child), launcher);
  EXPECT_EQ(process_test::parentOf(grandchild), child);
  ASSERT_EQ(tempFiles().size(), 1u) << "the stand-in wrote its CSV before hanging";

  ASSERT_TRUE(manager_->cancelJob("tree"));
  // The end message is sent by the cancel itself, before it returns.
  const std::vector<Recorded> ends = client_.ends();
  ASSERT_EQ(ends.size(), 1u);
  EXPECT_EQ(ends[0].jobName, "tree");
  EXPECT_EQ(ends[0].message, "");
  for (pid_t pid : {launcher, child, grandchild}) {
    EXPECT_TRUE(eventually([&] { return processGone(pid); }, 5.0)) << "process " << pid << " survived";
  }
  ASSERT_TRUE(workerIdle());
  EXPECT_EQ(client_.ends().size(), 1u) << "the worker sends nothing for a cancelled job";
  EXPECT_TRUE(tempFiles().empty()) << "a cancelled job's CSV is removed";
  EXPECT_EQ(Peer::processId(*manager_), -1);
  EXPECT_FALSE(manager_->cancelJob("tree")) << "gone once the worker has let it go";
}

TEST_F(JobFaultsTest, TenQueuedBehindARunningJobAndTheEleventhRefused) {
  const std::string hang = plan(hangingPlan());
  const std::string quick = plan(R"({})");
  auto submitCommand = [&](const std::string& name, const std::string& planFile) {
    submitted_.push_back(name);
    return runCommand("GENOSTAT /JOB FILE='" + planFile + "' NAME='" + name + "'.");
  };
  ASSERT_EQ(submitCommand("running", hang), std::vector<std::string>{});
  ASSERT_TRUE(ready());
  for (int i = 1; i <= 9; ++i) {
    ASSERT_EQ(submitCommand("q" + std::to_string(i), quick), std::vector<std::string>{});
  }
  EXPECT_FALSE(manager_->isQueueFull()) << "nine queued; the running job does not count";
  ASSERT_EQ(submitCommand("q10", quick), std::vector<std::string>{});
  EXPECT_TRUE(manager_->isQueueFull());
  EXPECT_EQ(submitCommand("q11", quick),
            std::vector<std::string>{"Job queue threshold exceeded. Maximum allowed jobs in queue is : 10"});
  EXPECT_EQ(Peer::queueSize(*manager_), 10u);
  EXPECT_TRUE(client_.of("q11").empty()) << "a refused command queues nothing and tells the client nothing";

  // Once the running job goes, the ten run in turn.
  ASSERT_TRUE(manager_->cancelJob("running"));
  ASSERT_TRUE(client_.waitForEnds(11, 30.0));
  EXPECT_EQ(client_.ends().back().jobName, "q10");
}

TEST_F(JobFaultsTest, CancelBeforeTheProcessStartsStillStopsIt) {
  // The cancel finds no process to kill; the run sees the cancel once its process exists.
  GenoJobSettings* record = job("early", plan(R"({"rows":1,"sleep":30})"));
  record->jobStatus.store(JobStatus::Cancelled);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(Peer::launchPythonProcess(*manager_, record));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_TRUE(client_.messages().empty()) << "the cancel has answered the client already";
  EXPECT_TRUE(tempFiles().empty());
  EXPECT_EQ(Peer::processId(*manager_), -1);
}

TEST_F(JobFaultsTest, CancelsRacingWithTheWorkerEndEachJobExactlyOnce) {
  // Cancels from the client's thread land at every stage: queued, just taken, process starting,
  // running, ending, ended.
  constexpr int kJobs = 12;
  std::vector<std::string> names;
  for (int i = 0; i < kJobs; ++i) names.push_back("race" + std::to_string(i));
  std::atomic<int> submittedCount{0};
  std::vector<int> cancelled(kJobs, 0);
  std::thread canceller([&] {
    for (int i = 0; i < kJobs; ++i) {
      while (submittedCount.load() <= i) std::this_thread::yield();
      std::this_thread::sleep_for(std::chrono::milliseconds((i * 7) % 60));
      cancelled[i] = cancelGenoJob(manager_.get(), names[i].c_str()) ? 1 : 0;
    }
  });
  for (int i = 0; i < kJobs; ++i) {
    submit(names[i], i % 3 == 0 ? R"({"sleep":0.02})" : R"({"sleep":0.05,"rows":1,"exit":4})");
    submittedCount.store(i + 1);
  }
  canceller.join();
  ASSERT_TRUE(eventually([&] { return client_.ends().size() >= static_cast<std::size_t>(kJobs); }, 30.0));
  ASSERT_TRUE(workerIdle());

  int cancels = 0;
  for (int i = 0; i < kJobs; ++i) {
    std::vector<Recorded> ends;
    for (const Recorded& m : client_.of(names[i])) {
      if (m.id == 1026) ends.push_back(m);
    }
    ASSERT_EQ(ends.size(), 1u) << names[i];
    if (cancelled[i]) {
      ++cancels;
      EXPECT_EQ(ends[0].message, "") << names[i];
    } else {
      EXPECT_NE(ends[0].message, "") << names[i] << " ended on its own";
    }
  }
  EXPECT_GT(cancels, 0);
  EXPECT_TRUE(tempFiles().empty()) << "no CSV of a cancelled or failed job stays";
  EXPECT_EQ(Peer::processId(*manager_), -1);
}

}  // namespace
}  // namespace mt

