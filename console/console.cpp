#include "console.h"

#include <dlfcn.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <utility>

#include "host/messages.h"
#include "jobs/GenoStatAlgoManager.h"
#include "syntax.h"
#include "zorvhost/client.h"

namespace zorv {

namespace {

constexpr char kModuleFile[] = "libzorvwgnm.so";

std::string trim(const std::string& s) {
  size_t a = s.find_first_not_of(" \t");
  if (a == std::string::npos) return "";
  size_t b = s.find_last_not_of(" \t");
  return s.substr(a, b - a + 1);
}

std::string lineRef(const std::string& where, int line) {
  return where + ":" + std::to_string(line);
}

}  // namespace

bool loadModule(ModuleEntry& entry, std::string& error) {
  // zorv links the module too, so this finds the copy already mapped; the $ORIGIN run path finds
  // the file beside zorv otherwise.
  void* handle = dlopen(kModuleFile, RTLD_NOW);
  if (handle == nullptr) {
    const char* why = dlerror();
    error = std::string("cannot load ") + kModuleFile + ": " + (why ? why : "unknown reason");
    return false;
  }
  auto resolve = [&](const char* name) -> void* {
    dlerror();
    void* p = dlsym(handle, name);
    if (p == nullptr) error = std::string(kModuleFile) + " has no function " + name;
    return p;
  };
  void* genostat = resolve("GENOSTAT");
  void* getManager = genostat ? resolve("getGenoManagerInstance") : nullptr;
  void* cancel = getManager ? resolve("cancelGenoJob") : nullptr;
  if (cancel == nullptr) return false;
  entry.genostat = reinterpret_cast<void (*)()>(genostat);
  entry.getManager = reinterpret_cast<GenoStatAlgoManager* (*)()>(getManager);
  entry.cancel = reinterpret_cast<bool (*)(GenoStatAlgoManager*, const char*)>(cancel);
  return true;  // the handle stays open for the life of the process
}

// ---- ClientThread ---------------------------------------------------------------------------

ClientThread::ClientThread() : thread_([this] { loop(); }) {}

ClientThread::~ClientThread() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  wake_.notify_one();
  thread_.join();
}

bool ClientThread::call(std::function<bool()> fn) {
  std::packaged_task<bool()> task(std::move(fn));
  std::future<bool> result = task.get_future();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(std::move(task));
  }
  wake_.notify_one();
  return result.get();
}

void ClientThread::loop() {
  for (;;) {
    std::packaged_task<bool()> task;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      wake_.wait(lock, [this] { return stop_ || !calls_.empty(); });
      if (calls_.empty()) return;
      task = std::move(calls_.front());
      calls_.pop_front();
    }
    task();
  }
}

// ---- Mailbox --------------------------------------------------------------------------------

void Mailbox::post(int32_t id, const void* message) {
  ClientMessage m;
  if (id == kZorvwMsgStartGenomicProcessingId) {
    auto* start = static_cast<const ZorvwMsgStartGenomicProcessing*>(message);
    m.job = start->jobName();
    m.started = start->started();
  } else if (id == kZorvwMsgEndGenomicProcessingId) {
    auto* end = static_cast<const ZorvwMsgEndGenomicProcessing*>(message);
    m.end = true;
    m.job = end->jobName();
    m.syntax = end->message();
    m.csv = end->csvFilePath();
    m.workbook = end->workbookId();
    m.paragraph = end->paragraphId();
  } else {
    return;
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    queue_.push_back(std::move(m));
  }
  // Non-blocking: when the pipe is full the main thread has wake-ups pending anyway.
  char byte = 'm';
  ssize_t ignored = write(wakeWriteFd_, &byte, 1);
  (void)ignored;
}

bool Mailbox::take(ClientMessage& message) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (queue_.empty()) return false;
  message = std::move(queue_.front());
  queue_.pop_front();
  return true;
}

// ---- Console --------------------------------------------------------------------------------

Console::Console(const Options& options, const ModuleEntry& module, EventLog& events, int wakeFd,
                 int wakeWriteFd)
    : options_(options),
      module_(module),
      events_(events),
      wakeFd_(wakeFd),
      mailbox_(std::make_shared<Mailbox>(wakeWriteFd)) {}

Console::~Console() = default;

int Console::run() {
  std::vector<Source> sources = options_.sources;
  if (sources.empty()) sources.push_back({Source::Kind::StandardInput, ""});
  for (const auto& source : sources) {
    if (quit_) break;
    switch (source.kind) {
      case Source::Kind::File: {
        std::ifstream in(source.value, std::ios::binary);
        if (!in) {
          reportError(source.value, "zorv", std::string("cannot open file: ") + std::strerror(errno));
          break;
        }
        std::ostringstream text;
        text << in.rdbuf();
        runText(text.str(), source.value);
        break;
      }
      case Source::Kind::Text:
        runText(source.value, "-e");
        break;
      case Source::Kind::StandardInput:
        runStream(STDIN_FILENO, "<stdin>");
        break;
    }
  }
  drain();
  if (!quit_ && options_.waitForJobs) waitForJobs();
  if (quit_ || !options_.waitForJobs) cancelRemaining();
  settle();
  std::cout.flush();
  return failed_ ? 1 : 0;
}

