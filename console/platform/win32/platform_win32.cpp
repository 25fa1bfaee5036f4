// zorv's system layer on Windows: LoadLibraryW beside zorv.exe, an event for wake-ups, a console
// control handler for Ctrl-C, a reader thread for standard input (pipes cannot be waited on).
#include "platform/platform.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>

#include "utf16.h"

namespace zorv::platform {

namespace {

std::string systemMessage(DWORD code) {
  wchar_t* text = nullptr;
  DWORD n = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                               FORMAT_MESSAGE_IGNORE_INSERTS,
                           nullptr, code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::string message;
  if (n > 0 && text != nullptr) message = narrow(std::wstring(text, n));
  if (text != nullptr) LocalFree(text);
  while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == ' ' ||
                              message.back() == '.')) {
    message.pop_back();
  }
  return message.empty() ? "system error " + std::to_string(code) : message;
}

// The folder of the running program, with a trailing separator.
std::wstring programFolderWide() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    DWORD n = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (n == 0) return L"";
    if (n < path.size()) {
      path.resize(n);
      break;
    }
    path.resize(path.size() * 2);
  }
  return path.substr(0, path.find_last_of(L"\\/") + 1);
}

}  // namespace

const char* moduleFileName() { return "zorvwgnm.dll"; }

std::string programFolder() { return narrow(programFolderWide()); }

void* loadModule(const std::string& file, std::string& error) {
  // By full path, never through the search path: the copy beside zorv.exe is the one it links.
  std::wstring path = programFolderWide() + widen(file);
  HMODULE module = LoadLibraryW(path.c_str());
  if (module == nullptr) {
    error = "cannot load " + narrow(path) + ": " + systemMessage(GetLastError());
  }
  return reinterpret_cast<void*>(module);
}

void* findFunction(void* module, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

// ---- WakeChannel: bytes under a lock, a manual-reset event set while any is pending ------------

struct WakeChannel::State {
  std::mutex mutex;
  std::string pending;
  HANDLE event = nullptr;
};

WakeChannel::WakeChannel() : state_(std::make_unique<State>()) {
  state_->event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (state_->event == nullptr) {
    throw std::runtime_error("cannot create an event: " + systemMessage(GetLastError()));
  }
}

WakeChannel::~WakeChannel() { CloseHandle(state_->event); }

void WakeChannel::post(char byte) {
  std::lock_guard<std::mutex> lock(state_->mutex);
  // The event is set exactly while bytes are pending (take resets it under the same lock).
  if (state_->pending.empty()) SetEvent(state_->event);
  // Wake-ups beyond a few thousand carry nothing new; a request to quit is always kept.
  if (byte == 'q' || state_->pending.size() < 4096) state_->pending += byte;
}

std::string WakeChannel::take() {
  std::lock_guard<std::mutex> lock(state_->mutex);
  std::string bytes;
  bytes.swap(state_->pending);
  ResetEvent(state_->event);
  return bytes;
}

bool WakeChannel::wait(int timeoutMs) {
  DWORD limit = timeoutMs < 0 ? INFINITE : static_cast<DWORD>(timeoutMs);
  return WaitForSingleObject(state_->event, limit) == WAIT_OBJECT_0;
}

// ---- Interrupts ---------------------------------------------------------------------------------

namespace {

std::atomic<WakeChannel*> g_interruptChannel{nullptr};

// Runs on a thread the system creates for the event.
BOOL WINAPI onControl(DWORD type) {
  if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT) return FALSE;  // closing: the default
  WakeChannel* channel = g_interruptChannel.load();
  if (channel == nullptr) return FALSE;
  channel->post('q');
  return TRUE;
}

}  // namespace

bool catchInterrupts(WakeChannel& channel, std::string& error) {
  g_interruptChannel.store(&channel);
  if (!SetConsoleCtrlHandler(onControl, TRUE)) {
    error = "cannot catch interrupts: " + systemMessage(GetLastError());
    return false;
  }
  return true;
}

