// Races of the job manager: one instance for racing threads, cancels landing at every stage of a
// job's road through the worker and while its started message is posted.
#include <atomic>

#include "module_test_support.h"

namespace mt {
namespace {

class Races : public RunTest {};

TEST(ManagerInstance, RacingThreadsGetOneInstance) {
  std::vector<GenoStatAlgoManager*> seen(8, nullptr);
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&, i] {
      while (!go.load()) std::this_thread::yield();
      // Half through the class, half through the client's C entry point.
      seen[i] = i % 2 == 0 ? GenoStatAlgoManager::getManagerInstance() : getGenoManagerInstance();
    });
  }
  go.store(true);
  for (std::thread& t : threads) t.join();
  ASSERT_NE(seen[0], nullptr);
  for (GenoStatAlgoManager* m : seen) EXPECT_EQ(m, seen[0]);
}

TEST_F(Races, CancelWhileTheStartedMessageIsPostedWaitsForIt) {
  // The started message goes out under the lock a cancel takes, so no end can precede it.
  std::atomic<bool> cancelReturned{false};
  std::atomic<bool> returnedDuringPost{true};
  std::thread canceller;
  client_.onPost([&](const Recorded& m) {
    if (m.id != 1025 || !m.started) return;
    canceller = std::thread([&] { cancelReturned = manager_->cancelJob("taken"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    returnedDuringPost = cancelReturned.load();
  });
  submit("taken", R"({"sleep":5})");
  ASSERT_TRUE(workerIdle());
  canceller.join();
  client_.onPost(nullptr);
  EXPECT_FALSE(returnedDuringPost);
  EXPECT_TRUE(cancelReturned);
  EXPECT_EQ(client_.ends().size(), 1u);
}

TEST_F(Races, CancelsAtEveryStageEndEachJobExactlyOnceAndLeaveNothing) {
  // Cancels from the client's thread land while queued, just taken, starting, running, ending, ended.
  constexpr int kJobs = 12;
  std::atomic<int> queued{0};
  std::vector<int> cancelled(kJobs, 0);
  std::thread canceller([&] {
    for (int i = 0; i < kJobs; ++i) {
      while (queued.load() <= i) std::this_thread::yield();
      std::this_thread::sleep_for(std::chrono::milliseconds((i * 7) % 60));
      cancelled[i] = cancelGenoJob(manager_.get(), ("race" + std::to_string(i)).c_str()) ? 1 : 0;
    }
  });
  for (int i = 0; i < kJobs; ++i) {
    submit("race" + std::to_string(i), i % 3 == 0 ? R"({"sleep":0.02})" : R"({"sleep":0.05,"rows":1,"exit":4})");
    queued.store(i + 1);
    // Meanwhile the command thread asks about names, as the entry does for each command.
    manager_->isJobPendingOrRunning("race" + std::to_string(i / 2));
  }
  canceller.join();
  ASSERT_TRUE(eventually([&] { return client_.ends().size() >= kJobs; }, 30.0));
  ASSERT_TRUE(workerIdle());
  for (int i = 0; i < kJobs; ++i) {
    std::vector<std::string> ends;
    for (const Recorded& m : client_.ends()) {
      if (m.jobName == "race" + std::to_string(i)) ends.push_back(m.message);
    }
    ASSERT_EQ(ends.size(), 1u) << i;
    EXPECT_EQ(ends[0].empty(), cancelled[i] == 1) << i << ": a cancel's end message carries no syntax";
  }
  EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::u8path(tempDir_))) << "no result of these jobs stays";
  EXPECT_EQ(Peer::processId(*manager_), -1);
}

TEST_F(Races, FinishedJobCountsAsRunningUntilItsEndMessageIsOutButCannotBeCancelled) {
  // A client that finds a job neither queued nor running must be able to trust that its end message came.
  std::atomic<bool> runningDuringEnd{false};
  std::atomic<bool> cancelledDuringEnd{true};
  client_.onPost([&](const Recorded& m) {
    if (m.id != 1026) return;
    runningDuringEnd = manager_->isJobPendingOrRunning("finishing");
    cancelledDuringEnd = manager_->cancelJob("finishing");
  });
  submit("finishing", R"({"rows":1})");
  ASSERT_TRUE(workerIdle());
  client_.onPost(nullptr);
  EXPECT_TRUE(runningDuringEnd);
  EXPECT_FALSE(cancelledDuringEnd);
  EXPECT_EQ(client_.ends().size(), 1u) << "no second, empty end message";
  EXPECT_FALSE(manager_->isJobPendingOrRunning("finishing"));
}

TEST_F(Races, CancelBeforeTheProcessStartsStillStopsIt) {
  // The cancel found no process to kill; the run sees the cancel once its process exists.
  auto* record = new GenoJobSettings();
  record->jobName = "early";
  record->fastqFiles = {scratch_.write("early.json", R"({"rows":1,"sleep":30})")};
  record->jobStatus.store(JobStatus::Cancelled);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(Peer::launchPythonProcess(*manager_, record));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_TRUE(client_.messages().empty()) << "the cancel has answered the client already";
  EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::u8path(tempDir_)));
}

}  // namespace
}  // namespace mt