void Console::runText(const std::string& text, const std::string& where) {
  LineAssembler assembler;
  size_t pos = 0;
  while (pos < text.size() && !quit_) {
    size_t eol = text.find('\n', pos);
    if (eol == std::string::npos) eol = text.size();
    for (const auto& chunk : assembler.addLine(text.substr(pos, eol - pos))) {
      handle(chunk, where);
      if (quit_) return;
    }
    pos = eol + 1;
  }
  for (const auto& chunk : assembler.finish()) handle(chunk, where);
}

void Console::runStream(int fd, const std::string& where) {
  interactive_ = isatty(fd) != 0;
  LineAssembler assembler;
  activeAssembler_ = &assembler;
  if (interactive_) {
    say("zorv: GENOSTAT console. End each command with a period; :jobs, :cancel NAME, :quit.");
    prompt();
  }
  std::string pending;
  char buf[65536];
  bool eof = false;
  while (!eof && !quit_) {
    pollfd fds[2] = {{fd, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    int n = poll(fds, 2, -1);
    if (n < 0) {
      if (errno == EINTR) continue;
      reportError(where, "zorv", std::string("cannot wait for input: ") + std::strerror(errno));
      break;
    }
    if (fds[1].revents & POLLIN) {
      if (drain() && interactive_ && !quit_) prompt();
    }
    if (quit_) break;
    if (fds[0].revents & (POLLIN | POLLHUP | POLLERR)) {
      ssize_t got = read(fd, buf, sizeof buf);
      if (got < 0) {
        if (errno == EINTR || errno == EAGAIN) continue;
        reportError(where, "zorv", std::string("cannot read input: ") + std::strerror(errno));
        break;
      }
      if (got == 0) {
        eof = true;
        break;
      }
      pending.append(buf, static_cast<size_t>(got));
      size_t eol;
      while (!quit_ && (eol = pending.find('\n')) != std::string::npos) {
        std::string line = pending.substr(0, eol);
        pending.erase(0, eol + 1);
        for (const auto& chunk : assembler.addLine(line)) {
          handle(chunk, where);
          if (quit_) break;
        }
        if (interactive_ && !quit_) prompt();
      }
    }
  }
  if (!quit_) {
    if (!pending.empty()) {
      for (const auto& chunk : assembler.addLine(pending)) handle(chunk, where);
    }
    for (const auto& chunk : assembler.finish()) handle(chunk, where);
  }
  if (interactive_ && !quit_) std::cout << '\n' << std::flush;
  activeAssembler_ = nullptr;
}

void Console::handle(const Chunk& chunk, const std::string& where) {
  if (chunk.kind == Chunk::Kind::ConsoleCommand) {
    runConsoleCommand(chunk.text, lineRef(where, chunk.firstLine));
  } else {
    for (const auto& command : splitSyntax(chunk.text)) {
      runCommand(command.text, lineRef(where, chunk.firstLine + command.firstLine - 1), true);
      drain();
      if (quit_) return;
    }
  }
  drain();
}

void Console::runCommand(const std::string& text, const std::string& where, bool fromUser) {
  std::string name = commandNameOf(text);
  if (name.empty()) {
    std::string first = trim(text);
    first = first.substr(0, first.find_first_of(" \t\n"));
    reportError(where, first, "not a command of the command language");
    return;
  }
  if (name != "GENOSTAT") {
    notice(name + ": command not available in this console yet");
    return;
  }
  zorvhost::setCommandText(text);
  if (fromUser && options_.haveMetadata) zorvhost::setMetadataJson(options_.metadataJson);
  try {
    module_.genostat();
  } catch (const std::exception& e) {
    zorvhost::reportCommandError(name, std::string("the procedure failed: ") + e.what());
  } catch (...) {
    zorvhost::reportCommandError(name, "the procedure failed with an unknown exception");
  }
  // The job record takes the metadata when it reads it; never let it reach a later command.
  zorvhost::setMetadataJson("");
  for (const auto& error : zorvhost::takeCommandErrors()) {
    reportError(where, error.command, error.text);
  }
}

void Console::runConsoleCommand(const std::string& text, const std::string& where) {
  std::string word = text.substr(0, text.find_first_of(" \t"));
  std::string rest = trim(text.substr(word.size()));
  if (word == ":quit" && rest.empty()) {
    quit_ = true;
  } else if (word == ":jobs" && rest.empty()) {
    drain();
    if (jobs_.empty()) {
      say("No jobs.");
      return;
    }
    for (const auto& job : jobs_) {
      const char* state = job.state == JobState::Queued    ? "queued"
                          : job.state == JobState::Started ? "started"
                          : job.cancelled                  ? "ended (cancelled)"
                                                           : "ended";
      say("  " + job.name + "  " + state);
    }
  } else if (word == ":cancel") {
    std::string name = rest;
    if (name.size() >= 2 && (name[0] == '\'' || name[0] == '"') && name.back() == name[0]) {
      name = name.substr(1, name.size() - 2);
    }
    if (name.empty()) {
      reportError(where, ":cancel", "a job name is needed: :cancel NAME");
      return;
    }
    GenoStatAlgoManager* mgr = manager();
    bool found = client_.call([&] { return module_.cancel(mgr, name.c_str()); });
    drain();
    if (!found) reportError(where, ":cancel", "no job named '" + name + "' is queued or running");
  } else {
    reportError(where, word, "unknown console command (known: :jobs, :cancel NAME, :quit)");
  }
}

bool Console::drain() {
  // Read the wake-ups first, so that a message queued after this read wakes the next poll.
  char bytes[256];
  ssize_t n;
  while ((n = read(wakeFd_, bytes, sizeof bytes)) > 0) {
    for (ssize_t i = 0; i < n; ++i) {
      if (bytes[i] == 'q') quit_ = true;
    }
  }
  bool any = false;
  ClientMessage m;
  while (mailbox_->take(m)) {
    handleMessage(m);
    any = true;
  }
  return any;
}

void Console::handleMessage(const ClientMessage& m) {
  Job* job = findJob(m.job);
  if (!m.end) {
    events_.write(jobStartEvent(m.job, m.started));
    if (job == nullptr || job->state == JobState::Ended) {
      jobs_.push_back({m.job, JobState::Queued, false});
      job = &jobs_.back();
    }
    if (m.started) job->state = JobState::Started;
    say("Job " + m.job + (m.started ? " started." : " queued."));
    return;
  }
  events_.write(jobEndEvent(m.job, m.syntax, m.csv, m.workbook, m.paragraph));
  if (job == nullptr) {
    jobs_.push_back({m.job, JobState::Ended, false});
    job = &jobs_.back();
  }
  job->state = JobState::Ended;
  if (m.syntax.empty()) {
    job->cancelled = true;
    say("Job " + m.job + " cancelled.");
    return;
  }
  say("Job " + m.job + " ended; running its syntax.");
  const std::string where = "job " + m.job;
  for (const auto& command : splitSyntax(m.syntax)) {
    runCommand(command.text, lineRef(where, command.firstLine), false);
  }
}

Console::Job* Console::findJob(const std::string& name) {
  // The newest job of that name: a name is free again once its job has ended.
  for (auto it = jobs_.rbegin(); it != jobs_.rend(); ++it) {
    if (it->name == name) return &*it;
  }
  return nullptr;
}

bool Console::anyJobOpen() const {
  for (const auto& job : jobs_) {
    if (job.state != JobState::Ended) return true;
  }
  return false;
}

GenoStatAlgoManager* Console::manager() { return module_.getManager(); }

void Console::waitForJobs() {
  while (anyJobOpen() && !quit_) {
    pollfd fd = {wakeFd_, POLLIN, 0};
    int n = poll(&fd, 1, 250);
    if (n < 0 && errno != EINTR) break;
    if (drain()) continue;
    // A job that the module no longer holds has sent its end message before it let go (the
    // message is posted before the worker drops the job), so one that is still open here was
    // lost: say so instead of waiting for ever.
    GenoStatAlgoManager* mgr = manager();
    if (mgr == nullptr) break;
    for (auto& job : jobs_) {
      if (job.state == JobState::Ended || mgr->isJobPendingOrRunning(job.name)) continue;
      drain();
      if (job.state != JobState::Ended) {
        job.state = JobState::Ended;
        reportError("job " + job.name, "GENOSTAT", "the job ended without an end message");
      }
    }
  }
}

void Console::cancelRemaining() {
  drain();
  if (!anyJobOpen()) return;
  GenoStatAlgoManager* mgr = manager();
  if (mgr == nullptr) return;
  std::vector<std::string> running;
  for (const auto& job : jobs_) {
    if (job.state == JobState::Started) running.push_back(job.name);
  }
  client_.call([&] {
    mgr->cancellAllJobsPending();
    for (const auto& name : running) module_.cancel(mgr, name.c_str());
    return true;
  });
  drain();
}

void Console::settle() {
  // Give the worker time to finish a cancelled job (kill, wait, remove its file) before the
  // process and its temporary folder go away.
  if (jobs_.empty()) return;
  GenoStatAlgoManager* mgr = manager();
  if (mgr == nullptr) return;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (;;) {
    bool busy = false;
    for (const auto& job : jobs_) busy = busy || mgr->isJobPendingOrRunning(job.name);
    if (!busy || std::chrono::steady_clock::now() > deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  drain();
}

void Console::say(const std::string& line) {
  if (interactive_) std::cout << '\r';
  std::cout << line << '\n' << std::flush;
}

void Console::reportError(const std::string& where, const std::string& command,
                          const std::string& text) {
  failed_ = true;
  std::cout.flush();
  std::cerr << where << ": " << command << ": " << text << std::endl;
  events_.write(errorEvent(command, text));
}

void Console::prompt() {
  bool open = activeAssembler_ != nullptr && activeAssembler_->commandOpen();
  std::cout << (open ? "   ...> " : "zorv> ") << std::flush;
}

}  // namespace zorv
