// Regressions of a job's road through the worker: the order of its client messages when cancels
// race the worker taking it, a client whose post throws on the worker thread, and what a cancel
// leaves in the temporary folder.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

#include "module_test_support.h"

namespace mt {
namespace {

class WorkerMessages : public RunTest {};

TEST_F(WorkerMessages, CancelAsTheJobLeavesTheQueueNeverSendsEndBeforeStarted) {
  // The cancel thread follows the queue and cancels each job the moment the worker takes it: the
  // gap in which the started message used to be posted after the cancel's end message.
  constexpr int kJobs = 40;
  const std::string quick = plan(R"({"exit":0})");
  for (int i = 0; i < kJobs; ++i) queue(job("storm" + std::to_string(i), quick));
  std::thread canceller([this] {
    for (int next = 0; next < kJobs; ++next) {
      const std::size_t left = static_cast<std::size_t>(kJobs - next - 1);
      while (Peer::queueSize(*manager_) > left) std::this_thread::yield();
      manager_->cancelJob("storm" + std::to_string(next));
    }
  });
  canceller.join();
  ASSERT_TRUE(workerIdle());

  std::map<std::string, std::string> sequence;  // per job: q (queued), s (started), e (ended)
  for (const Recorded& m : client_.messages()) {
    sequence[m.jobName] += m.id == kStartId ? (m.started ? "s" : "q") : "e";
  }
  ASSERT_EQ(sequence.size(), static_cast<std::size_t>(kJobs));
  for (const auto& [name, order] : sequence) {
    EXPECT_TRUE(order == "qse" || order == "qe") << name << ": " << order;
  }
}

TEST_F(WorkerMessages, StartedPostThatThrowsCostsTheMessageNotTheHost) {
  // An exception leaving the worker thread would call std::terminate and end the host.
  client_.failWhen([](const Recorded& m) { return m.id == kStartId && m.started; });
  submit("first", R"({"rows":1})");
  submit("second", R"({"rows":1})");
  ASSERT_TRUE(client_.waitForEnds(2));
  EXPECT_EQ(client_.of("second").back().message.rfind("GENOSTAT", 0), 0u);
}

TEST_F(WorkerMessages, CancelLeavesNoPartialResultBehind) {
  // Before, the ".part" file the script writes its result as stayed in the temporary folder.
  submit("partial", hangingPlan(R"(,"part":true)"));
  ASSERT_TRUE(ready());
  EXPECT_EQ(tempFiles().size(), 1u);
  EXPECT_TRUE(manager_->cancelJob("partial"));
  ASSERT_TRUE(workerIdle());
  EXPECT_TRUE(tempFiles().empty());
}

}  // namespace
}  // namespace mt