bool interruptSelf() {
  if (GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) return true;
  // No console to raise it in (a program started with pipes only): the system would call the
  // handler with this event, so call it the same way, on a thread of its own.
  std::thread([] { onControl(CTRL_C_EVENT); }).join();
  return true;
}

// ---- InputReader: a detached thread reads standard input into a shared buffer -----------------

struct InputReader::State {
  std::mutex mutex;
  std::string data;
  bool ended = false;
  std::string failure;  // non-empty: reading failed
  HANDLE event = nullptr;  // manual reset; set while data or the end waits to be taken
  HANDLE input = INVALID_HANDLE_VALUE;
  bool console = false;
  bool started = false;

  ~State() {
    if (event != nullptr) CloseHandle(event);
  }

  void deliver(const std::string& bytes, bool end, const std::string& why) {
    std::lock_guard<std::mutex> lock(mutex);
    data += bytes;
    ended = ended || end;
    if (failure.empty()) failure = why;
    SetEvent(event);
  }
};

namespace {

// Reads until the input ends. A console gives UTF-16, converted here; anything else gives bytes.
void readInput(std::shared_ptr<InputReader::State> state) {
  wchar_t highSurrogate = 0;
  for (;;) {
    if (state->console) {
      wchar_t wide[4096];
      DWORD got = 0;
      if (!ReadConsoleW(state->input, wide, 4096, &got, nullptr)) {
        state->deliver("", true, "cannot read input: " + systemMessage(GetLastError()));
        return;
      }
      if (got == 0) {
        // Ctrl-C while reading ends the read with nothing; the interrupt comes by the channel.
        if (GetLastError() == ERROR_OPERATION_ABORTED) continue;
        state->deliver("", true, "");
        return;
      }
      std::wstring text;
      if (highSurrogate != 0) text += highSurrogate;
      text.append(wide, got);
      highSurrogate = 0;
      if (text.back() >= 0xD800 && text.back() <= 0xDBFF) {  // its pair comes with the next read
        highSurrogate = text.back();
        text.pop_back();
      }
      // Ctrl-Z at the start of a line ends console input, as in every console program.
      size_t ctrlZ = text.find(L'\x1a');
      bool end = ctrlZ != std::wstring::npos && (ctrlZ == 0 || text[ctrlZ - 1] == L'\n');
      if (end) text.erase(ctrlZ);
      state->deliver(narrow(text), end, "");
      if (end) return;
    } else {
      char buf[65536];
      DWORD got = 0;
      if (!ReadFile(state->input, buf, sizeof buf, &got, nullptr)) {
        DWORD code = GetLastError();
        bool end = code == ERROR_BROKEN_PIPE || code == ERROR_HANDLE_EOF;
        state->deliver("", true, end ? "" : "cannot read input: " + systemMessage(code));
        return;
      }
      if (got == 0) {
        state->deliver("", true, "");
        return;
      }
      state->deliver(std::string(buf, got), false, "");
    }
  }
}

}  // namespace

InputReader::InputReader(WakeChannel& channel) : channel_(channel), state_(std::make_shared<State>()) {
  state_->event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  state_->input = GetStdHandle(STD_INPUT_HANDLE);
  DWORD mode = 0;
  state_->console = state_->input != nullptr && state_->input != INVALID_HANDLE_VALUE &&
                    GetConsoleMode(state_->input, &mode) != 0;
}

// The reader thread may be blocked in a read that nothing can end; it holds its own reference to
// the state and goes with the process.
InputReader::~InputReader() = default;

bool InputReader::interactive() const { return state_->console; }

// The Windows console edits lines itself (arrows, F7 history) before ReadConsoleW returns them.
bool InputReader::editing() const { return false; }
void InputReader::prompt(const std::string&) {}
bool InputReader::discardTypedLine() { return false; }

