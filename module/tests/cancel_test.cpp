// Cancellation of queued and running jobs, one at a time and all pending at once.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "jobs_test_support.h"
#include "process_test_support.h"

namespace jobs_test {
namespace {

using Peer = GenoStatAlgoManagerTestPeer;

// A queued job with everything the end message carries set to recognisable values.
GenoJobSettings* queuedJob(GenoStatAlgoManager& manager, const std::string& name) {
  GenoJobSettings* job = makeJob(name);
  job->csvFilePath = "/tmp/" + name + ".csv";
  job->workbookId = 7;
  job->paragraphId = 9;
  manager.addJobToQueue(job);
  return job;
}

TEST(CancelQueued, FirstCancelMarksCancelledAndSendsEmptyEndMessage) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings* job = queuedJob(*manager, "j1");
  client.clear();

  EXPECT_TRUE(manager->cancelJob("j1"));
  EXPECT_EQ(job->jobStatus.load(), JobStatus::Cancelled);
  EXPECT_EQ(Peer::queueSize(*manager), 1u) << "the worker drops it, not the cancel";
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].id, 1026);
  EXPECT_EQ(messages[0].jobName, "j1");
  EXPECT_EQ(messages[0].message, "");
  EXPECT_EQ(messages[0].csvFilePath, "/tmp/j1.csv");
  EXPECT_EQ(messages[0].workbookId, 7);
  EXPECT_EQ(messages[0].paragraphId, 9);
}

TEST(CancelQueued, RepeatedCancelSendsAnotherEndMessage) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings* job = queuedJob(*manager, "j1");
  client.clear();
  EXPECT_TRUE(manager->cancelJob("j1"));
  EXPECT_TRUE(manager->cancelJob("j1"));
  EXPECT_TRUE(manager->cancelJob("j1"));
  EXPECT_EQ(job->jobStatus.load(), JobStatus::Cancelled);
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 3u);
  for (const Recorded& m : messages) {
    EXPECT_EQ(m.id, 1026);
    EXPECT_EQ(m.message, "");
  }
}

TEST(CancelQueued, StatusOtherThanPendingIsKept) {
  // Only a Pending job becomes Cancelled; the cancel is still answered.
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings* job = queuedJob(*manager, "j1");
  job->jobStatus.store(JobStatus::Failed);
  client.clear();
  EXPECT_TRUE(manager->cancelJob("j1"));
  EXPECT_EQ(job->jobStatus.load(), JobStatus::Failed);
  EXPECT_EQ(client.messages().size(), 1u);
}

TEST(CancelQueued, UnknownNameIsFalseAndSilent) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings* job = queuedJob(*manager, "j1");
  client.clear();
  EXPECT_FALSE(manager->cancelJob("j2"));
  EXPECT_FALSE(manager->cancelJob(""));
  EXPECT_EQ(job->jobStatus.load(), JobStatus::Pending);
  EXPECT_TRUE(client.messages().empty());
}

TEST(CancelQueued, EmptyQueueIsFalseAndSilent) {
  ClientRecorder client;
  auto manager = Peer::make();
  EXPECT_FALSE(manager->cancelJob("anything"));
  EXPECT_TRUE(client.messages().empty());
}

TEST(CancelQueued, NamesDifferingInCaseAreDifferentJobs) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings* lower = queuedJob(*manager, "run");
  GenoJobSettings* upper = queuedJob(*manager, "RUN");
  client.clear();
  EXPECT_FALSE(manager->cancelJob("Run"));
  EXPECT_TRUE(manager->cancelJob("RUN"));
  EXPECT_EQ(lower->jobStatus.load(), JobStatus::Pending);
  EXPECT_EQ(upper->jobStatus.load(), JobStatus::Cancelled);
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].jobName, "RUN");
}

TEST(CancelQueued, OnlyTheFirstOfTwoEquallyNamedJobs) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings* first = queuedJob(*manager, "same");
  GenoJobSettings* second = queuedJob(*manager, "same");
  EXPECT_TRUE(manager->cancelJob("same"));
  EXPECT_EQ(first->jobStatus.load(), JobStatus::Cancelled);
  EXPECT_EQ(second->jobStatus.load(), JobStatus::Pending);
  // The next cancel finds the first again (any status), not the second.
  EXPECT_TRUE(manager->cancelJob("same"));
  EXPECT_EQ(second->jobStatus.load(), JobStatus::Pending);
}

