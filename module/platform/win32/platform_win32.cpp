// Windows implementation of the platform interface.
//
// TO BE COMPLETED BY THE WINDOWS ISSUE: this file has not been compiled or run yet. It shows the
// calls each operation is made of, so that the Windows build starts from the same shape as
// posix/; the Windows issue builds it, fixes what the compiler finds and adds its tests.
#include <windows.h>
#include <tlhelp32.h>

#include <atomic>
#include <ctime>
#include <string>

#include "platform/platform.h"

namespace genostat::platform {

namespace {
std::atomic<ClockFunction> g_clock{nullptr};
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
