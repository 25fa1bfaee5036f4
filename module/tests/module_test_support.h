// What every module test needs from the host's side: scratch folders, a client that records the
// messages the module posts, a fresh manager as the module's instance, and a stand-in installation
// folder whose launcher runs the stand-in analysis (fixtures/ on POSIX, win32/ on Windows).
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "host/messages.h"
#include "jobs/GenoStatAlgoManager.h"
#include "platform/platform.h"
#include "zorvhost/client.h"

// Unit tests reach GenoStatAlgoManager's private parts through this one friend class.
class GenoStatAlgoManagerTestPeer {
 public:
  // A fresh manager of its own, independent of the module's singleton.
  static std::unique_ptr<GenoStatAlgoManager> make() {
    return std::unique_ptr<GenoStatAlgoManager>(new GenoStatAlgoManager());
  }
  // Installs `manager` (may be null) as the module's instance; returns the previous one.
  static GenoStatAlgoManager* setInstance(GenoStatAlgoManager* manager) {
    return GenoStatAlgoManager::m_pAlgoMgr.exchange(manager);
  }
  static int32_t processId(GenoStatAlgoManager& m) { return m.m_processId.load(); }
  // True when the worker has nothing in hand: the queue is empty and no job is running.
  static bool idle(GenoStatAlgoManager& m) {
    std::lock_guard<std::mutex> lock(m.m_queueMutex);
    return m.m_jobQueue.empty() && m.m_currentJob.load() == nullptr;
  }
  static bool launchPythonProcess(GenoStatAlgoManager& m, GenoJobSettings* settings) {
    return m.launchPythonProcess(settings);
  }
};

namespace mt {

using Peer = GenoStatAlgoManagerTestPeer;
using Texts = std::vector<std::string>;

// A fresh folder under the system's temporary folder, removed with everything in it.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::random_device random;
    for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
      const auto candidate = std::filesystem::temp_directory_path() / ("genostat-test-" + std::to_string(random()));
      std::error_code ec;
      // Forward slashes on every system, so paths can go into JSON plans as they are.
      if (std::filesystem::create_directory(candidate, ec)) path_ = candidate.generic_u8string();
    }
  }
  ~ScratchFolder() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(std::filesystem::u8path(path_), ec);
  }
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // Writes `content` byte for byte and returns the file's path.
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(std::filesystem::u8path(file(name)), std::ios::binary) << content;
    return file(name);
  }

 private:
  std::string path_;
};

inline bool exists(const std::string& path) {
  std::error_code ec;
  return std::filesystem::exists(std::filesystem::u8path(path), ec);
}

