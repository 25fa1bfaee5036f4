// The job manager without a worker: one instance for every thread, the queue and its 10-job
// limit, which names are taken, automatic names, cancels, client messages and shutdown.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <thread>
#include <vector>

#include "entry/GenomicParserException.h"
#include "module_test_support.h"

// ---- free watch: the binary's global operator delete -------------------------------------------

namespace mt::freewatch {
namespace {
constexpr int kSlots = 64;
std::atomic<const void*> g_watched[kSlots];
}  // namespace

void noteFree(const void* pointer) {
  if (pointer == nullptr) return;
  for (int i = 0; i < kSlots; ++i) {
    // The address may be handed out again, so it is no longer watched once freed.
    const void* expected = pointer;
    g_watched[i].compare_exchange_strong(expected, nullptr);
  }
}

void watch(const void* pointer) {
  for (int i = 0; i < kSlots; ++i) {
    const void* empty = nullptr;
    if (g_watched[i].compare_exchange_strong(empty, pointer)) return;
  }
  ADD_FAILURE() << "free watch is full";
}

bool freed(const void* pointer) {
  for (int i = 0; i < kSlots; ++i) {
    if (g_watched[i].load() == pointer) return false;  // still watched: not freed yet
  }
  return true;
}

void forget() {
  for (int i = 0; i < kSlots; ++i) g_watched[i].store(nullptr);
}
}  // namespace mt::freewatch


namespace mt {
namespace {

// A queued job with everything the end message carries set to recognisable values.
GenoJobSettings* queuedJob(GenoStatAlgoManager& manager, const std::string& name) {
  GenoJobSettings* job = makeJob(name);
  job->csvFilePath = "/tmp/" + name + ".csv";
  job->workbookId = 7;
  job->paragraphId = 9;
  manager.addJobToQueue(job);
  return job;
}

void expectCancelEnd(const Recorded& m, const std::string& name) {
  EXPECT_EQ(m.id, kEndId);
  EXPECT_EQ(m.jobName, name);
  EXPECT_EQ(m.message, "") << "a cancel's end message carries no syntax";
}

// ---- the instance ---------------------------------------------------------------------------------

TEST(ManagerInstance, ExistingInstanceNeverCreatesOne) {
  // The "threadsafe" style re-runs this test in a new process, where nobody has asked for the
  // manager yet, whatever other tests of this binary did before.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const bool none = GenoStatAlgoManager::existingInstance() == nullptr &&
                          GenoStatAlgoManager::existingInstance() == nullptr;
        GenoStatAlgoManager* created = GenoStatAlgoManager::getManagerInstance();
        const bool same = created != nullptr && GenoStatAlgoManager::existingInstance() == created;
        std::_Exit(none && same ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(ManagerInstance, RacingThreadsGetOneInstance) {
  constexpr int kThreads = 8;
  std::vector<GenoStatAlgoManager*> seen(kThreads, nullptr);
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      while (!go.load()) std::this_thread::yield();
      // Half through the class, half through the client's C entry point.
      seen[i] = (i % 2 == 0) ? GenoStatAlgoManager::getManagerInstance() : getGenoManagerInstance();
    });
  }
  go.store(true);
  for (std::thread& t : threads) t.join();
  ASSERT_NE(seen[0], nullptr);
  for (GenoStatAlgoManager* m : seen) EXPECT_EQ(m, seen[0]);
  EXPECT_EQ(GenoStatAlgoManager::existingInstance(), seen[0]);
}

TEST(ManagerShutdown, DestroyingFreesQueuedJobsWithoutMessages) {
  Client client;
  auto manager = Peer::make();
  std::vector<GenoJobSettings*> jobs = {makeJob("a"), makeJob("b"), makeJob("c")};
  for (GenoJobSettings* job : jobs) manager->addJobToQueue(job);
  manager->cancelJob("b");  // a cancelled job still in the queue is freed as well
  client.clear();
  for (GenoJobSettings* job : jobs) freewatch::watch(job);
  manager.reset();
  for (GenoJobSettings* job : jobs) EXPECT_TRUE(freewatch::freed(job));
  EXPECT_TRUE(client.messages().empty());
  freewatch::forget();
}

TEST(FreeWatch, SeesOnlyTheWatchedAddress) {
  auto* kept = makeJob("kept");
  auto* dropped = makeJob("dropped");
  freewatch::watch(kept);
  freewatch::watch(dropped);
  delete dropped;
  EXPECT_TRUE(freewatch::freed(dropped));
  EXPECT_FALSE(freewatch::freed(kept));
  delete kept;
  EXPECT_TRUE(freewatch::freed(kept));
  freewatch::forget();
}

// ---- the queue ------------------------------------------------------------------------------------

TEST(Queue, AppendsInOrderAsPendingAndAnnouncesEachAsNotStarted) {
  Client client;
  auto manager = Peer::make();
  GenoJobSettings* first = makeJob("first");
  GenoJobSettings* second = makeJob("second");
  second->jobStatus.store(JobStatus::Failed);  // whatever it held, a queued job starts Pending
  manager->addJobToQueue(first);
  manager->addJobToQueue(second);
  EXPECT_EQ(Peer::queuedJobs(*manager), (std::list<GenoJobSettings*>{first, second}));
  EXPECT_EQ(second->jobStatus.load(), JobStatus::Pending);
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(messages[i].id, kStartId);
    EXPECT_FALSE(messages[i].started);
    EXPECT_EQ(messages[i].jobName, i == 0 ? "first" : "second");
  }
}

