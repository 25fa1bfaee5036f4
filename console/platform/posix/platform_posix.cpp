// zorv's system layer on POSIX: dlopen, a non-blocking self-pipe, signals, poll.
#include "platform/platform.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <histedit.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace zorv::platform {

const char* moduleFileName() { return "libzorvwgnm.so"; }

std::string programFolder() {
  std::string path(4096, '\0');
  const ssize_t n = ::readlink("/proc/self/exe", path.data(), path.size());
  if (n <= 0 || static_cast<std::size_t>(n) >= path.size()) return "";
  path.resize(static_cast<std::size_t>(n));
  return path.substr(0, path.rfind('/') + 1);
}

void* loadModule(const std::string& file, std::string& error) {
  // zorv links the module too, so this finds the copy already mapped; the $ORIGIN run path finds
  // the file beside zorv otherwise.
  void* handle = dlopen(file.c_str(), RTLD_NOW);
  if (handle == nullptr) {
    const char* why = dlerror();
    error = "cannot load " + file + ": " + (why ? why : "unknown reason");
  }
  return handle;
}

void* findFunction(void* module, const char* name) {
  dlerror();
  return dlsym(module, name);
}

// ---- WakeChannel: a pipe whose write end a signal handler may use ------------------------------

struct WakeChannel::State {
  int fds[2] = {-1, -1};
  // Set with every 'q' and 'i' as well: a full pipe may drop the byte, never the request to quit
  // or the interrupt.
  std::atomic<bool> quit{false};
  std::atomic<bool> interrupt{false};
};

WakeChannel::WakeChannel() : state_(std::make_unique<State>()) {
  if (pipe2(state_->fds, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::runtime_error(std::string("cannot create a pipe: ") + std::strerror(errno));
  }
}

WakeChannel::~WakeChannel() {
  close(state_->fds[0]);
  close(state_->fds[1]);
}

void WakeChannel::post(char byte) {
  // Async-signal-safe. A full pipe drops the byte: the reader has wake-ups pending anyway.
  if (byte == 'q') state_->quit.store(true);
  if (byte == 'i') state_->interrupt.store(true);
  ssize_t ignored = write(state_->fds[1], &byte, 1);
  (void)ignored;
}

std::string WakeChannel::take() {
  std::string bytes;
  char buf[256];
  ssize_t n;
  while ((n = read(state_->fds[0], buf, sizeof buf)) > 0) bytes.append(buf, static_cast<size_t>(n));
  if (state_->quit.exchange(false) && bytes.find('q') == std::string::npos) bytes += 'q';
  if (state_->interrupt.exchange(false) && bytes.find('i') == std::string::npos) bytes += 'i';
  return bytes;
}

bool WakeChannel::wait(int timeoutMs) {
  pollfd fd = {state_->fds[0], POLLIN, 0};
  // An interrupted wait counts as a wake-up without a byte: every caller waits in a loop.
  return poll(&fd, 1, timeoutMs) > 0 && (fd.revents & POLLIN) != 0;
}

// ---- Interrupts ---------------------------------------------------------------------------------

namespace {

std::atomic<WakeChannel*> g_interruptChannel{nullptr};
static_assert(std::atomic<WakeChannel*>::is_always_lock_free, "used in a signal handler");
static_assert(std::atomic<bool>::is_always_lock_free, "used in a signal handler");

extern "C" void onInterrupt(int sig) {
  // Only async-signal-safe work here (an atomic store, a write): the main loop sees the byte and
  // quits.
  int saved = errno;
  if (WakeChannel* channel = g_interruptChannel.load()) channel->post(sig == SIGINT ? 'i' : 'q');
  errno = saved;
}

}  // namespace

bool catchInterrupts(WakeChannel& channel, std::string& error) {
  g_interruptChannel.store(&channel);
  struct sigaction sa {};
  sa.sa_handler = onInterrupt;
  sigemptyset(&sa.sa_mask);
  for (int sig : {SIGINT, SIGTERM}) {
    if (sigaction(sig, &sa, nullptr) != 0) {
      error = std::string("cannot catch interrupts: ") + std::strerror(errno);
      return false;
    }
  }
  return true;
}

bool interruptSelf() { return raise(SIGINT) == 0; }

// ---- InputReader: poll on standard input and the channel's read end ---------------------------
//
// At a terminal the line is edited with libedit (emacs keys, history). The editor runs unbuffered:
// el_gets takes one key at a time when poll says one is there, so wake-ups from jobs are seen while
// a line is half typed. The terminal is raw only between prompt() and the end of the line; a command
// runs with the terminal as it was. libedit's own signal handling stays off: it would re-raise
// Ctrl-C to the whole process group and restore modes behind our back.

struct InputReader::State {
  EditLine* editor = nullptr;
  History* history = nullptr;
  std::string prompt;
  std::string historyFile;
  bool editing = false;  // raw mode, prompt and typed text on the screen

  ~State() {
    if (editor != nullptr) {
      if (editing) el_set(editor, EL_UNBUFFERED, 0);
      el_end(editor);
    }
    if (history != nullptr) {
      HistEvent ev;
      if (!historyFile.empty()) ::history(history, &ev, H_SAVE, historyFile.c_str());
      history_end(history);
    }
  }

  void stopEditing() {
    if (editing) el_set(editor, EL_UNBUFFERED, 0);
    editing = false;
  }
};

namespace {

const char* editorPrompt(EditLine* editor) {
  void* data = nullptr;
  el_get(editor, EL_CLIENTDATA, &data);
  return static_cast<InputReader::State*>(data)->prompt.c_str();
}

// $ZORV_HISTORY names the history file (empty: none kept); otherwise ~/.zorv_history.
std::string historyPath() {
  if (const char* set = getenv("ZORV_HISTORY")) return set;
  const char* home = getenv("HOME");
  return home != nullptr && *home != '\0' ? std::string(home) + "/.zorv_history" : "";
}

}  // namespace

InputReader::InputReader(WakeChannel& channel) : channel_(channel), state_(std::make_shared<State>()) {
  const char* term = getenv("TERM");
  if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO) || term == nullptr || std::strcmp(term, "dumb") == 0) {
    return;
  }
  State& s = *state_;
  s.editor = el_init("zorv", stdin, stdout, stderr);
  if (s.editor == nullptr) return;  // the plain reader still works
  s.history = history_init();
  HistEvent ev;
  ::history(s.history, &ev, H_SETSIZE, 1000);
  ::history(s.history, &ev, H_SETUNIQUE, 1);
  s.historyFile = historyPath();
  if (!s.historyFile.empty()) ::history(s.history, &ev, H_LOAD, s.historyFile.c_str());
  el_set(s.editor, EL_CLIENTDATA, &s);
  el_set(s.editor, EL_PROMPT, editorPrompt);
  el_set(s.editor, EL_EDITOR, "emacs");
  el_set(s.editor, EL_HIST, ::history, s.history);
  el_set(s.editor, EL_SIGNAL, 0);
  el_set(s.editor, EL_SAFEREAD, 1);  // an interrupt arrives by the channel, not as a failed read
  el_source(s.editor, nullptr);  // the user's ~/.editrc, as every libedit program reads it
}

