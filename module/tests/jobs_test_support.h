// Shared fixtures of the job-manager tests: a client that records the messages the module posts,
// a record factory, a way to run code against a manager of its own, and a watch on record frees.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "entry/GenoJobSettings.h"
#include "host/messages.h"
#include "jobs/GenoStatAlgoManager.h"
#include "test_peer.h"
#include "zorvhost/client.h"

namespace jobs_test {

// One message as the client received it, copied out of the message object during the post.
struct Recorded {
  int32_t id = 0;
  std::string jobName;
  bool started = false;       // 1025 only
  std::string message;        // 1026 only
  std::string csvFilePath;    // 1026 only
  int32_t workbookId = 0;     // 1026 only
  int32_t paragraphId = 0;    // 1026 only
};

// Attaches an interactive client for its lifetime and records everything posted to it.
class ClientRecorder {
 public:
  explicit ClientRecorder(bool interactive = true) {
    zorvhost::attachClient(interactive, [this](int32_t id, const void* message) { record(id, message); });
  }
  ~ClientRecorder() { zorvhost::detachClient(); }
  ClientRecorder(const ClientRecorder&) = delete;
  ClientRecorder& operator=(const ClientRecorder&) = delete;

  std::vector<Recorded> messages() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return messages_;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    messages_.clear();
  }

 private:
  void record(int32_t id, const void* message) {
    Recorded r;
    r.id = id;
    if (id == kZorvwMsgStartGenomicProcessingId) {
      const auto* start = static_cast<const ZorvwMsgStartGenomicProcessing*>(message);
      r.jobName = start->jobName();
      r.started = start->started();
    } else if (id == kZorvwMsgEndGenomicProcessingId) {
      const auto* end = static_cast<const ZorvwMsgEndGenomicProcessing*>(message);
      r.jobName = end->jobName();
      r.message = end->message();
      r.csvFilePath = end->csvFilePath();
      r.workbookId = end->workbookId();
      r.paragraphId = end->paragraphId();
    }
    std::lock_guard<std::mutex> lock(mutex_);
    messages_.push_back(r);
  }

  mutable std::mutex mutex_;
  std::vector<Recorded> messages_;
};

// A new record named `name`; the host holds no metadata in these tests, so the ids stay -1.
inline GenoJobSettings* makeJob(const std::string& name) {
  auto* job = new GenoJobSettings();
  job->jobName = name;
  return job;
}

// Makes a fresh manager the module's instance for the scope, so tests that go through the static
// accessors (automatic names, the exported functions) start from an empty queue.
class ScopedInstance {
 public:
  ScopedInstance() : manager_(GenoStatAlgoManagerTestPeer::make()) {
    // Use up the call-once first, or the first getManagerInstance would replace ours.
    GenoStatAlgoManager::getManagerInstance();
    previous_ = GenoStatAlgoManagerTestPeer::setInstance(manager_.get());
  }
  ~ScopedInstance() { GenoStatAlgoManagerTestPeer::setInstance(previous_); }
  ScopedInstance(const ScopedInstance&) = delete;
  ScopedInstance& operator=(const ScopedInstance&) = delete;
  GenoStatAlgoManager& manager() { return *manager_; }

 private:
  std::unique_ptr<GenoStatAlgoManager> manager_;
  GenoStatAlgoManager* previous_ = nullptr;
};

// Watches addresses for the moment they are given back to operator delete (the test binary's
// global operator delete, defined in manager_test.cpp, reports every free here).
namespace freewatch {
void watch(const void* pointer);
bool freed(const void* pointer);
void forget();  // stops watching everything
}  // namespace freewatch

}  // namespace jobs_test
