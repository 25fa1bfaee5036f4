#include "console.h"
#include "texts.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
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

bool loadModule(ModuleEntry& entry, std::string& error, const std::string& file) {
  void* handle = platform::loadModule(file, error);
  if (handle == nullptr) return false;
  auto resolve = [&](const char* name) -> void* {
    void* p = platform::findFunction(handle, name);
    if (p == nullptr) error = file + " has no function " + name;
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
  wake_->post('m');
}

bool Mailbox::take(ClientMessage& message) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (queue_.empty()) return false;
  message = std::move(queue_.front());
  queue_.pop_front();
  return true;
}

// ---- Console --------------------------------------------------------------------------------

namespace {

constexpr char kDroppedText[] =
    "the job ended without a result and sent no end message; likely causes: the temporary folder "
    "is missing, no free result file name was left in it, or the analysis process could not be "
    "started";

std::string elapsed(std::chrono::steady_clock::duration d) {
  long s = static_cast<long>(std::chrono::duration_cast<std::chrono::seconds>(d).count());
  char buf[32];
  std::snprintf(buf, sizeof buf, "%ld:%02ld", s / 60, s % 60);
  return buf;
}

}  // namespace

Console::Console(const Options& options, const ModuleEntry& module, EventLog& events,
                 std::shared_ptr<platform::WakeChannel> wake, std::ostream& human, std::ostream& errors)
    : options_(options),
      module_(module),
      wake_(std::move(wake)),
      sink_(human, errors, events),
      host_(sink_),
      mailbox_(std::make_shared<Mailbox>(wake_)) {
  // Tables come from generateOutput() on the thread that runs the command: this console's.
  zorvhost::setOutputHandler([this](const zorvhost::OutputTable& table) { sink_.table(table); });
}

Console::~Console() { zorvhost::setOutputHandler({}); }

