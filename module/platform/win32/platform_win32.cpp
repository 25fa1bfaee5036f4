// Windows implementation of the platform interface: attribute queries with the ANSI file API, the
// input-file check through UTF-16, the clock, the analysis process and the Toolhelp tree kill.
#include <windows.h>
#include <tlhelp32.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/win32/process_win32.h"

namespace genostat::platform {

namespace {

std::atomic<ClockFunction> g_clock{nullptr};
std::atomic<win32::ProcessCreator> g_creator{nullptr};

// What startProcess keeps of a started analysis until reapProcess. The open process handle keeps
// the ended process's id from being given to another process, which is what lets the caller
// forget the id before the handle is closed.
struct Started {
  HANDLE process = nullptr;
  HANDLE thread = nullptr;
};
std::mutex g_processMutex;
std::map<DWORD, Started> g_processes;

// Depth-first, children before their parent, siblings in snapshot order. Parent ids in a snapshot
// can be stale: a parent that ended may have its id reused by one of its descendants, so the
// links can form a loop. `visited` keeps the walk from entering any id twice.
bool killTree(DWORD pid, std::set<DWORD>& visited) {
  visited.insert(pid);
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return false;
  PROCESSENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  if (!::Process32First(snapshot, &entry)) {
    ::CloseHandle(snapshot);
    return false;
  }
  do {
    // Id 0 is the idle process, which names itself as its parent.
    if (entry.th32ParentProcessID == pid && entry.th32ProcessID != 0 && visited.count(entry.th32ProcessID) == 0) {
      killTree(entry.th32ProcessID, visited);  // a child that cannot be ended does not stop the walk
    }
  } while (::Process32Next(snapshot, &entry));
  ::CloseHandle(snapshot);

  const HANDLE process = ::OpenProcess(PROCESS_TERMINATE, FALSE, pid);
  if (process == nullptr) return false;
  const BOOL terminated = ::TerminateProcess(process, 1);
  ::CloseHandle(process);
  return terminated != FALSE;
}

}  // namespace

namespace win32 {

std::wstring widenBytes(const std::string& bytes) {
  std::wstring wide;
  wide.reserve(bytes.size());
  for (const char c : bytes) {
    wide.push_back(static_cast<wchar_t>(static_cast<int16_t>(static_cast<signed char>(c))));
  }
  return wide;
}

std::wstring buildCommandLine(const std::string& program, const std::vector<std::string>& args) {
  std::wstring line = L"\"" + widenBytes(program) + L"\"";
  for (const std::string& arg : args) line += L" \"" + widenBytes(arg) + L"\"";
  return line;
}

ProcessCreator setProcessCreator(ProcessCreator creator) { return g_creator.exchange(creator); }

}  // namespace win32

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
  // The user's file names arrive as UTF-8: only a proper conversion finds non-ASCII names.
  const int units = ::MultiByteToWideChar(CP_UTF8, 0, utf8Path.c_str(), -1, nullptr, 0);
  if (units <= 0) return InputFileCheck::CannotOpen;
  std::wstring wide(static_cast<size_t>(units), L'\0');
  if (::MultiByteToWideChar(CP_UTF8, 0, utf8Path.c_str(), -1, wide.data(), units) <= 0) {
    return InputFileCheck::CannotOpen;
  }
  // A folder fails here, as it should: opening one needs FILE_FLAG_BACKUP_SEMANTICS.
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
  const std::wstring line = win32::buildCommandLine(program, args);
  std::vector<wchar_t> buffer(line.begin(), line.end());
  buffer.push_back(L'\0');  // CreateProcessW may write into its command line

  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION info{};
  const win32::ProcessCreator replaced = g_creator.load();
  const win32::ProcessCreator create = replaced != nullptr ? replaced : &::CreateProcessW;
  // The launcher is taken from the command line; no inherited handles; the host's environment and
  // current folder.
  if (!create(nullptr, buffer.data(), nullptr, nullptr, FALSE, CREATE_NEW_PROCESS_GROUP | CREATE_UNICODE_ENVIRONMENT,
              nullptr, nullptr, &startup, &info)) {
    return -1;
  }
  std::lock_guard<std::mutex> lock(g_processMutex);
  g_processes[info.dwProcessId] = Started{info.hProcess, info.hThread};
  return static_cast<int>(info.dwProcessId);
}

int waitForExitKeepingId(int pid) {
  if (pid <= 0) return -1;
  HANDLE process = nullptr;
  {
    std::lock_guard<std::mutex> lock(g_processMutex);
    const auto found = g_processes.find(static_cast<DWORD>(pid));
    if (found == g_processes.end()) return -1;
    process = found->second.process;
  }
  ::WaitForSingleObject(process, INFINITE);
  DWORD code = 0;
  ::GetExitCodeProcess(process, &code);
  return static_cast<int>(code);
}

void reapProcess(int pid) {
  if (pid <= 0) return;
  Started started;
  {
    std::lock_guard<std::mutex> lock(g_processMutex);
    const auto found = g_processes.find(static_cast<DWORD>(pid));
    if (found == g_processes.end()) return;
    started = found->second;
    g_processes.erase(found);
  }
  // The process handle first, then the thread's.
  ::CloseHandle(started.process);
  ::CloseHandle(started.thread);
}

bool killProcessTree(int pid) {
  // Ids are never negative on Windows; -1 is "no process yet", 0 the idle process.
  if (pid <= 0) return false;
  std::set<DWORD> visited;
  return killTree(static_cast<DWORD>(pid), visited);
}

}  // namespace genostat::platform
