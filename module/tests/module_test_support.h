// What every module test needs from the host's side: scratch folders, a client that records (and
// lets a test wait for) the messages the module posts, a fresh manager as the module's instance,
// GENOSTAT run from command text with its errors and output tables collected, and on POSIX a
// stand-in installation folder whose launcher runs fixtures/standin_analysis.py.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
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

#include "entry/GenoJobSettings.h"
#include "host/messages.h"
#include "jobs/GenoStatAlgoManager.h"
#include "platform/platform.h"
#include "test_peer.h"
#include "zorvhost/client.h"
#include "zorvhost/output.h"

namespace mt {

using Peer = GenoStatAlgoManagerTestPeer;
using Texts = std::vector<std::string>;
constexpr int32_t kStartId = kZorvwMsgStartGenomicProcessingId;  // 1025
constexpr int32_t kEndId = kZorvwMsgEndGenomicProcessingId;      // 1026

// A fresh folder under the system's temporary folder, removed with everything in it.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::random_device random;
    const auto base = std::filesystem::temp_directory_path();
    for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
      const auto candidate = base / ("genostat-test-" + std::to_string(random()));
      std::error_code ec;
      // Forward slashes on every system, so paths can go into JSON plans as they are.
      if (std::filesystem::create_directory(candidate, ec)) path_ = candidate.generic_u8string();
    }
  }
  ~ScratchFolder() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

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
  return std::filesystem::exists(path, ec);
}

inline std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
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

// One message as the client received it, copied out of the message object during the post.
struct Recorded {
  int32_t id = 0;
  std::string jobName;
  bool started = false;     // start messages
  std::string message;      // end messages: the post-job syntax, empty for a cancel
  std::string csvFilePath;  // end messages
  int32_t workbookId = 0;   // end messages
  int32_t paragraphId = 0;  // end messages
};

// Attaches a client (interactive or not) for its lifetime and records everything posted to it.
class Client {
 public:
  explicit Client(bool interactive = true) {
    zorvhost::attachClient(interactive, [this](int32_t id, const void* message) { record(id, message); });
  }
  ~Client() { zorvhost::detachClient(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  std::vector<Recorded> messages() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return messages_;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    messages_.clear();
  }
  std::vector<Recorded> ends() const { return select([](const Recorded& m) { return m.id == kEndId; }); }
  std::vector<Recorded> of(const std::string& name) const {
    return select([&](const Recorded& m) { return m.jobName == name; });
  }
  // True once `count` end messages have arrived in all, within `seconds`.
  bool waitForEnds(std::size_t count, double seconds = 10.0) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return endCount_ >= count; });
  }
  // True once a start message with `started` true for `name` has arrived.
  bool waitForStarted(const std::string& name, double seconds = 10.0) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] {
      for (const Recorded& m : messages_) {
        if (m.id == kStartId && m.started && m.jobName == name) return true;
      }
      return false;
    });
  }
  // From now on the post of every message that `fail` picks throws (after it is recorded), as a
  // host whose client is gone would.
  void failWhen(std::function<bool(const Recorded&)> fail) {
    std::lock_guard<std::mutex> lock(mutex_);
    fail_ = std::move(fail);
  }
  // Runs `hook` on the posting thread for every end message, once it has been recorded.
  void onEnd(std::function<void(const Recorded&)> hook) {
    std::lock_guard<std::mutex> lock(mutex_);
    onEnd_ = std::move(hook);
  }

 private:
  std::vector<Recorded> select(const std::function<bool(const Recorded&)>& keep) const {
    std::vector<Recorded> out;
    for (const Recorded& m : messages()) {
      if (keep(m)) out.push_back(m);
    }
    return out;
  }
  void record(int32_t id, const void* message) {
    Recorded r;
    r.id = id;
    if (id == kStartId) {
      const auto* start = static_cast<const ZorvwMsgStartGenomicProcessing*>(message);
      r.jobName = start->jobName();
      r.started = start->started();
    } else if (id == kEndId) {
      const auto* end = static_cast<const ZorvwMsgEndGenomicProcessing*>(message);
      r.jobName = end->jobName();
      r.message = end->message();
      r.csvFilePath = end->csvFilePath();
      r.workbookId = end->workbookId();
      r.paragraphId = end->paragraphId();
    }
    std::function<void(const Recorded&)> hook;
    bool fail = false;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      messages_.push_back(r);
      if (id == kEndId) ++endCount_;
      changed_.notify_all();
      if (id == kEndId) hook = onEnd_;
      fail = fail_ && fail_(r);
    }
    if (hook) hook(r);
    if (fail) throw std::runtime_error("the client is gone");
  }

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Recorded> messages_;
  std::size_t endCount_ = 0;
  std::function<void(const Recorded&)> onEnd_;
  std::function<bool(const Recorded&)> fail_;
};

// A new record named `name`; the host holds no metadata in these tests, so the ids stay -1.
inline GenoJobSettings* makeJob(const std::string& name) {
  auto* job = new GenoJobSettings();
  job->jobName = name;
  return job;
}

// Makes `manager` (a held-worker one unless given) the module's instance for the scope, so that
// GENOSTAT and the static accessors reach it; the previous instance comes back afterwards.
class ManagerScope {
 public:
  explicit ManagerScope(std::unique_ptr<GenoStatAlgoManager> manager = Peer::make()) : manager_(std::move(manager)) {
    GenoStatAlgoManager::getManagerInstance();  // use up the once-flag before replacing the instance
    previous_ = Peer::setInstance(manager_.get());
  }
  ~ManagerScope() { Peer::setInstance(previous_); }
  ManagerScope(const ManagerScope&) = delete;
  ManagerScope& operator=(const ManagerScope&) = delete;
  GenoStatAlgoManager& manager() { return *manager_; }
  std::unique_ptr<GenoStatAlgoManager>& owned() { return manager_; }