TEST(Queue, NullRecordIsQueuedWithoutMessage) {
  Client client;
  auto manager = Peer::make();
  manager->addJobToQueue(nullptr);
  EXPECT_EQ(Peer::queueSize(*manager), 1u);
  EXPECT_FALSE(manager->isJobPendingOrRunning(""));
  EXPECT_FALSE(manager->cancelJob(""));
  manager->cancellAllJobsPending();
  EXPECT_EQ(Peer::queueSize(*manager), 0u);
  EXPECT_TRUE(client.messages().empty());
}

TEST(Queue, TenQueuedFillItTheRunningJobDoesNotCountCancelledOnesDo) {
  auto manager = Peer::make();
  GenoJobSettings running;
  running.jobName = "running";
  Peer::setCurrentJob(*manager, &running, -1);
  for (int i = 1; i <= 9; ++i) {
    manager->addJobToQueue(makeJob("job" + std::to_string(i)));
    EXPECT_FALSE(manager->isQueueFull()) << i << " queued";
  }
  manager->addJobToQueue(makeJob("job10"));
  EXPECT_TRUE(manager->isQueueFull());
  // A cancelled job leaves the queue only when the worker reaches it.
  ASSERT_TRUE(manager->cancelJob("job3"));
  EXPECT_TRUE(manager->isQueueFull());
  // Nothing refuses an eleventh here: the command side checks before it queues.
  manager->addJobToQueue(makeJob("job11"));
  EXPECT_EQ(Peer::queueSize(*manager), 11u);
  manager->cancellAllJobsPending();
  EXPECT_FALSE(manager->isQueueFull());
  Peer::setCurrentJob(*manager, nullptr, -1);
}

TEST(NameInUse, ExactBytesOfAPendingQueuedOrTheRunningJob) {
  auto manager = Peer::make();
  manager->addJobToQueue(makeJob("Sample run"));
  manager->addJobToQueue(makeJob(std::string("a\0b", 3)));  // not cut at a NUL byte
  EXPECT_TRUE(manager->isJobPendingOrRunning("Sample run"));
  EXPECT_TRUE(manager->isJobPendingOrRunning(std::string("a\0b", 3)));
  for (const char* other : {"sample run", "SAMPLE RUN", "Sample run ", "Sample", "", "a"}) {
    EXPECT_FALSE(manager->isJobPendingOrRunning(other)) << other;
  }
  // The running job holds its name whatever its status.
  GenoJobSettings running;
  running.jobName = "run";
  running.jobStatus.store(JobStatus::Cancelled);
  Peer::setCurrentJob(*manager, &running, -1);
  EXPECT_TRUE(manager->isJobPendingOrRunning("run"));
  EXPECT_FALSE(manager->isJobPendingOrRunning("RUN"));
  Peer::setCurrentJob(*manager, nullptr, -1);
  EXPECT_FALSE(manager->isJobPendingOrRunning("run"));
}

TEST(NameInUse, QueuedJobHoldsItsNameOnlyWhilePendingOrRunning) {
  auto manager = Peer::make();
  GenoJobSettings* job = makeJob("x");
  manager->addJobToQueue(job);
  job->jobStatus.store(JobStatus::Running);
  EXPECT_TRUE(manager->isJobPendingOrRunning("x"));
  for (JobStatus ended : {JobStatus::Completed, JobStatus::Failed, JobStatus::Pending, JobStatus::Cancelled}) {
    job->jobStatus.store(ended);
    EXPECT_EQ(manager->isJobPendingOrRunning("x"), ended == JobStatus::Pending) << static_cast<int>(ended);
  }
  // A later job of the same name, queued behind the cancelled one, holds it again.
  manager->addJobToQueue(makeJob("x"));
  EXPECT_TRUE(manager->isJobPendingOrRunning("x"));
}

