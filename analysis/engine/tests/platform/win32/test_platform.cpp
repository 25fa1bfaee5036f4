#include "platform/test_platform.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/win32/wide.h"

namespace genostat::testing {
namespace {

std::wstring wide(const std::string& text) {
  std::wstring out;
  if (!platform::utf8ToWide(text, out)) throw std::runtime_error("not UTF-8: " + text);
  return out;
}

std::string readAll(const std::string& path) {
  std::ifstream in(std::filesystem::u8path(path), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// One argument as the C runtime's command-line parser reads it back: quoted when it holds a
// blank or a quote, quotes escaped, backslashes doubled only before a quote.
std::wstring quoted(const std::wstring& arg) {
  if (!arg.empty() && arg.find_first_of(L" \t\n\v\"") == std::wstring::npos) return arg;
  std::wstring out = L"\"";
  for (auto it = arg.begin();; ++it) {
    std::size_t backslashes = 0;
    while (it != arg.end() && *it == L'\\') {
      ++it;
      ++backslashes;
    }
    if (it == arg.end()) {
      out.append(backslashes * 2, L'\\');
      break;
    }
    if (*it == L'"') {
      out.append(backslashes * 2 + 1, L'\\');
    } else {
      out.append(backslashes, L'\\');
    }
    out.push_back(*it);
  }
  out.push_back(L'"');
  return out;
}

class Handle {
 public:
  explicit Handle(HANDLE handle = INVALID_HANDLE_VALUE) : handle_(handle) {}
  ~Handle() {
    if (valid()) ::CloseHandle(handle_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  bool valid() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
  HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

HANDLE inheritable(const std::wstring& name, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES security{};
  security.nLength = sizeof security;
  security.bInheritHandle = TRUE;
  return ::CreateFileW(name.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &security,
                       disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

class ExclusivelyOpenFile final : public UnreadableFile {
 public:
  explicit ExclusivelyOpenFile(HANDLE handle) : handle_(handle) {}

 private:
  Handle handle_;
};

class NamedPipe final : public SlowPipe {
 public:
  NamedPipe(std::string text, std::size_t pause, std::chrono::milliseconds delay) {
    static std::atomic<unsigned> made{0};
    path_ = "\\\\.\\pipe\\genostat-slow-" + std::to_string(::GetCurrentProcessId()) + "-" +
            std::to_string(made++) + ".fastq";
    pipe_ = ::CreateNamedPipeW(wide(path_).c_str(), PIPE_ACCESS_OUTBOUND,
                               PIPE_TYPE_BYTE | PIPE_WAIT, 1, 1 << 16, 1 << 16, 0, nullptr);
    if (pipe_ == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot make " + path_);
    writer_ = std::thread([this, text = std::move(text), pause, delay] {
      // Waits for the reader (a reader that came first is reported as ERROR_PIPE_CONNECTED).
      if (::ConnectNamedPipe(pipe_, nullptr) == 0 && ::GetLastError() != ERROR_PIPE_CONNECTED) {
        return;
      }
      send(text.substr(0, pause));
      std::this_thread::sleep_for(delay);
      send(text.substr(pause));
      ::FlushFileBuffers(pipe_);
      ::CloseHandle(pipe_);  // the reader sees the end
      pipe_ = INVALID_HANDLE_VALUE;
    });
  }
  ~NamedPipe() override {
    writer_.join();
    if (pipe_ != INVALID_HANDLE_VALUE) ::CloseHandle(pipe_);
  }
  const std::string& path() const override { return path_; }

 private:
  void send(const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
      DWORD written = 0;
      const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(bytes.size() - done, 1 << 16));
      if (::WriteFile(pipe_, bytes.data() + done, chunk, &written, nullptr) == 0) return;
      done += written;
    }
  }

  std::string path_;
  HANDLE pipe_ = INVALID_HANDLE_VALUE;
  std::thread writer_;
};

}  // namespace

ProgramOutcome runProgram(const std::string& program, const std::vector<std::string>& args,
                          const std::string& scratchFolder) {
  const std::string outPath = scratchFolder + "\\program-stdout";
  const std::string errPath = scratchFolder + "\\program-stderr";
  std::wstring commandLine = quoted(wide(program));
  for (const std::string& arg : args) commandLine += L" " + quoted(wide(arg));
  Handle in(inheritable(L"NUL", GENERIC_READ, OPEN_EXISTING));
  Handle out(inheritable(wide(outPath), GENERIC_WRITE, CREATE_ALWAYS));
  Handle err(inheritable(wide(errPath), GENERIC_WRITE, CREATE_ALWAYS));
  if (!in.valid() || !out.valid() || !err.valid()) {
    throw std::runtime_error("cannot make the output files in " + scratchFolder);
  }
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = in.get();
  startup.hStdOutput = out.get();
  startup.hStdError = err.get();
  PROCESS_INFORMATION process{};
  const std::wstring application = wide(program);
  if (::CreateProcessW(application.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0,
                       nullptr, nullptr, &startup, &process) == 0) {
    throw std::runtime_error("cannot start " + program);
  }
  Handle thread(process.hThread);
  Handle child(process.hProcess);
  ::WaitForSingleObject(child.get(), INFINITE);
  DWORD code = 0;
  ProgramOutcome outcome;
  if (::GetExitCodeProcess(child.get(), &code) != 0) outcome.code = static_cast<int>(code);
  outcome.out = readAll(outPath);
  outcome.err = readAll(errPath);
  return outcome;
}

bool isRunnableFile(const std::string& path) {
  const DWORD attributes = ::GetFileAttributesW(wide(path).c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return false;
  }
  std::string extension = std::filesystem::u8path(path).extension().u8string();
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return extension == ".exe";
}

// The C runtime keeps its own copy of the environment, which getenv reads: changed through it.
void setEnvironment(const std::string& name, const std::string& value) {
  if (value.empty()) throw std::invalid_argument("an empty value would remove " + name);
  if (::_putenv((name + "=" + value).c_str()) != 0) throw std::runtime_error("_putenv failed");
}

void unsetEnvironment(const std::string& name) {
  if (::_putenv((name + "=").c_str()) != 0) throw std::runtime_error("_putenv failed");
}

std::unique_ptr<UnreadableFile> makeUnreadable(const std::string& path) {
  const HANDLE handle = ::CreateFileW(wide(path).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot open " + path);
  return std::make_unique<ExclusivelyOpenFile>(handle);
}

std::unique_ptr<SlowPipe> slowPipe(const std::string& /*folder*/, const std::string& text,
                                   std::size_t pause, std::chrono::milliseconds delay) {
  return std::make_unique<NamedPipe>(text, pause, delay);
}

}  // namespace genostat::testing
