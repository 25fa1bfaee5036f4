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

uint64_t creationTime(HANDLE process) {
  FILETIME created{}, exited{}, kernel{}, user{};
  if (!::GetProcessTimes(process, &created, &exited, &kernel, &user)) return 0;
  return (static_cast<uint64_t>(created.dwHighDateTime) << 32) | created.dwLowDateTime;
}

uint64_t creationTimeOf(DWORD pid) {
  const HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
  if (process == nullptr) return 0;
  const uint64_t created = creationTime(process);
  ::CloseHandle(process);
  return created;
}

std::vector<win32::ProcessEntry> processTable() {
  std::vector<win32::ProcessEntry> table;
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return table;
  PROCESSENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  if (::Process32First(snapshot, &entry)) {
    do {
      table.push_back({entry.th32ProcessID, entry.th32ParentProcessID, 0});
    } while (::Process32Next(snapshot, &entry));
  }
  ::CloseHandle(snapshot);
  for (auto& e : table) e.created = e.id != 0 ? creationTimeOf(e.id) : 0;
  return table;
}

void addSubtree(DWORD pid, uint64_t created, const std::vector<win32::ProcessEntry>& table, std::set<DWORD>& visited,
                std::vector<DWORD>& order) {
  visited.insert(pid);
  for (const auto& e : table) {
    // Id 0 is the idle process, which names itself as its parent.
    if (e.parent != pid || e.id == 0 || visited.count(e.id) != 0) continue;
    if (e.created == 0 || created == 0 || e.created < created) continue;  // a stranger, or unknowable
    addSubtree(e.id, e.created, table, visited, order);
  }
  order.push_back(pid);
}

}  // namespace

namespace win32 {

std::vector<DWORD> treeKillOrder(DWORD root, uint64_t rootCreated, const std::vector<ProcessEntry>& table) {
  std::set<DWORD> visited;
  std::vector<DWORD> order;
  addSubtree(root, rootCreated, table, visited, order);
  return order;
}

}  // namespace win32

namespace {

// The launcher's creation time from the handle startProcess keeps (the id cannot have been
// reused while it is open), else from a fresh query.
uint64_t rootCreationTime(DWORD pid) {
  {
    std::lock_guard<std::mutex> lock(g_processMutex);
    const auto found = g_processes.find(pid);
    if (found != g_processes.end()) return creationTime(found->second.process);
  }
  return creationTimeOf(pid);
}

// Terminates the tree of `pid` and waits, bounded, for what it terminated to be gone:
// TerminateProcess only starts the end, and a killed script may hold its CSV open until then,
// so a deletion right after the kill could fail and leave the partial result behind.
bool killTree(DWORD pid) {
  const std::vector<DWORD> order = win32::treeKillOrder(pid, rootCreationTime(pid), processTable());
  std::vector<HANDLE> ending;
  bool rootTerminated = false;
  for (DWORD id : order) {
    const HANDLE process = ::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id);
    if (process == nullptr) continue;  // one that cannot be ended does not stop the walk
    const BOOL terminated = ::TerminateProcess(process, 1);
    if (id == pid) rootTerminated = terminated != FALSE;
    if (terminated) {
      ending.push_back(process);
    } else {
      ::CloseHandle(process);
    }
  }
  for (HANDLE process : ending) {
    ::WaitForSingleObject(process, 5000);
    ::CloseHandle(process);
  }
  return rootTerminated;
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

CommandLineLimits commandLineLimits() { return {8191, 8191}; }

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
  return killTree(static_cast<DWORD>(pid));
}

}  // namespace genostat::platform
