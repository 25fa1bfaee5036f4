// Small fixtures shared by the entry and results tests: a scratch folder and file helpers.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "host/messages.h"
#include "jobs/GenoStatAlgoManager.h"
#include "test_peer.h"
#include "zorvhost/client.h"

namespace entry_test {

// A fresh folder under the system's temporary folder, removed with everything in it.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::random_device random;
    const std::filesystem::path base = std::filesystem::temp_directory_path();
    for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
      const std::filesystem::path candidate = base / ("genostat-entry-" + std::to_string(random()));
      std::error_code ec;
      if (std::filesystem::create_directory(candidate, ec)) path_ = candidate.string();
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
    std::ofstream out(file(name), std::ios::binary);
    out << content;
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

// One client message, copied while it was posted.
struct ClientMessage {
  int32_t id = 0;
  std::string jobName;
  bool started = false;  // start messages
  std::string text;      // end messages: the syntax
};

// Attaches a client (interactive or not) for its lifetime and keeps what is posted to it.
class Client {
 public:
  explicit Client(bool interactive = true) {
    zorvhost::attachClient(interactive, [this](int32_t id, const void* message) {
      ClientMessage m;
      m.id = id;
      if (id == kZorvwMsgStartGenomicProcessingId) {
        const auto* start = static_cast<const ZorvwMsgStartGenomicProcessing*>(message);
        m.jobName = start->jobName();
        m.started = start->started();
      } else if (id == kZorvwMsgEndGenomicProcessingId) {
        const auto* end = static_cast<const ZorvwMsgEndGenomicProcessing*>(message);
        m.jobName = end->jobName();
        m.text = end->message();
      }
      std::lock_guard<std::mutex> lock(mutex_);
      messages_.push_back(m);
    });
  }
  ~Client() { zorvhost::detachClient(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  std::vector<ClientMessage> messages() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return messages_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<ClientMessage> messages_;
};

// A fresh manager as the module's instance for the scope, so that commands start from an empty
// queue; the previous instance comes back afterwards.
class ManagerScope {
 public:
  ManagerScope() : manager_(GenoStatAlgoManagerTestPeer::make()) {
    GenoStatAlgoManager::getManagerInstance();  // use up the once-flag before replacing the instance
    previous_ = GenoStatAlgoManagerTestPeer::setInstance(manager_.get());
  }
  ~ManagerScope() { GenoStatAlgoManagerTestPeer::setInstance(previous_); }
  ManagerScope(const ManagerScope&) = delete;
  ManagerScope& operator=(const ManagerScope&) = delete;
  GenoStatAlgoManager& manager() { return *manager_; }

 private:
  std::unique_ptr<GenoStatAlgoManager> manager_;
  GenoStatAlgoManager* previous_ = nullptr;
};

}  // namespace entry_test
