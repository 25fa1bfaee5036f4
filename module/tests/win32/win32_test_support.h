// Helpers for the module's Windows-only tests and their stand-in analysis program.
#pragma once

#include <windows.h>
#include <tlhelp32.h>

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

inline std::wstring wideOf(const std::string& text) {
  if (text.empty()) return std::wstring();
  const int size = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring out(static_cast<size_t>(size), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), size);
  return out;
}

// Standard base64, as the module encodes the parameter JSON; '=' padding ends the data.
inline std::string decodeBase64(const std::string& text) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  unsigned value = 0;
  int bits = 0;
  for (const char c : text) {
    const size_t index = alphabet.find(c);
    if (index == std::string::npos) break;
    value = (value << 6) | static_cast<unsigned>(index);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((value >> bits) & 0xFF));
    }
  }
  return out;
}

// The parent id a process snapshot shows for `pid`, or 0.
inline DWORD parentOf(DWORD pid) {
  DWORD parent = 0;
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return 0;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = ::Process32FirstW(snapshot, &entry); more; more = ::Process32NextW(snapshot, &entry)) {
    if (entry.th32ProcessID == pid) parent = entry.th32ParentProcessID;
  }
  ::CloseHandle(snapshot);
  return parent;
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
