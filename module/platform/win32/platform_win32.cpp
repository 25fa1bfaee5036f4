// Windows implementation of the platform interface.
//
// TO BE COMPLETED BY THE WINDOWS ISSUE: this file has not been compiled or run yet. It shows the
// calls each operation is made of, so that the Windows build starts from the same shape as
// posix/; the Windows issue builds it, fixes what the compiler finds and adds its tests.
#include <windows.h>
#include <tlhelp32.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace genostat::platform {

namespace {
std::atomic<ClockFunction> g_clock{nullptr};

// Process handles of started analyses, by id. An open handle keeps the ended process's id from
// being reused, which is what lets the caller forget the id before reapProcess closes the handle.
std::mutex g_processMutex;
std::map<DWORD, HANDLE> g_processes;

// One byte becomes one UTF-16 unit, taken as a signed 8-bit value: ASCII maps to itself, bytes
// 0x80 to 0xFF become 0xFF80 to 0xFFFF. No code-page conversion, on purpose.
std::wstring widenBytes(const std::string& text) {
  std::wstring wide;
  wide.reserve(text.size());
  for (const char c : text) {
    wide.push_back(static_cast<wchar_t>(static_cast<int16_t>(static_cast<signed char>(c))));
  }
  return wide;
}
}  // namespace

PathAttributes pathAttributes(const std::string& path) {
  PathAttributes attributes;
  const DWORD flags = ::GetFileAttributesA(path.c_str());
  if (flags != INVALID_FILE_ATTRIBUTES) {
    attributes.exists = true;
    attributes.directory = (flags & FILE_ATTRIBUTE_DIRECTORY) != 0;
  }
  return attributes;
}

InputFileCheck checkInputFile(const std::string& utf8Path) {
  // UTF-8 to UTF-16 with the system's converter; an empty or unconvertible path cannot be opened.
  const int units = ::MultiByteToWideChar(CP_UTF8, 0, utf8Path.c_str(), -1, nullptr, 0);
  if (units <= 0) return InputFileCheck::CannotOpen;
  std::wstring wide(static_cast<size_t>(units), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, utf8Path.c_str(), -1, wide.data(), units);
  // A folder fails here: opening one needs FILE_FLAG_BACKUP_SEMANTICS.
  const HANDLE file = ::CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return InputFileCheck::CannotOpen;
  LARGE_INTEGER size{};
  const BOOL sized = ::GetFileSizeEx(file, &size);
  ::CloseHandle(file);
  return (sized && size.QuadPart > 0) ? InputFileCheck::Readable : InputFileCheck::EmptyOrNoSize;
}

int64_t currentTimeSeconds() {
  const ClockFunction clock = g_clock.load();
  return clock != nullptr ? clock() : static_cast<int64_t>(::_time64(nullptr));
}

ClockFunction setClock(ClockFunction clock) { return g_clock.exchange(clock); }

char pathSeparator() { return '\\'; }

std::string launcherFileName() { return "statisticspython3.bat"; }

int startProcess(const std::string& program, const std::vector<std::string>& args) {
  // Every argument in double quotes, one blank between, nothing escaped.
  std::wstring commandLine = L"\"" + widenBytes(program) + L"\"";
  for (const std::string& arg : args) commandLine += L" \"" + widenBytes(arg) + L"\"";
  std::vector<wchar_t> buffer(commandLine.begin(), commandLine.end());
  buffer.push_back(L'\0');  // CreateProcessW may write into its command line

  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION info{};
  // No inherited handles; the host's environment and current folder.
  if (!::CreateProcessW(nullptr, buffer.data(), nullptr, nullptr, FALSE,
                        CREATE_NEW_PROCESS_GROUP | CREATE_UNICODE_ENVIRONMENT, nullptr, nullptr, &startup,
                        &info)) {
    return -1;
  }
  ::CloseHandle(info.hThread);
  // Still to be checked by the Windows issue: whether a missing batch file makes CreateProcessW
  // fail (then the job is dropped silently, as the run does for -1) or reaches cmd.exe, whose exit
  // code then tells of it.
  std::lock_guard<std::mutex> lock(g_processMutex);
  g_processes[info.dwProcessId] = info.hProcess;
  return static_cast<int>(info.dwProcessId);
}

int waitForExitKeepingId(int pid) {
  HANDLE process = nullptr;
  {
    std::lock_guard<std::mutex> lock(g_processMutex);
    const auto found = g_processes.find(static_cast<DWORD>(pid));
    if (found == g_processes.end()) return -1;
    process = found->second;
  }
  ::WaitForSingleObject(process, INFINITE);
  DWORD code = 0;
  ::GetExitCodeProcess(process, &code);
  return static_cast<int>(code);
}

void reapProcess(int pid) {
  std::lock_guard<std::mutex> lock(g_processMutex);
  const auto found = g_processes.find(static_cast<DWORD>(pid));
  if (found == g_processes.end()) return;
  ::CloseHandle(found->second);
  g_processes.erase(found);
}

bool killProcessTree(int pid) {
  // 0 is the idle process, its own parent in the snapshot: the walk would never end.
  if (pid <= 1) return false;
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return false;
  PROCESSENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  if (!::Process32First(snapshot, &entry)) {
    ::CloseHandle(snapshot);
    return false;
  }
  do {
    // Children first, each with a snapshot of its own; a child that cannot be ended is skipped.
    if (entry.th32ParentProcessID == static_cast<DWORD>(pid)) {
      killProcessTree(static_cast<int>(entry.th32ProcessID));
    }
  } while (::Process32Next(snapshot, &entry));
  ::CloseHandle(snapshot);

  const HANDLE process = ::OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(pid));
  if (process == nullptr) return false;
  const BOOL terminated = ::TerminateProcess(process, 1);
  ::CloseHandle(process);
  return terminated != FALSE;
}

}  // namespace genostat::platform
