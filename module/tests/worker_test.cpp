// The worker: jobs run one at a time in submission order, from command to client messages; jobs
// cancelled while queued or while running; the manager's shutdown with a job in hand.
#include <atomic>
#include <string>
#include <vector>

#include "module_test_support.h"

namespace mt {
namespace {

class WorkerTest : public RunTest {};

TEST_F(WorkerTest, FirstQueuedJobStartsTheWorker) {
  EXPECT_FALSE(Peer::workerRunning(*manager_));
  submit("first", R"({})");
  EXPECT_TRUE(Peer::workerRunning(*manager_));
  ASSERT_TRUE(client_.waitForEnds(1));
  // The worker waits for more work rather than ending with an empty queue.
  EXPECT_TRUE(Peer::workerRunning(*manager_));
  submit("second", R"({})");
  ASSERT_TRUE(client_.waitForEnds(2));
}

TEST_F(WorkerTest, AFinishedJobCountsAsRunningUntilItsEndMessageIsOutButCannotBeCancelled) {
  // What the client sees while the end message is being posted: a client that finds a job neither
  // queued nor running must be able to conclude that the job ended without a message.
  std::atomic<int> hooks{0};
  std::atomic<bool> runningDuringEnd{false};
  std::atomic<bool> cancelledDuringEnd{true};
  client_.onEnd([&](const Recorded& end) {
    if (end.jobName != "finishing" || hooks.fetch_add(1) != 0) return;
    runningDuringEnd = manager_->isJobPendingOrRunning("finishing");
    cancelledDuringEnd = manager_->cancelJob("finishing");
  });
  submit("finishing", R"({"rows":1})");
  ASSERT_TRUE(client_.waitForEnds(1));
  ASSERT_TRUE(workerIdle());
  client_.onEnd(nullptr);
  EXPECT_TRUE(runningDuringEnd);
  EXPECT_FALSE(cancelledDuringEnd) << "its process has ended: there is nothing left to cancel";
  EXPECT_EQ(client_.ends().size(), 1u) << "no second, empty end message";
  EXPECT_NE(client_.ends()[0].message.find("MESSAGE=100."), std::string::npos);
  EXPECT_FALSE(manager_->isJobPendingOrRunning("finishing"));
}

TEST_F(WorkerTest, JobsRunOneAtATimeInSubmissionOrder) {
  const std::string log = scratch_.file("log");
  for (const char* tag : {"A", "B", "C"}) {
    submit(tag, R"({"log":")" + log + R"(","tag":")" + tag + R"(","sleep":0.05})");
  }
  ASSERT_TRUE(client_.waitForEnds(3));
  EXPECT_EQ(readAll(log), "A+A-B+B-C+C-");

  // Each job: queued (not started), started, ended; the ends in submission order.
  for (const char* tag : {"A", "B", "C"}) {
    const std::vector<Recorded> seen = client_.of(tag);
    ASSERT_EQ(seen.size(), 3u) << tag;
    EXPECT_EQ(seen[0].id, 1025);
    EXPECT_FALSE(seen[0].started);
    EXPECT_EQ(seen[1].id, 1025);
    EXPECT_TRUE(seen[1].started);
    EXPECT_EQ(seen[2].id, 1026);
  }
  const std::vector<Recorded> ends = client_.ends();
  EXPECT_EQ(ends[0].jobName, "A");
  EXPECT_EQ(ends[1].jobName, "B");
  EXPECT_EQ(ends[2].jobName, "C");
}

TEST_F(WorkerTest, CommandToClientMessagesAndPostJobSyntax) {
  zorvhost::setMetadataJson(R"({"job_metadata":{"workbook_id":"4","paragraph_id":"11"}})");
  const std::string planFile = plan(R"({"rows":3})");
  EXPECT_EQ(runCommand("GENOSTAT /JOB FILE='" + planFile + "' NAME='my run' /DESCRIPTIVES VARIABLES=GC."),
            std::vector<std::string>{});
  zorvhost::setMetadataJson("");
  submitted_.push_back("my run");  // for the clean-up of a failed test
  ASSERT_TRUE(client_.waitForEnds(1));

  const Recorded end = client_.ends()[0];
  EXPECT_EQ(end.jobName, "my run");
  EXPECT_EQ(end.workbookId, 4);
  EXPECT_EQ(end.paragraphId, 11);
  const std::string csv = end.csvFilePath;
  ASSERT_TRUE(exists(csv)) << "kept for the import and the /DELETE";
  const std::string& syntax = end.message;
  // 3 rows; 27 columns less the sample name and the adapter; results produced.
  EXPECT_NE(syntax.find("NAME='my_run'"), std::string::npos) << syntax;
  EXPECT_NE(syntax.find("/PRINT SAMPLE_COUNT=3 VARIABLE_COUNT=25 MESSAGE=100."), std::string::npos) << syntax;
  EXPECT_NE(syntax.find("/FILE=\"" + csv + "\""), std::string::npos) << syntax;
  EXPECT_NE(syntax.find("DATASET NAME my_run."), std::string::npos) << syntax;
  EXPECT_NE(syntax.find("DESCRIPTIVES VARIABLES=GC"), std::string::npos) << syntax;
  EXPECT_LT(syntax.find("/PRINT"), syntax.find("GET DATA"));
  EXPECT_LT(syntax.find("DESCRIPTIVES"), syntax.find("/DELETE"));

  // The client runs the last command of that syntax; the module removes the CSV.
  const std::string deleteCommand = syntax.substr(syntax.rfind("GENOSTAT"));
  EXPECT_NE(deleteCommand.find("/DELETE FILE='" + csv + "'."), std::string::npos) << deleteCommand;
  EXPECT_EQ(runCommand(deleteCommand), std::vector<std::string>{});
  EXPECT_FALSE(exists(csv));
}

TEST_F(WorkerTest, JobCancelledWhileQueuedIsDroppedAndTheNextStarts) {
  submit("running", hangingPlan());
  ASSERT_TRUE(ready());
  submit("dropped", R"({"rows":1})");
  submit("next", R"({"rows":1})");
  ASSERT_TRUE(manager_->cancelJob("dropped"));
  ASSERT_TRUE(manager_->cancelJob("running"));
  ASSERT_TRUE(client_.waitForEnds(3));
  ASSERT_TRUE(workerIdle());

  // Queued, then ended by the cancel; never started.
  const std::vector<Recorded> dropped = client_.of("dropped");
  ASSERT_EQ(dropped.size(), 2u);
  EXPECT_EQ(dropped[0].id, 1025);
  EXPECT_FALSE(dropped[0].started);
  EXPECT_EQ(dropped[1].id, 1026);
  EXPECT_EQ(dropped[1].message, "");
  const std::vector<Recorded> next = client_.of("next");
  ASSERT_EQ(next.size(), 3u);
  EXPECT_TRUE(next[1].started);
  EXPECT_NE(next[2].message.find("MESSAGE=100."), std::string::npos);
}

TEST_F(WorkerTest, ShutdownLetsTheRunningJobFinishAndStartsNoQueuedJob) {
  submit("finishing", R"({"rows":1,"ready":")" + scratch_.file("ready") + R"(","sleep":0.3})");
  ASSERT_TRUE(ready());
  GenoJobSettings* waiting = job("waiting", plan(R"({"rows":1})"));
  manager_->addJobToQueue(waiting);
  freewatch::watch(waiting);

  manager_.reset();

  EXPECT_TRUE(freewatch::freed(waiting));
  freewatch::forget();
  const std::vector<Recorded> ends = client_.ends();
  ASSERT_EQ(ends.size(), 1u);
  EXPECT_EQ(ends[0].jobName, "finishing");
  EXPECT_NE(ends[0].message.find("MESSAGE=100."), std::string::npos);
  EXPECT_EQ(client_.of("waiting").size(), 1u) << "queued only: never started, never ended";
}

TEST_F(WorkerTest, NullRecordInTheQueueIsSkipped) {
  manager_->addJobToQueue(nullptr);
  submit("after", R"({})");
  ASSERT_TRUE(client_.waitForEnds(1));
  EXPECT_EQ(client_.ends()[0].jobName, "after");
}

}  // namespace
}  // namespace mt

