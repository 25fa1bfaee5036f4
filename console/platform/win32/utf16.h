// UTF-8 inside zorv, UTF-16 at the Windows API (used by the win32 files only).
#pragma once

#include <windows.h>

#include <string>

namespace zorv::platform {

// Empty for an empty text and for one that is not valid UTF-8.
inline std::wstring widen(const std::string& text) {
  if (text.empty()) return {};
  int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()),
                              nullptr, 0);
  if (n <= 0) return {};
  std::wstring wide(static_cast<size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()),
                      wide.data(), n);
  return wide;
}

inline std::string narrow(const std::wstring& wide) {
  if (wide.empty()) return {};
  int n = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0,
                              nullptr, nullptr);
  if (n <= 0) return {};
  std::string text(static_cast<size_t>(n), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text.data(), n, nullptr,
                      nullptr);
  return text;
}

}  // namespace zorv::platform