InputReader::~InputReader() = default;

bool InputReader::interactive() const { return isatty(STDIN_FILENO) != 0; }

bool InputReader::editing() const { return state_->editor != nullptr; }

void InputReader::prompt(const std::string& text) {
  State& s = *state_;
  s.prompt = text;
  if (!s.editing) {
    el_set(s.editor, EL_UNBUFFERED, 1);  // raw mode, an empty line, the prompt drawn
    s.editing = true;
  } else {
    el_set(s.editor, EL_REFRESH);  // output went over the line: draw prompt and typed text again
  }
}

bool InputReader::discardTypedLine() {
  State& s = *state_;
  if (s.editor == nullptr || !s.editing) return false;
  const LineInfo* line = el_line(s.editor);
  const bool typed = line->lastchar > line->buffer;
  if (typed) {
    s.stopEditing();  // the next prompt starts from an empty line
    static const char kMark[] = "^C\n";
    ssize_t ignored = write(STDOUT_FILENO, kMark, sizeof kMark - 1);
    (void)ignored;
  }
  return typed;
}

InputReader::Result InputReader::next(std::string& data, std::string& error) {
  State& s = *state_;
  for (;;) {
    pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {channel_.state_->fds[0], POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      error = std::string("cannot wait for input: ") + std::strerror(errno);
      return Result::Failed;
    }
    if (fds[1].revents & POLLIN) return Result::Woken;
    if (!(fds[0].revents & (POLLIN | POLLHUP | POLLERR))) continue;
    if (s.editing) {
      int count = 0;
      const char* line = el_gets(s.editor, &count);
      if (line == nullptr || (count == 1 && line[0] == '\x04')) {  // end of input, or Ctrl-D on an empty line
        s.stopEditing();
        return Result::End;
      }
      if (count == 0 || line[count - 1] != '\n') continue;  // a key that edits the line
      std::string entered(line, static_cast<size_t>(count));
      s.stopEditing();
      if (entered.find_first_not_of(" \t\n") != std::string::npos) {
        HistEvent ev;
        ::history(s.history, &ev, H_ENTER, entered.substr(0, entered.size() - 1).c_str());
      }
      data += entered;
      return Result::Data;
    }
    char buf[65536];
    ssize_t got = read(STDIN_FILENO, buf, sizeof buf);
    if (got < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      error = std::string("cannot read input: ") + std::strerror(errno);
      return Result::Failed;
    }
    if (got == 0) return Result::End;
    data.append(buf, static_cast<size_t>(got));
    return Result::Data;
  }
}

// ---- Terminal, files and folders --------------------------------------------------------------

bool standardOutputIsTerminal() { return isatty(STDOUT_FILENO) != 0; }

std::FILE* takeStandardOutput(std::string& error) {
  std::fflush(stdout);
  int fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  if (fd < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    error = std::strerror(errno);
    if (fd >= 0) close(fd);
    return nullptr;
  }
  std::FILE* f = fdopen(fd, "w");
  if (f == nullptr) {
    error = std::strerror(errno);
    close(fd);
  }
  return f;
}

std::FILE* openForWriting(const std::string& path) { return std::fopen(path.c_str(), "we"); }

bool makeTemporaryFolder(std::string& path, std::string& error, const std::string& base) {
  std::string folder = base;
  if (folder.empty()) {
    const char* tmpdir = std::getenv("TMPDIR");
    folder = tmpdir && *tmpdir ? tmpdir : "/tmp";
  }
  std::string pattern = folder + "/zorv-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    error = "cannot create a temporary folder " + pattern + ": " + std::strerror(errno);
    return false;
  }
  path = pattern;
  return true;
}

}  // namespace zorv::platform