// ---- automatic names ------------------------------------------------------------------------------

TEST(AutomaticNames, FirstSuffixNoDatasetInAnyCaseAndNoLiveJobExactlyBears) {
  struct Case {
    const char* what;
    std::function<void(GenoStatAlgoManager&)> setUp;
    const char* expected;
  };
  const std::vector<Case> cases = {
      {"nothing taken", [](GenoStatAlgoManager&) {}, "Genomic_analysis_job_1"},
      {"dataset in another case", [](GenoStatAlgoManager&) { zorvhost::openDataset("GENOMIC_ANALYSIS_JOB_1"); },
       "Genomic_analysis_job_2"},
      {"datasets compared whole",
       [](GenoStatAlgoManager&) {
         zorvhost::openDataset("Genomic_analysis_job_10");
         zorvhost::openDataset("Genomic_analysis_job");
       },
       "Genomic_analysis_job_1"},
      {"queued job in another case", [](GenoStatAlgoManager& m) { m.addJobToQueue(makeJob("genomic_analysis_job_1")); },
       "Genomic_analysis_job_1"},
      {"cancelled queued job",
       [](GenoStatAlgoManager& m) {
         m.addJobToQueue(makeJob("Genomic_analysis_job_1"));
         m.cancelJob("Genomic_analysis_job_1");
       },
       "Genomic_analysis_job_1"},
      {"queued job and dataset",
       [](GenoStatAlgoManager& m) {
         m.addJobToQueue(makeJob("Genomic_analysis_job_1"));
         zorvhost::openDataset("genomic_analysis_job_2");
       },
       "Genomic_analysis_job_3"},
      {"99 taken",
       [](GenoStatAlgoManager&) {
         for (int n = 1; n <= 99; ++n) zorvhost::openDataset("Genomic_analysis_job_" + std::to_string(n));
       },
       "Genomic_analysis_job_100"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    zorvhost::closeAllDatasets();
    ManagerScope instance;
    c.setUp(instance.manager());
    EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), c.expected);
    EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), c.expected) << "asking reserves nothing";
  }
  zorvhost::closeAllDatasets();
}

TEST(AutomaticNames, RunningJobClashes) {
  ManagerScope instance;
  GenoJobSettings running;
  running.jobName = "Genomic_analysis_job_1";
  Peer::setCurrentJob(instance.manager(), &running, -1);
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_2");
  Peer::setCurrentJob(instance.manager(), nullptr, -1);
}

TEST(AutomaticNames, HundredClashesRaiseCode16) {
  zorvhost::closeAllDatasets();
  ManagerScope instance;
  for (int n = 1; n <= 100; ++n) zorvhost::openDataset("Genomic_analysis_job_" + std::to_string(n));
  try {
    GenoStatAlgoManager::generateUniqueJobName();
    ADD_FAILURE() << "no exception after 100 clashes";
  } catch (const GenomicParserException& e) {
    EXPECT_EQ(e.code(), 16u);
    EXPECT_STREQ(e.what(), "Maximum limit for automatic job names exceeded. It should not be more than 100");
  }
  // Nothing was reserved or changed: freeing one name makes it the answer.
  zorvhost::closeDataset("Genomic_analysis_job_57");
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_57");
  zorvhost::closeAllDatasets();
}

TEST(AutomaticNames, WithoutManagerTheNameIsEmpty) {
  ManagerScope instance(nullptr);
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "");
}

// ---- cancels --------------------------------------------------------------------------------------

TEST(CancelQueued, EveryCancelIsAnsweredOnlyAPendingJobBecomesCancelled) {
  Client client;
  auto manager = Peer::make();
  GenoJobSettings* job = queuedJob(*manager, "j1");
  GenoJobSettings* failed = queuedJob(*manager, "j2");
  failed->jobStatus.store(JobStatus::Failed);
  client.clear();

  for (int i = 0; i < 3; ++i) EXPECT_TRUE(manager->cancelJob("j1"));
  EXPECT_EQ(job->jobStatus.load(), JobStatus::Cancelled);
  EXPECT_EQ(Peer::queueSize(*manager), 2u) << "the worker drops it, not the cancel";
  EXPECT_TRUE(manager->cancelJob("j2"));
  EXPECT_EQ(failed->jobStatus.load(), JobStatus::Failed);

  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 4u);
  for (std::size_t i = 0; i < 4; ++i) expectCancelEnd(messages[i], i < 3 ? "j1" : "j2");
  EXPECT_EQ(messages[0].csvFilePath, "/tmp/j1.csv");
  EXPECT_EQ(messages[0].workbookId, 7);
  EXPECT_EQ(messages[0].paragraphId, 9);
}