int Console::run() {
  std::vector<Source> sources = options_.sources;
  if (sources.empty()) sources.push_back({Source::Kind::StandardInput, ""});
  for (const auto& source : sources) {
    if (quit_) break;
    switch (source.kind) {
      case Source::Kind::File: {
        std::ifstream in(std::filesystem::u8path(source.value), std::ios::binary);
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
        runStandardInput("<stdin>");
        break;
    }
  }
  drain();
  if (!quit_ && options_.waitForJobs) waitForJobs();
  if (quit_ || !options_.waitForJobs) cancelRemaining();
  settle();
  sink_.clearStatus();
  if (!writeHtmlPage()) failed_ = true;
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

void Console::runStandardInput(const std::string& where) {
  platform::InputReader input(*wake_);
  interactive_ = input.interactive();
  sink_.setInteractive(interactive_);
  LineAssembler assembler;
  activeAssembler_ = &assembler;
  input_ = &input;
  sink_.setEditing(input.editing());
  if (interactive_) {
    say(tr("zorv: GENOSTAT console. End each command with a period; :jobs, :cancel NAME, :quit."));
    prompt();
  }
  std::string pending;
  while (!quit_) {
    std::string why;
    platform::InputReader::Result got = input.next(pending, why);
    if (got == platform::InputReader::Result::Woken) {
      if (drain() && interactive_ && !quit_) prompt();
      continue;
    }
    if (got == platform::InputReader::Result::Failed) {
      reportError(where, "zorv", why);
      break;
    }
    if (got == platform::InputReader::Result::End) break;
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
  if (!quit_) {
    if (!pending.empty()) {
      for (const auto& chunk : assembler.addLine(pending)) handle(chunk, where);
    }
    for (const auto& chunk : assembler.finish()) handle(chunk, where);
  }
  if (interactive_ && !quit_) sink_.prompt("\n");
  activeAssembler_ = nullptr;
  input_ = nullptr;
  sink_.setEditing(false);
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

bool Console::runCommand(const std::string& text, const std::string& where, bool fromUser) {
  std::string name = commandNameOf(text);
  sink_.command(text, !fromUser);
  if (name.empty()) {
    std::string first = trim(text);
    first = first.substr(0, first.find_first_of(" \t\n"));
    reportError(where, first, tr("not a command of the command language"));
    return false;
  }
  if (name == "GENOSTAT") {
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
  } else if (HostCommands::knows(name)) {
    host_.run(name, text);
  } else {
    zorvhost::reportCommandError(
        name, "unrecognized command; this console runs GENOSTAT and the commands of a job's syntax");
  }
  bool ok = true;
  for (const auto& error : zorvhost::takeCommandErrors()) {
    reportError(where, error.command, error.text);
    ok = false;
  }
  return ok;
}

void Console::runConsoleCommand(const std::string& text, const std::string& where) {
  std::string word = text.substr(0, text.find_first_of(" \t"));
  std::string rest = trim(text.substr(word.size()));
  if (word == ":quit" && rest.empty()) {
    quit_ = true;
  } else if (word == ":jobs" && rest.empty()) {
    drain();
    if (jobs_.all().empty()) {
      say(tr("No jobs."));
      return;
    }
    for (const auto& job : jobs_.all()) {
      const std::string state = tr(job.state == JobState::Queued       ? "queued"
                          : job.state == JobState::Started             ? "started"
                          : job.outcome == JobOutcome::Cancelled       ? "ended (cancelled)"
                          : job.outcome == JobOutcome::Failed          ? "ended (failed)"
                          : job.outcome == JobOutcome::Dropped         ? "ended (no result)"
                                                                       : "ended");
      say("  " + job.name + "  " + state);
    }
  } else if (word == ":cancel") {
    std::string name = rest;
    if (name.size() >= 2 && (name[0] == '\'' || name[0] == '"') && name.back() == name[0]) {
      name = name.substr(1, name.size() - 2);
    }
    if (name.empty()) {
      reportError(where, ":cancel", tr("a job name is needed: :cancel NAME"));
      return;
    }
    GenoStatAlgoManager* mgr = manager();
    bool found = client_.call([&] { return module_.cancel(mgr, name.c_str()); });
    drain();
    if (!found) reportError(where, ":cancel", tr("no job named '{0}' is queued or running", {name}));
  } else {
    reportError(where, word, tr("unknown console command (known: :jobs, :cancel NAME, :quit)"));
  }
}

bool Console::drain() {
  // Take the wake-ups first, so that a message queued after this wakes the next wait.
  const std::string woken = wake_->take();
  if (woken.find('q') != std::string::npos) {
    quit_ = true;
  } else if (woken.find('i') != std::string::npos) {
    // Ctrl-C at the prompt takes back what was typed; with nothing typed it quits and cancels.
    bool typed = input_ != nullptr && input_->discardTypedLine();
    if (activeAssembler_ != nullptr && activeAssembler_->commandOpen()) {
      activeAssembler_->discard();
      if (!typed) sink_.prompt("^C\n");
      typed = true;
    }
    if (typed) {
      prompt();
    } else {
      quit_ = true;
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
  if (!m.end) {
    if (m.started) {
      jobs_.started(m.job, std::chrono::steady_clock::now());
    } else {
      jobs_.queued(m.job);
    }
    sink_.jobStart(m.job, m.started);
    return;
  }
  sink_.jobEnd(m.job, m.syntax, m.csv, m.workbook, m.paragraph);
  TrackedJob* job = jobs_.ended(m.job);
  if (job == nullptr) {
    // The module answers every cancel of a queued job, a repeated one too.
    say(tr("Job {0}: a further end message, for a job that has already ended.", {m.job}));
    return;
  }
  if (m.syntax.empty()) {
    job->outcome = JobOutcome::Cancelled;
    say(tr("Job {0} cancelled.", {m.job}));
    return;
  }
  runJobSyntax(*job, m);
}

void Console::runJobSyntax(TrackedJob& job, const ClientMessage& m) {
  int32_t code = 0;
  bool haveCode = messageCodeOf(m.syntax, code);
  job.messageCode = code;
  job.outcome = haveCode && code == 100 ? JobOutcome::Succeeded : JobOutcome::Failed;
  // A failed run has the module write its diagnostic ("\n  file :...") to standard output without
  // a line end; the next message must not run into it.
  if (job.outcome == JobOutcome::Failed) sink_.endForeignLine();
  say(tr("Job {0} ended; running its syntax.", {m.job}));
  // Every command runs, whatever became of the one before: the last one removes the result file.
  const std::string where = "job " + m.job;
  for (const auto& command : splitSyntax(m.syntax)) {
    runCommand(command.text, lineRef(where, command.firstLine), false);
  }
  if (!haveCode) {
    reportError(where, "GENOSTAT", tr("the job's syntax carries no message code; its outcome is unknown"));
  } else if (code != 100) {
    reportError(where, "GENOSTAT",
                tr("the job failed (message code {0}); its Details table gives the reason", {std::to_string(code)}));
  }
}

GenoStatAlgoManager* Console::manager() { return module_.getManager(); }

void Console::reportDroppedJobs() {
  GenoStatAlgoManager* mgr = manager();
  if (mgr == nullptr) return;
  std::vector<std::string> gone;
  for (TrackedJob* job : jobs_.open()) {
    if (!mgr->isJobPendingOrRunning(job->name)) gone.push_back(job->name);
  }
  if (gone.empty()) return;
  // The worker posts a job's end message before it lets go of the job, so a message that belongs
  // to one of these is in the mailbox by now.
  drain();
  for (TrackedJob* job : jobs_.open()) {
    bool isGone = false;
    for (const auto& name : gone) isGone = isGone || name == job->name;
    if (!isGone) continue;
    job->state = JobState::Ended;
    job->outcome = JobOutcome::Dropped;
    reportError("job " + job->name, "GENOSTAT", tr(kDroppedText));
  }
}

void Console::showRunning() {
  for (TrackedJob* job : jobs_.open()) {
    if (job->state != JobState::Started) continue;
    sink_.status(tr("Job {0} running, {1}", {job->name,
                                                  elapsed(std::chrono::steady_clock::now() - job->startedAt)}));
    return;
  }
  sink_.clearStatus();
}

void Console::waitForJobs() {
  auto lastCheck = std::chrono::steady_clock::now() - std::chrono::seconds(1);
  while (jobs_.anyOpen() && !quit_) {
    wake_->wait(250);
    if (drain()) continue;
    showRunning();
    auto now = std::chrono::steady_clock::now();
    if (now - lastCheck >= std::chrono::milliseconds(250)) {
      lastCheck = now;
      reportDroppedJobs();
    }
  }
  sink_.clearStatus();
}

void Console::cancelRemaining() {
  drain();
  GenoStatAlgoManager* mgr = manager();
  if (mgr == nullptr || !jobs_.anyOpen()) return;
  // Queued jobs first: cancelled before the running one ends, none of them can start meanwhile.
  std::vector<std::string> names;
  for (JobState state : {JobState::Queued, JobState::Started}) {
    for (TrackedJob* job : jobs_.open()) {
      if (job->state != state) continue;
      bool seen = false;
      for (const auto& n : names) seen = seen || n == job->name;
      if (!seen) names.push_back(job->name);
    }
  }
  auto cancel = [&](const std::vector<std::string>& which) {
    client_.call([&] {
      for (const auto& name : which) module_.cancel(mgr, name.c_str());
      return true;
    });
  };
  cancel(names);
  drain();
  // A cancelled job's end message comes at once, but the manager holds a running job until its
  // process is gone, which takes a moment. One that is still running long after the cancel may
  // have a process that started after it (the cancel found none to kill): cancel it again. The
  // module answers every cancel of a running job, so a second end message may come.
  auto lastCancel = std::chrono::steady_clock::now();
  bool told = false;
  for (;;) {
    std::vector<std::string> busy;
    for (const auto& name : names) {
      if (mgr->isJobPendingOrRunning(name)) busy.push_back(name);
    }
    if (busy.empty()) break;
    auto now = std::chrono::steady_clock::now();
    if (now - lastCancel >= std::chrono::seconds(5)) {
      cancel(busy);
      lastCancel = now;
      if (!told) {
        say(tr("Waiting for the analysis processes of cancelled jobs to end."));
        told = true;
      }
    }
    wake_->wait(20);
    drain();
  }
  drain();
  reportDroppedJobs();
}

void Console::settle() {
  // Give the worker time to finish the last job (free it, remove a cancelled job's file) before
  // the process and its temporary folder go away.
  GenoStatAlgoManager* mgr = manager();
  if (mgr == nullptr || jobs_.all().empty()) return;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (;;) {
    bool busy = false;
    for (const auto& job : jobs_.all()) busy = busy || mgr->isJobPendingOrRunning(job.name);
    if (!busy || std::chrono::steady_clock::now() > deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  drain();
}

void Console::reportError(const std::string& where, const std::string& command,
                          const std::string& text) {
  failed_ = true;
  sink_.error(where, command, text);
}

void Console::prompt() {
  bool open = activeAssembler_ != nullptr && activeAssembler_->commandOpen();
  const char* text = open ? "   ...> " : "zorv> ";
  if (input_ != nullptr && input_->editing()) {
    sink_.clearStatus();
    input_->prompt(text);
  } else {
    sink_.prompt(text);
  }
}

bool Console::writeHtmlPage() {
  if (options_.outputPath.empty()) return true;
  std::ofstream out(std::filesystem::u8path(options_.outputPath), std::ios::binary | std::ios::trunc);
  std::string page = sink_.htmlPage();
  out.write(page.data(), static_cast<std::streamsize>(page.size()));
  out.close();
  if (!out) {
    std::string why = std::strerror(errno);
    sink_.error(options_.outputPath, "zorv", "cannot write the output page: " + why);
    return false;
  }
  return true;
}

}  // namespace zorv