 private:
  std::unique_ptr<GenoStatAlgoManager> manager_;
  GenoStatAlgoManager* previous_ = nullptr;
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

// Runs a command that must report no error; returns the tables it showed in the host's output.
inline std::vector<zorvhost::OutputTable> runTables(const std::string& text) {
  std::vector<zorvhost::OutputTable> tables;
  zorvhost::setOutputHandler([&tables](const zorvhost::OutputTable& table) { tables.push_back(table); });
  const Texts errors = runCommand(text);
  zorvhost::setOutputHandler(nullptr);
  EXPECT_EQ(errors, Texts{}) << text;
  return tables;
}

// The tables of a command, each as "Title: row=value, row=value", joined by " | ".
inline std::string printed(const std::string& text) {
  std::string out;
  for (const auto& table : runTables(text)) {
    out += (out.empty() ? "" : " | ") + table.title + ":";
    for (std::size_t row = 0; row < table.rowLabels.size(); ++row) {
      out += (row == 0 ? " " : ", ") + table.rowLabels[row] + "=";
      if (row >= table.cells.size()) continue;
      for (std::size_t col = 0; col < table.cells[row].size(); ++col) {
        out += (col == 0 ? "" : " ") + table.cells[row][col];
      }
    }
  }
  return out;
}

// Watches addresses for the moment they are given back to operator delete (the test binary's
// global operator delete, defined in jobs_test.cpp, reports every free here).
namespace freewatch {
void watch(const void* pointer);
bool freed(const void* pointer);
void forget();  // stops watching everything
void noteFree(const void* pointer);  // called by the replaced operator delete
}  // namespace freewatch

// ---- what each system provides (posix/fixture_posix.cpp, win32/fixture_win32.cpp) -------------

// How the installation folder is laid out.
enum class Launcher { Runs, Missing, NotExecutable };

// Writes the installation folder: its launcher (a script that runs the stand-in analysis) and
// scripts/genostat.pyc (or genostat.pyc beside the launcher).
void install(const std::string& base, Launcher launcher, bool scriptInScripts = true);

// True when no live process has the id `pid`.
bool processGone(int pid);

// A test folder as the host hands folders to the module: with the system's own separators.
std::string hostPath(const std::string& path);

// The names a built module library exports, or an error text in `error`.
std::set<std::string> exportedNames(const std::string& library, std::string& error);

// The base address of the loaded object (library or program) that holds `code`.
void* loadedObjectBase(const void* code);

// Whether the stand-in can end itself by a signal, as the POSIX one can.
extern const bool kStandInEndsBySignal;

// A test with its own installation and temporary folders, an attached client, and a fresh manager
// with a live worker as the module's instance (so GENOSTAT reaches it too).
class RunTest : public ::testing::Test {
 protected:
  RunTest() : instance_(Peer::makeWithWorker()), manager_(instance_.owned()) {}
  ~RunTest() override {
    // A test that failed half way may leave a job hanging: end it, so the worker can be joined.
    if (manager_) {
      manager_->cancellAllJobsPending();
      for (const std::string& name : submitted_) manager_->cancelJob(name);
      manager_.reset();
    }
    zorvhost::setTempPath("");
    zorvhost::setInstallPath("");
  }
  void SetUp() override {
    installDir_ = scratch_.path() + "/install";
    tempDir_ = scratch_.path() + "/temp";
    std::filesystem::create_directories(tempDir_);
    install(installDir_, Launcher::Runs);
    zorvhost::setInstallPath(hostPath(installDir_) + genostat::platform::pathSeparator());
    zorvhost::setTempPath(hostPath(tempDir_));
  }

  // Writes a plan for the stand-in into a file of its own and returns the file's path.
  std::string plan(const std::string& json) { return scratch_.write("plan" + std::to_string(++plans_) + ".json", json); }
  // A record whose only input file is `inputFile`.
  static GenoJobSettings* job(const std::string& name, const std::string& inputFile) {
    GenoJobSettings* settings = makeJob(name);
    settings->fastqFiles = {inputFile};
    return settings;
  }
  // Queues a record as the entry would.
  void queue(GenoJobSettings* settings) {
    submitted_.push_back(settings->jobName);
    manager_->addJobToQueue(settings);
  }
  // Queues a job running `planJson`.
  void submit(const std::string& name, const std::string& planJson) { queue(job(name, plan(planJson))); }
  // A plan that creates a file once the stand-in runs, then sleeps; `ready()` tells when it ran.
  std::string hangingPlan(const std::string& extra = "") {
    return R"({"ready":")" + scratch_.file("ready") + R"(","sleep":30)" + extra + "}";
  }
  bool ready() { return eventually([&] { return exists(scratch_.file("ready")); }); }
  // The files left in the temporary folder.
  Texts tempFiles() const {
    Texts names;
    for (const auto& entry : std::filesystem::directory_iterator(tempDir_)) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }
  bool workerIdle() { return eventually([this] { return Peer::idle(*manager_); }); }
  // The kept failure text for the /PRINT of `printName` and `code`, or "<none>".
  std::string taken(const std::string& printName, int32_t code) {
    std::string text;
    return Peer::takeFailureMessage(*manager_, printName, code, text) ? text : "<none>";
  }

  ScratchFolder scratch_;
  std::string installDir_;
  std::string tempDir_;
  Client client_;
  ManagerScope instance_;
  std::unique_ptr<GenoStatAlgoManager>& manager_;
  std::vector<std::string> submitted_;
  int plans_ = 0;
};

}  // namespace mt