TEST(CancelRunning, NotStartedProcessStillCancelsAndAnswers) {
  // Before the job's process exists the stored id is -1: nothing can be killed, the cancel holds.
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings running;
  running.jobName = "live";
  running.jobStatus.store(JobStatus::Running);
  Peer::setCurrentJob(*manager, &running, -1);
  GenoJobSettings* queuedTwin = queuedJob(*manager, "live");
  client.clear();

  EXPECT_TRUE(manager->cancelJob("live"));
  EXPECT_EQ(running.jobStatus.load(), JobStatus::Cancelled);
  EXPECT_EQ(queuedTwin->jobStatus.load(), JobStatus::Pending) << "the running job is matched first";
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].id, 1026);
  EXPECT_EQ(messages[0].jobName, "live");
  EXPECT_EQ(messages[0].message, "");
  Peer::setCurrentJob(*manager, nullptr, -1);
}

#ifndef _WIN32
TEST(CancelRunning, KillsTheStoredProcess) {
  ClientRecorder client;
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
#endif

TEST(CancelAllPending, MessagesOnlyPendingJobsAndFreesAll) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings* a = queuedJob(*manager, "a");
  GenoJobSettings* b = queuedJob(*manager, "b");
  GenoJobSettings* c = queuedJob(*manager, "c");
  ASSERT_TRUE(manager->cancelJob("b"));
  client.clear();
  for (GenoJobSettings* job : {a, b, c}) freewatch::watch(job);

  manager->cancellAllJobsPending();

  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].jobName, "a");
  EXPECT_EQ(messages[1].jobName, "c");
  for (const Recorded& m : messages) {
    EXPECT_EQ(m.id, 1026);
    EXPECT_EQ(m.message, "");
  }
  EXPECT_EQ(Peer::queueSize(*manager), 0u);
  for (GenoJobSettings* job : {a, b, c}) EXPECT_TRUE(freewatch::freed(job));
  freewatch::forget();
}

TEST(CancelAllPending, RunningJobIsNotTouched) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings running;
  running.jobName = "live";
  running.jobStatus.store(JobStatus::Running);
  Peer::setCurrentJob(*manager, &running, -1);
  queuedJob(*manager, "q");
  client.clear();

  manager->cancellAllJobsPending();
  EXPECT_EQ(running.jobStatus.load(), JobStatus::Running);
  EXPECT_TRUE(manager->isJobPendingOrRunning("live"));
  EXPECT_FALSE(manager->isJobPendingOrRunning("q"));
  ASSERT_EQ(client.messages().size(), 1u);
  EXPECT_EQ(client.messages()[0].jobName, "q");
  Peer::setCurrentJob(*manager, nullptr, -1);
}

TEST(CancelAllPending, EmptyQueueDoesNothing) {
  ClientRecorder client;
  auto manager = Peer::make();
  manager->cancellAllJobsPending();
  EXPECT_TRUE(client.messages().empty());
  EXPECT_EQ(Peer::queueSize(*manager), 0u);
}

TEST(CancelGenoJob, NullManagerIsFalse) {
  ClientRecorder client;
  EXPECT_FALSE(cancelGenoJob(nullptr, "x"));
  EXPECT_FALSE(cancelGenoJob(nullptr, nullptr));
  EXPECT_TRUE(client.messages().empty());
}

TEST(CancelGenoJob, ForwardsToTheManagersCancel) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings* job = queuedJob(*manager, "x");
  client.clear();
  EXPECT_FALSE(cancelGenoJob(manager.get(), "X"));
  EXPECT_FALSE(cancelGenoJob(manager.get(), nullptr));
  EXPECT_EQ(job->jobStatus.load(), JobStatus::Pending);
  EXPECT_TRUE(cancelGenoJob(manager.get(), "x"));
  EXPECT_EQ(job->jobStatus.load(), JobStatus::Cancelled);
  EXPECT_EQ(client.messages().size(), 1u);
}

TEST(CancelGenoJob, ConcurrentCancelsAndQueriesAreSafe) {
  // The client's thread cancels while the command thread queues and asks about names.
  auto manager = Peer::make();
  std::thread client([&] {
    for (int i = 0; i < 200; ++i) cancelGenoJob(manager.get(), ("job" + std::to_string(i % 20)).c_str());
  });
  for (int i = 0; i < 200; ++i) {
    manager->addJobToQueue(makeJob("job" + std::to_string(i % 20)));
    manager->isJobPendingOrRunning("job" + std::to_string(i % 20));
    if (i % 50 == 49) manager->cancellAllJobsPending();
  }
  client.join();
  manager->cancellAllJobsPending();
  EXPECT_EQ(Peer::queueSize(*manager), 0u);
}

}  // namespace
}  // namespace jobs_test
