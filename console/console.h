// zorv's console: runs the user's syntax on the host's command thread (zorv's main thread), shows
// the module's job messages and runs the syntax that ends each job, cancels jobs from a client
// thread of its own.
//
// Threads:
//   [main]   reads input, runs every command and every job's syntax, writes all output and events
//            (tables reach it through the output library's handler, on this thread);
//   [client] the host client's thread: cancelGenoJob and the manager's cancel-all run there;
//   [any]    onClientMessage: the module posts on whichever thread it is on, sometimes while it
//            holds its own lock, so the handler only queues the message and wakes [main].
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "assembler.h"
#include "events.h"
#include "hostcommands.h"
#include "jobs.h"
#include "options.h"
#include "platform/platform.h"
#include "sink.h"

class GenoStatAlgoManager;

namespace zorv {

// The module's exported C functions, resolved by name as the host's command processor does.
struct ModuleEntry {
  void (*genostat)() = nullptr;
  GenoStatAlgoManager* (*getManager)() = nullptr;
  bool (*cancel)(GenoStatAlgoManager*, const char*) = nullptr;
};

// Loads the module (found beside zorv; `file` names another library for tests) and resolves the
// three functions. On failure returns false with the reason in `error`.
bool loadModule(ModuleEntry& entry, std::string& error,
                const std::string& file = platform::moduleFileName());

// A thread that runs one call at a time for the main thread and hands back its result.
class ClientThread {
 public:
  ClientThread();
  ~ClientThread();  // finishes queued calls, then joins
  ClientThread(const ClientThread&) = delete;
  ClientThread& operator=(const ClientThread&) = delete;

  // [main] Runs `fn` on the client thread and waits for its result.
  bool call(std::function<bool()> fn);

 private:
  void loop();
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::packaged_task<bool()>> calls_;
  bool stop_ = false;
  std::thread thread_;
};

// A job message as the main thread handles it.
struct ClientMessage {
  bool end = false;
  std::string job;
  bool started = false;  // start messages
  std::string syntax, csv;
  int32_t workbook = -1, paragraph = -1;
};

// Where the host message bus's handler leaves messages for the main thread. Shared between the
// console and the handler, so that a poster that still holds the client's adapter after the
// console has gone finds it alive.
class Mailbox {
 public:
  explicit Mailbox(std::shared_ptr<platform::WakeChannel> wake) : wake_(std::move(wake)) {}
  // [any] Queues messages 1025 and 1026 (others are ignored) and wakes the main thread.
  void post(int32_t id, const void* message);
  // [main] The oldest queued message; false when there is none.
  bool take(ClientMessage& message);

 private:
  std::shared_ptr<platform::WakeChannel> wake_;
  std::mutex mutex_;
  std::deque<ClientMessage> queue_;
};

class Console {
 public:
  // `wake`: a byte 'q' in it asks the console to quit (the interrupt handler posts it), any other
  // byte only wakes it. `human` and `errors` receive the human-readable output (normally std::cout
  // and std::cerr).
  Console(const Options& options, const ModuleEntry& module, EventLog& events,
          std::shared_ptr<platform::WakeChannel> wake, std::ostream& human, std::ostream& errors);
  ~Console();  // disconnects the output handler

  // [main] Runs every source, then waits for the jobs (or cancels them), then writes the page of
  // --output. Returns the exit status.
  int run();

  // The host message bus's handler posts here.
  std::shared_ptr<Mailbox> mailbox() const { return mailbox_; }

  // Set when the human output is a terminal: a running job shows its elapsed time there.
  void setStatusLine(bool onTerminal) {
    sink_.setStatusAllowed(onTerminal);
    sink_.setColour(onTerminal);
  }

 private:
  void runText(const std::string& text, const std::string& where);
  void runStandardInput(const std::string& where);
  void handle(const Chunk& chunk, const std::string& where);
  // Runs one command; false when it reported an error.
  bool runCommand(const std::string& text, const std::string& where, bool fromUser);
  void runConsoleCommand(const std::string& text, const std::string& where);
  // Handles every queued message (and takes the wake-ups); true when anything was handled.
  bool drain();
  void handleMessage(const ClientMessage& m);
  void runJobSyntax(TrackedJob& job, const ClientMessage& m);
  // Jobs that the manager no longer holds and that sent no end message: reported as dropped.
  void reportDroppedJobs();
  void waitForJobs();
  void cancelRemaining();
  void settle();
  void showRunning();
  GenoStatAlgoManager* manager();

  void say(const std::string& line) { sink_.line(line); }
  void reportError(const std::string& where, const std::string& command, const std::string& text);
  void prompt();
  bool writeHtmlPage();

  const Options& options_;
  ModuleEntry module_;
  std::shared_ptr<platform::WakeChannel> wake_;
  OutputSink sink_;
  HostCommands host_;
  ClientThread client_;

  std::shared_ptr<Mailbox> mailbox_;

  JobTracker jobs_;
  bool failed_ = false;
  bool quit_ = false;
  bool interactive_ = false;
  LineAssembler* activeAssembler_ = nullptr;  // for the prompt's continuation mark
  platform::InputReader* input_ = nullptr;    // while standard input is read: draws an edited prompt
};

}  // namespace zorv