InputReader::Result InputReader::next(std::string& data, std::string& error) {
  if (state_->event == nullptr) {
    error = "cannot wait for input: no event";
    return Result::Failed;
  }
  if (!state_->started) {
    state_->started = true;
    if (state_->input == nullptr || state_->input == INVALID_HANDLE_VALUE) {
      state_->deliver("", true, "");  // no standard input at all: an empty one
    } else {
      try {
        std::thread(readInput, state_).detach();
      } catch (const std::system_error& e) {
        error = std::string("cannot read input: ") + e.what();
        return Result::Failed;
      }
    }
  }
  for (;;) {
    if (WaitForSingleObject(channel_.state_->event, 0) == WAIT_OBJECT_0) return Result::Woken;
    {
      std::lock_guard<std::mutex> lock(state_->mutex);
      if (!state_->data.empty()) {
        data += state_->data;
        state_->data.clear();
        if (!state_->ended) ResetEvent(state_->event);
        return Result::Data;
      }
      if (!state_->failure.empty()) {
        error = state_->failure;
        return Result::Failed;
      }
      if (state_->ended) return Result::End;
    }
    HANDLE handles[2] = {channel_.state_->event, state_->event};
    DWORD r = WaitForMultipleObjects(2, handles, FALSE, INFINITE);
    if (r != WAIT_OBJECT_0 && r != WAIT_OBJECT_0 + 1) {
      error = "cannot wait for input: " + systemMessage(GetLastError());
      return Result::Failed;
    }
  }
}

// ---- Terminal, files and folders --------------------------------------------------------------

bool standardOutputIsTerminal() {
  HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  if (out == nullptr || out == INVALID_HANDLE_VALUE || !GetConsoleMode(out, &mode)) return false;
  // The status line needs "erase to end of line": a console without escape sequences gets none.
  if (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) return true;
  return SetConsoleMode(out, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

std::FILE* takeStandardOutput(std::string& error) {
  std::fflush(stdout);
  int fd = _dup(_fileno(stdout));
  if (fd < 0 || _dup2(_fileno(stderr), _fileno(stdout)) != 0) {
    error = std::strerror(errno);
    if (fd >= 0) _close(fd);
    return nullptr;
  }
  // Children started later write to standard error too, and must not hold the events' pipe open.
  SetStdHandle(STD_OUTPUT_HANDLE, GetStdHandle(STD_ERROR_HANDLE));
  SetHandleInformation(reinterpret_cast<HANDLE>(_get_osfhandle(fd)), HANDLE_FLAG_INHERIT, 0);
  _setmode(fd, _O_BINARY);
  std::FILE* f = _fdopen(fd, "wb");
  if (f == nullptr) {
    error = std::strerror(errno);
    _close(fd);
  }
  return f;
}

std::FILE* openForWriting(const std::string& path) {
  std::wstring wide = widen(path);
  if (wide.empty()) {
    errno = path.empty() ? ENOENT : EINVAL;
    return nullptr;
  }
  int fd = _wopen(wide.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY | _O_NOINHERIT,
                  _S_IREAD | _S_IWRITE);
  if (fd < 0) return nullptr;
  std::FILE* f = _fdopen(fd, "wb");
  if (f == nullptr) {
    int saved = errno;
    _close(fd);
    errno = saved;
  }
  return f;
}

bool makeTemporaryFolder(std::string& path, std::string& error, const std::string& folder) {
  std::error_code ec;
  std::filesystem::path base =
      folder.empty() ? std::filesystem::temp_directory_path(ec) : std::filesystem::u8path(folder);
  if (ec) {
    error = "cannot find the temporary folder: " + ec.message();
    return false;
  }
  std::random_device seed;
  std::mt19937 random(seed() ^ GetCurrentProcessId());
  const wchar_t digits[] = L"0123456789abcdefghijklmnopqrstuvwxyz";
  std::filesystem::path candidate;
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::wstring name = L"zorv-";
    for (int i = 0; i < 6; ++i) name += digits[random() % 36];
    candidate = base / name;
    if (CreateDirectoryW(candidate.c_str(), nullptr)) {
      path = narrow(candidate.wstring());
      return true;
    }
    if (GetLastError() != ERROR_ALREADY_EXISTS) break;
  }
  error = "cannot create a temporary folder " + narrow(candidate.wstring()) + ": " +
          systemMessage(GetLastError());
  return false;
}

}  // namespace zorv::platform
