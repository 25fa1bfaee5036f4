// Helpers for the module's Windows-only tests.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>

namespace mt {

// The folder that holds the test program, the stand-in analysis and the tests' launcher.
std::filesystem::path testProgramFolder();

inline std::string utf8Of(const std::wstring& wide) {
  if (wide.empty()) return std::string();
  const int size = ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0,
                                         nullptr, nullptr);
  std::string out(static_cast<size_t>(size), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), out.data(), size, nullptr, nullptr);
  return out;
}

// Ends `pid` if it still runs; for clean-up after a test that failed half way.
inline void terminateIfRunning(int pid) {
  if (pid <= 0) return;
  const HANDLE process = ::OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(pid));
  if (process == nullptr) return;
  ::TerminateProcess(process, 1);
  ::CloseHandle(process);
}

}  // namespace mt
