// Fixtures of the job-run tests: an installation folder of their own with a launcher and the
// compiled stand-in analysis script (fixtures/standin_analysis.py), a client whose messages can be
// waited for, and a manager with a live worker as the module's instance.
#pragma once

#ifndef _WIN32

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "entry/GenoJobSettings.h"
#include "entry_test_support.h"
#include "host/messages.h"
#include "jobs/GenoStatAlgoManager.h"
#include "jobs_test_support.h"
#include "platform/posix/process_tree.h"
#include "test_peer.h"
#include "zorvhost/client.h"

namespace run_test {

using Peer = GenoStatAlgoManagerTestPeer;
using jobs_test::Recorded;

// True once `done()` holds, checked every 5 ms for at most `seconds`.
inline bool eventually(const std::function<bool()>& done, double seconds = 10.0) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

inline bool processGone(pid_t pid) { return !genostat::platform::posix::processAlive(pid); }

// An interactive client that records every message and lets a test wait for end messages.
class WaitingClient {
 public:
  WaitingClient() {
    zorvhost::attachClient(true, [this](int32_t id, const void* message) { record(id, message); });
  }
  ~WaitingClient() { zorvhost::detachClient(); }
  WaitingClient(const WaitingClient&) = delete;
  WaitingClient& operator=(const WaitingClient&) = delete;

  std::vector<Recorded> messages() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return messages_;
  }
  std::vector<Recorded> ends() const {
    std::vector<Recorded> out;
    for (const Recorded& m : messages()) {
      if (m.id == kZorvwMsgEndGenomicProcessingId) out.push_back(m);
    }
    return out;
  }
  std::vector<Recorded> of(const std::string& jobName) const {
    std::vector<Recorded> out;
    for (const Recorded& m : messages()) {
      if (m.jobName == jobName) out.push_back(m);
    }
    return out;
  }
  // True once `count` end messages have arrived in all, within `seconds`.
  bool waitForEnds(std::size_t count, double seconds = 10.0) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return endCount_ >= count; });
  }
  // True once a start message with `started` true for `jobName` has arrived.
  bool waitForStarted(const std::string& jobName, double seconds = 10.0) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] {
      for (const Recorded& m : messages_) {
        if (m.id == kZorvwMsgStartGenomicProcessingId && m.started && m.jobName == jobName) return true;
      }
      return false;
    });
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
    if (id == kZorvwMsgEndGenomicProcessingId) ++endCount_;
    changed_.notify_all();
  }

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Recorded> messages_;
  std::size_t endCount_ = 0;
};

// How the installation folder is laid out.
enum class Launcher { Runs, Missing, NotExecutable };

// Writes the installation folder: <base>/statisticspython3 and <base>/scripts/genostat.pyc.
inline void install(const std::string& base, Launcher launcher, bool scriptInScripts = true) {
  std::filesystem::create_directories(base + "/scripts");
  const std::string script = scriptInScripts ? base + "/scripts/genostat.pyc" : base + "/genostat.pyc";
  std::filesystem::copy_file(GENOSTAT_STANDIN_PYC, script, std::filesystem::copy_options::overwrite_existing);
  if (launcher == Launcher::Missing) return;
  const std::string path = base + "/statisticspython3";
  std::ofstream(path) << "#!/bin/sh\nexec \"" GENOSTAT_TEST_PYTHON "\" -S \"$@\"\n";
  ::chmod(path.c_str(), launcher == Launcher::Runs ? 0755 : 0644);
}

// A test with its own installation and temporary folders, an attached client, and a fresh manager
// with a live worker as the module's instance (so GENOSTAT reaches it too).
class RunTest : public ::testing::Test {
 protected:
  RunTest() : manager_(Peer::makeWithWorker()) {
    GenoStatAlgoManager::getManagerInstance();  // use up the once-flag before replacing the instance
    previous_ = Peer::setInstance(manager_.get());
  }
  ~RunTest() override {
    // A test that failed half way may leave a job hanging: end it, so the worker can be joined.
    if (manager_) {
      manager_->cancellAllJobsPending();
      for (const std::string& name : submitted_) manager_->cancelJob(name);
      manager_.reset();
    }
    Peer::setInstance(previous_);
    zorvhost::setTempPath("");
    zorvhost::setInstallPath("");
  }

  void SetUp() override {
    installDir_ = scratch_.path() + "/install";
    tempDir_ = scratch_.path() + "/temp";
    std::filesystem::create_directories(tempDir_);
    install(installDir_, Launcher::Runs);
    zorvhost::setInstallPath(installDir_);
    zorvhost::setTempPath(tempDir_);
  }

  // Writes a plan for the stand-in into a file of its own and returns the file's path.
  std::string plan(const std::string& json) {
    return scratch_.write("plan" + std::to_string(++plans_) + ".json", json);
  }
  // A record whose only input file is `planFile`.
  static GenoJobSettings* job(const std::string& name, const std::string& planFile) {
    auto* settings = new GenoJobSettings();
    settings->jobName = name;
    settings->fastqFiles = {planFile};
    return settings;
  }
  // Queues a job running `planJson`, as the entry would.
  void submit(const std::string& name, const std::string& planJson) {
    submitted_.push_back(name);
    manager_->addJobToQueue(job(name, plan(planJson)));
  }
  // Runs one GENOSTAT command as the host does; returns the texts of the errors it reported.
  std::vector<std::string> command(const std::string& text) {
    zorvhost::takeCommandErrors();
    zorvhost::setCommandText(text);
    GENOSTAT();
    std::vector<std::string> texts;
    for (const auto& e : zorvhost::takeCommandErrors()) texts.push_back(e.text);
    return texts;
  }
  // The files left in the temporary folder.
  std::vector<std::string> tempFiles() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(tempDir_)) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }
  bool workerIdle() { return eventually([this] { return Peer::idle(*manager_); }); }

  entry_test::ScratchFolder scratch_;
  std::string installDir_;
  std::string tempDir_;
  WaitingClient client_;
  std::unique_ptr<GenoStatAlgoManager> manager_;
  GenoStatAlgoManager* previous_ = nullptr;
  std::vector<std::string> submitted_;
  int plans_ = 0;
};

}  // namespace run_test

#endif  // _WIN32