TEST(CancelQueued, ExactNameAndOnlyTheFirstOfTwoEquallyNamedJobs) {
  Client client;
  auto manager = Peer::make();
  EXPECT_FALSE(manager->cancelJob("anything")) << "empty queue";
  GenoJobSettings* lower = queuedJob(*manager, "run");
  GenoJobSettings* upper = queuedJob(*manager, "RUN");
  GenoJobSettings* twin = queuedJob(*manager, "RUN");
  client.clear();
  for (const char* unknown : {"Run", "run2", ""}) EXPECT_FALSE(manager->cancelJob(unknown)) << unknown;
  EXPECT_TRUE(client.messages().empty());
  EXPECT_TRUE(manager->cancelJob("RUN"));
  EXPECT_TRUE(manager->cancelJob("RUN"));  // finds the first again (any status), not the second
  EXPECT_EQ(lower->jobStatus.load(), JobStatus::Pending);
  EXPECT_EQ(upper->jobStatus.load(), JobStatus::Cancelled);
  EXPECT_EQ(twin->jobStatus.load(), JobStatus::Pending);
}

TEST(CancelRunning, NotStartedProcessStillCancelsAndTheRunningJobIsMatchedFirst) {
  // Before the job's process exists the stored id is -1: nothing can be killed, the cancel holds.
  Client client;
  auto manager = Peer::make();
  GenoJobSettings running;
  running.jobName = "live";
  running.jobStatus.store(JobStatus::Running);
  Peer::setCurrentJob(*manager, &running, -1);
  GenoJobSettings* queuedTwin = queuedJob(*manager, "live");
  client.clear();
  EXPECT_TRUE(manager->cancelJob("live"));
  EXPECT_EQ(running.jobStatus.load(), JobStatus::Cancelled);
  EXPECT_EQ(queuedTwin->jobStatus.load(), JobStatus::Pending);
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 1u);
  expectCancelEnd(messages[0], "live");
  Peer::setCurrentJob(*manager, nullptr, -1);
}

TEST(CancelAllPending, MessagesPendingJobsOnlyFreesAllAndLeavesTheRunningJob) {
  Client client;
  auto manager = Peer::make();
  manager->cancellAllJobsPending();  // an empty queue: nothing happens
  GenoJobSettings running;
  running.jobName = "live";
  running.jobStatus.store(JobStatus::Running);
  Peer::setCurrentJob(*manager, &running, -1);
  std::vector<GenoJobSettings*> jobs = {queuedJob(*manager, "a"), queuedJob(*manager, "b"), queuedJob(*manager, "c")};
  ASSERT_TRUE(manager->cancelJob("b"));
  client.clear();
  for (GenoJobSettings* job : jobs) freewatch::watch(job);

  manager->cancellAllJobsPending();

  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 2u);
  expectCancelEnd(messages[0], "a");
  expectCancelEnd(messages[1], "c");
  EXPECT_EQ(Peer::queueSize(*manager), 0u);
  for (GenoJobSettings* job : jobs) EXPECT_TRUE(freewatch::freed(job));
  freewatch::forget();
  EXPECT_EQ(running.jobStatus.load(), JobStatus::Running);
  EXPECT_TRUE(manager->isJobPendingOrRunning("live"));
  Peer::setCurrentJob(*manager, nullptr, -1);
}

TEST(CancelGenoJob, ForwardsToTheManagersCancelAndRefusesNulls) {
  Client client;
  EXPECT_FALSE(cancelGenoJob(nullptr, "x"));
  EXPECT_FALSE(cancelGenoJob(nullptr, nullptr));
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

// ---- client messages ------------------------------------------------------------------------------

TEST(Messages, NonInteractiveClientReceivesThemAndNothingGoesOutWithoutAnAdapter) {
  // Only a missing adapter silences the module; command-line mode is refused earlier, by the entry.
  auto manager = Peer::make();
  {
    Client batch(false);
    manager->addJobToQueue(makeJob("seen"));
    EXPECT_EQ(batch.messages().size(), 1u);
  }
  Client client;
  zorvhost::detachClient();  // the host has no adapter now
  GenoJobSettings job;
  job.jobName = "x";
  Peer::sendStartGenomicsJobMessage(*manager, &job, true);
  Peer::sendEndGenomicsJobMessage(*manager, &job, "text");
  manager->addJobToQueue(makeJob("queued"));
  EXPECT_TRUE(manager->cancelJob("queued"));
  EXPECT_TRUE(client.messages().empty());
}

}  // namespace
}  // namespace mt
