// The manager's lifecycle: one instance for every thread, a fresh manager's state, shutdown.
#include <gtest/gtest.h>

#ifndef _WIN32
#include <dlfcn.h>
#endif

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>
#include <vector>

#include "entry/Texts.h"
#include "jobs_test_support.h"

// ---- free watch: the binary's global operator new/delete -------------------------------------

namespace jobs_test::freewatch {
namespace {
constexpr int kSlots = 64;
std::atomic<const void*> g_watched[kSlots];
std::atomic<bool> g_freed[kSlots];

void noteFree(const void* pointer) {
  if (pointer == nullptr) return;
  for (int i = 0; i < kSlots; ++i) {
    if (g_watched[i].load(std::memory_order_relaxed) == pointer) {
      g_freed[i].store(true);
      g_watched[i].store(nullptr);  // the address may be handed out again
    }
  }
}
}  // namespace

void watch(const void* pointer) {
  for (int i = 0; i < kSlots; ++i) {
    const void* empty = nullptr;
    if (g_watched[i].compare_exchange_strong(empty, pointer)) {
      g_freed[i].store(false);
      return;
    }
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

}  // namespace jobs_test::freewatch

#ifndef _WIN32
// Only delete is replaced, and it hands every pointer on to the definition it displaces (the
// standard library's, or a sanitizer's), so allocation and release stay one matched pair.
namespace {
using DeleteFunction = void (*)(void*);
using SizedDeleteFunction = void (*)(void*, std::size_t);

template <typename Function>
Function nextDefinition(const char* name) {
  static_assert(sizeof(Function) == sizeof(void*), "function pointers are plain addresses here");
  void* symbol = ::dlsym(RTLD_NEXT, name);
  Function function = nullptr;
  std::memcpy(&function, &symbol, sizeof function);
  return function;
}
}  // namespace

void operator delete(void* p) noexcept {
  static const DeleteFunction next = nextDefinition<DeleteFunction>("_ZdlPv");
  jobs_test::freewatch::noteFree(p);
  next(p);
}
void operator delete(void* p, std::size_t size) noexcept {
  static const SizedDeleteFunction next = nextDefinition<SizedDeleteFunction>("_ZdlPvm");
  jobs_test::freewatch::noteFree(p);
  next(p, size);
}
#endif  // _WIN32: the free watch sees nothing there yet

// ---- tests -------------------------------------------------------------------------------------

namespace jobs_test {
namespace {

using Peer = GenoStatAlgoManagerTestPeer;

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
  EXPECT_EQ(GenoStatAlgoManager::getManagerInstance(), seen[0]);
}

TEST(ManagerState, FreshManagerIsIdle) {
  auto manager = Peer::make();
  EXPECT_EQ(Peer::queueSize(*manager), 0u);
  EXPECT_FALSE(Peer::workerRunning(*manager));
  EXPECT_EQ(Peer::processId(*manager), -1);
  EXPECT_FALSE(manager->isQueueFull());
  EXPECT_FALSE(manager->isJobPendingOrRunning(""));
}

TEST(ManagerState, TextsAreTheirKeysWithoutStringTable) {
  auto manager = Peer::make();
  EXPECT_EQ(Peer::getLocalizedString(*manager, texts::kGenomicAnalysisJob), "Genomic_analysis_job");
  EXPECT_EQ(Peer::getLocalizedString(*manager, ""), "");
}

TEST(ManagerState, HeldWorkerLeavesQueuedJobsInPlace) {
  // The queue tests' managers start no worker, so a queued job stays where it is.
  ClientRecorder client;
  auto manager = Peer::make();
  manager->addJobToQueue(makeJob("a"));
  EXPECT_FALSE(Peer::workerRunning(*manager));
  EXPECT_EQ(Peer::queueSize(*manager), 1u);
}

TEST(ManagerShutdown, DestroyingAnUnusedManagerIsQuiet) {
  ClientRecorder client;
  auto manager = Peer::make();
  manager.reset();
  EXPECT_TRUE(client.messages().empty());
}

TEST(ManagerShutdown, DestroyingFreesQueuedJobsWithoutMessages) {
  ClientRecorder client;
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
  // The watch itself must not report a record as freed while it lives.
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

}  // namespace
}  // namespace jobs_test