inline std::string readAll(const std::string& path) {
  std::ifstream in(std::filesystem::u8path(path), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// True once `done()` holds, checked every 5 ms for at most `seconds`.
inline bool eventually(const std::function<bool()>& done, double seconds = 10.0) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// One message as the client received it: 1025 (queued or started) or 1026 (ended, with the
// post-job syntax as `message`, empty for a cancel).
struct Recorded {
  int32_t id = 0;
  std::string jobName;
  bool started = false;
  std::string message;
  std::string csvFilePath;
  int32_t workbookId = 0;
  int32_t paragraphId = 0;
};

// Attaches a client for its lifetime and records everything posted to it.
class Client {
 public:
  Client() { attach(true); }
  ~Client() { zorvhost::detachClient(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // An interactive client or the host's command-line mode.
  void attach(bool interactive) {
    zorvhost::attachClient(interactive, [this](int32_t id, const void* message) { record(id, message); });
  }
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
  // Runs `hook` on the posting thread for every message, once it has been recorded; what it throws
  // the post throws, as the post to a client that is gone would.
  void onPost(std::function<void(const Recorded&)> hook) {
    std::lock_guard<std::mutex> lock(mutex_);
    onPost_ = std::move(hook);
  }

 private:
  void record(int32_t id, const void* message) {
    Recorded r;
    if (id == kZorvwMsgStartGenomicProcessingId) {
      const auto* start = static_cast<const ZorvwMsgStartGenomicProcessing*>(message);
      r = {id, start->jobName(), start->started(), {}, {}, 0, 0};
    } else {
      const auto* end = static_cast<const ZorvwMsgEndGenomicProcessing*>(message);
      r = {id, end->jobName(), false, end->message(), end->csvFilePath(), end->workbookId(), end->paragraphId()};
    }
    std::function<void(const Recorded&)> hook;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      messages_.push_back(r);
      hook = onPost_;
    }
    if (hook) hook(r);
  }

  mutable std::mutex mutex_;
  std::vector<Recorded> messages_;
  std::function<void(const Recorded&)> onPost_;
};

// Runs one GENOSTAT command as the host does; returns the texts of the errors it reported.
inline Texts runCommand(const std::string& text) {
  zorvhost::takeCommandErrors();
  zorvhost::setCommandText(text);
  GENOSTAT();
  Texts texts;
  for (const auto& e : zorvhost::takeCommandErrors()) texts.push_back(e.text);
  return texts;
}

// ---- what each system provides (posix/fixture_posix.cpp, win32/fixture_win32.cpp) -------------

// How the installation folder is laid out.
enum class Launcher { Runs, Missing, NotExecutable };

// Writes the installation folder: its launcher, which runs the stand-in analysis, and
// scripts/genostat.pyc (or genostat.pyc beside the launcher).
void install(const std::string& base, Launcher launcher, bool scriptInScripts = true);

// True when no live process has the id `pid`.
bool processGone(int pid);

// A test folder as the host hands folders to the module: with the system's own separators.
std::string hostPath(const std::string& path);

// The names a built module library exports, or an error text in `error`.
std::set<std::string> exportedNames(const std::string& library, std::string& error);

// A test with its own installation and temporary folders, an attached client, and a fresh manager
// with a live worker as the module's instance, so that GENOSTAT reaches it.
class RunTest : public ::testing::Test {
 protected:
  RunTest() : manager_(Peer::make()) {
    GenoStatAlgoManager::getManagerInstance();  // use up the once-flag before replacing the instance
    previous_ = Peer::setInstance(manager_.get());
  }
  ~RunTest() override {
    // A test that failed half way may leave a job hanging: end it, so the worker can be joined.
    if (manager_) {
      manager_->cancellAllJobsPending();
      for (const Recorded& m : client_.messages()) manager_->cancelJob(m.jobName);
      manager_.reset();
    }
    Peer::setInstance(previous_);
    zorvhost::setTempPath("");
    zorvhost::setInstallPath("");
    zorvhost::closeAllDatasets();
    zorvhost::setMetadataJson("");
  }
  void SetUp() override {
    // A dot in a folder's name, as in C:\Users\j.smith\AppData\Local\Temp.
    installDir_ = scratch_.path() + "/install";
    tempDir_ = scratch_.path() + "/temp.d";
    std::filesystem::create_directories(std::filesystem::u8path(tempDir_));
    install(installDir_, Launcher::Runs);
    zorvhost::setInstallPath(hostPath(installDir_) + genostat::platform::pathSeparator());
    zorvhost::setTempPath(hostPath(tempDir_));
  }

  // Queues a job whose only input file holds the stand-in's plan `json`.
  void submit(const std::string& name, const std::string& json) {
    auto* job = new GenoJobSettings();
    job->jobName = name;
    job->fastqFiles = {scratch_.write("plan" + std::to_string(++plans_) + ".json", json)};
    manager_->addJobToQueue(job);
  }
  bool workerIdle() {
    return eventually([this] { return Peer::idle(*manager_); }, 30.0);
  }

  ScratchFolder scratch_;
  std::string installDir_;
  std::string tempDir_;
  Client client_;
  std::unique_ptr<GenoStatAlgoManager> manager_;
  GenoStatAlgoManager* previous_ = nullptr;
  int plans_ = 0;
};

}  // namespace mt
