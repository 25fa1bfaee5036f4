// Host language library (adapter) and host message bus (the two genomic job messages).
#pragma once

#include <cstdint>
#include <string>

#include "host/host_api.h"

// Message ids on the host message bus.
constexpr int32_t kZorvwMsgStartGenomicProcessingId = 1025;
constexpr int32_t kZorvwMsgEndGenomicProcessingId = 1026;

// The connection between the host's engine and its client.
class ZORV_HOST_API ZorvAdapter {
 public:
  virtual ~ZorvAdapter();
  // Non-zero when an interactive client is attached; zero in the host's command-line mode.
  virtual int isInteractiveClient() const = 0;
  // Delivers `message` (the message class that `id` names) to the client, synchronously: the
  // object need not outlive the call. May be called from any thread, also while the caller holds
  // its own locks, so the client must not call back into the caller from inside.
  virtual void postClientMessage(int32_t id, const void* message) = 0;
};

// The host's current adapter, or null when none exists. Thread-safe.
ZORV_HOST_API ZorvAdapter* GetAdapter();

// Id 1025: a job was queued (`started` false) or the worker began to run it (`started` true).
class ZORV_HOST_API ZorvwMsgStartGenomicProcessing {
 public:
  ZorvwMsgStartGenomicProcessing(const std::string& jobName, bool started);
  virtual ~ZorvwMsgStartGenomicProcessing();
  const std::string& jobName() const { return jobName_; }
  bool started() const { return started_; }

 private:
  std::string jobName_;
  bool started_;
};

// Id 1026: a job ended; `message` is the syntax for the client to run (empty for a cancelled job).
class ZORV_HOST_API ZorvwMsgEndGenomicProcessing {
 public:
  ZorvwMsgEndGenomicProcessing(const std::string& jobName, const std::string& message,
                               const std::string& csvFilePath, int32_t workbookId,
                               int32_t paragraphId);
  virtual ~ZorvwMsgEndGenomicProcessing();
  const std::string& jobName() const { return jobName_; }
  const std::string& message() const { return message_; }
  const std::string& csvFilePath() const { return csvFilePath_; }
  int32_t workbookId() const { return workbookId_; }
  int32_t paragraphId() const { return paragraphId_; }

 private:
  std::string jobName_;
  std::string message_;
  std::string csvFilePath_;
  int32_t workbookId_;
  int32_t paragraphId_;
};
