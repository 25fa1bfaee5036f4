#include "platform/win32/wide.h"

#include <windows.h>

namespace genostat::platform {

bool utf8ToWide(const std::string& text, std::wstring& wide) {
  wide.clear();
  if (text.empty()) return true;
  if (text.size() > 0x7fffffff) return false;
  const int size = static_cast<int>(text.size());
  const int length =
      ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
  if (length <= 0) return false;
  wide.resize(static_cast<std::size_t>(length));
  if (::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, wide.data(),
                            length) != length) {
    wide.clear();
    return false;
  }
  return true;
}

std::string wideToUtf8(const std::wstring& wide) {
  if (wide.empty() || wide.size() > 0x7fffffff) return std::string();
  const int size = static_cast<int>(wide.size());
  const int length =
      ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
  if (length <= 0) return std::string();
  std::string text(static_cast<std::size_t>(length), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, text.data(), length, nullptr, nullptr);
  return text;
}

}  // namespace genostat::platform
