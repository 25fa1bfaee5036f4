// The job queue: order, status on entry, the 10-job limit and which names are taken.
#include <gtest/gtest.h>

#include <string>

#include "jobs_test_support.h"

namespace jobs_test {
namespace {

using Peer = GenoStatAlgoManagerTestPeer;

TEST(Queue, AppendsInSubmissionOrderAsPending) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings* first = makeJob("first");
  GenoJobSettings* second = makeJob("second");
  second->jobStatus.store(JobStatus::Failed);  // whatever it held, a queued job starts Pending
  manager->addJobToQueue(first);
  manager->addJobToQueue(second);

  const std::list<GenoJobSettings*> queued = Peer::queuedJobs(*manager);
  ASSERT_EQ(queued.size(), 2u);
  EXPECT_EQ(queued.front(), first);
  EXPECT_EQ(queued.back(), second);
  EXPECT_EQ(first->jobStatus.load(), JobStatus::Pending);
  EXPECT_EQ(second->jobStatus.load(), JobStatus::Pending);
}

TEST(Queue, EachQueuedJobIsAnnouncedAsNotStarted) {
  ClientRecorder client;
  auto manager = Peer::make();
  manager->addJobToQueue(makeJob("one"));
  manager->addJobToQueue(makeJob("two"));
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(messages[i].id, 1025);
    EXPECT_FALSE(messages[i].started);
  }
  EXPECT_EQ(messages[0].jobName, "one");
  EXPECT_EQ(messages[1].jobName, "two");
}

TEST(Queue, NullRecordIsQueuedWithoutMessage) {
  ClientRecorder client;
  auto manager = Peer::make();
  manager->addJobToQueue(nullptr);
  EXPECT_EQ(Peer::queueSize(*manager), 1u);
  EXPECT_TRUE(client.messages().empty());
  EXPECT_FALSE(manager->isJobPendingOrRunning(""));
  EXPECT_FALSE(manager->cancelJob(""));
  manager->cancellAllJobsPending();
  EXPECT_EQ(Peer::queueSize(*manager), 0u);
}

TEST(QueueLimit, TenthQueuedJobFillsTheQueue) {
  auto manager = Peer::make();
  for (int i = 1; i <= 9; ++i) {
    manager->addJobToQueue(makeJob("job" + std::to_string(i)));
    EXPECT_FALSE(manager->isQueueFull()) << i << " queued";
  }
  manager->addJobToQueue(makeJob("job10"));
  EXPECT_TRUE(manager->isQueueFull());
  // Nothing refuses an eleventh here: the command side checks before it queues.
  manager->addJobToQueue(makeJob("job11"));
  EXPECT_TRUE(manager->isQueueFull());
  EXPECT_EQ(Peer::queueSize(*manager), 11u);
}

TEST(QueueLimit, RunningJobDoesNotCount) {
  auto manager = Peer::make();
  GenoJobSettings running;
  running.jobName = "running";
  Peer::setCurrentJob(*manager, &running, -1);
  for (int i = 1; i <= 9; ++i) manager->addJobToQueue(makeJob("job" + std::to_string(i)));
  EXPECT_FALSE(manager->isQueueFull());
  Peer::setCurrentJob(*manager, nullptr, -1);
}

TEST(QueueLimit, CancelledJobsStillOccupyTheQueue) {
  // A cancelled job leaves the queue only when the worker reaches it.
  auto manager = Peer::make();
  for (int i = 1; i <= 10; ++i) manager->addJobToQueue(makeJob("job" + std::to_string(i)));
  ASSERT_TRUE(manager->cancelJob("job3"));
  EXPECT_TRUE(manager->isQueueFull());
  manager->cancellAllJobsPending();
  EXPECT_FALSE(manager->isQueueFull());
}

TEST(NameInUse, QueuedPendingJobHoldsItsExactName) {
  auto manager = Peer::make();
  manager->addJobToQueue(makeJob("Sample run"));
  EXPECT_TRUE(manager->isJobPendingOrRunning("Sample run"));
  EXPECT_FALSE(manager->isJobPendingOrRunning("sample run"));
  EXPECT_FALSE(manager->isJobPendingOrRunning("SAMPLE RUN"));
  EXPECT_FALSE(manager->isJobPendingOrRunning("Sample run "));
  EXPECT_FALSE(manager->isJobPendingOrRunning("Sample"));
  EXPECT_FALSE(manager->isJobPendingOrRunning(""));
}

TEST(NameInUse, ComparisonCoversEmbeddedNulBytes) {
  // Equal length and equal bytes: a name is not cut at a NUL byte.
  auto manager = Peer::make();
  manager->addJobToQueue(makeJob(std::string("a\0b", 3)));
  EXPECT_TRUE(manager->isJobPendingOrRunning(std::string("a\0b", 3)));
  EXPECT_FALSE(manager->isJobPendingOrRunning("a"));
}

TEST(NameInUse, QueuedJobHoldsItsNameOnlyWhilePendingOrRunning) {
  auto manager = Peer::make();
  GenoJobSettings* job = makeJob("x");
  manager->addJobToQueue(job);
  job->jobStatus.store(JobStatus::Running);
  EXPECT_TRUE(manager->isJobPendingOrRunning("x"));
  for (JobStatus ended : {JobStatus::Completed, JobStatus::Cancelled, JobStatus::Failed}) {
    job->jobStatus.store(ended);
    EXPECT_FALSE(manager->isJobPendingOrRunning("x")) << static_cast<int>(ended);
  }
}

TEST(NameInUse, CancelledQueuedJobFreesItsName) {
  auto manager = Peer::make();
  manager->addJobToQueue(makeJob("x"));
  ASSERT_TRUE(manager->cancelJob("x"));
  EXPECT_FALSE(manager->isJobPendingOrRunning("x"));
  // A later job of the same name, queued behind the cancelled one, holds it again.
  manager->addJobToQueue(makeJob("x"));
  EXPECT_TRUE(manager->isJobPendingOrRunning("x"));
}

TEST(NameInUse, RunningJobHoldsItsNameWhateverItsStatus) {
  auto manager = Peer::make();
  GenoJobSettings running;
  running.jobName = "run";
  running.jobStatus.store(JobStatus::Cancelled);
  Peer::setCurrentJob(*manager, &running, -1);
  EXPECT_TRUE(manager->isJobPendingOrRunning("run"));
  EXPECT_FALSE(manager->isJobPendingOrRunning("RUN"));
  Peer::setCurrentJob(*manager, nullptr, -1);
  EXPECT_FALSE(manager->isJobPendingOrRunning("run"));
}

}  // namespace
}  // namespace jobs_test
