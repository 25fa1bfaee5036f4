#include "platform/files.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace zorvhost::platform {

namespace {

// Empty for a text that is not valid UTF-8.
std::wstring widen(const std::string& text) {
  if (text.empty()) return {};
  int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()),
                              nullptr, 0);
  if (n <= 0) return {};
  std::wstring wide(static_cast<size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()),
                      wide.data(), n);
  return wide;
}

}  // namespace

std::FILE* openFile(const std::string& path, const char* mode) {
  const bool write = std::strchr(mode, 'w') != nullptr;
  std::wstring wide = widen(path);
  if (wide.empty()) {
    errno = path.empty() ? ENOENT : EINVAL;
    return nullptr;
  }
  DWORD attributes = GetFileAttributesW(wide.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
    errno = EISDIR;  // the system would say "permission denied"
    return nullptr;
  }
  int flags = _O_BINARY | _O_NOINHERIT | (write ? _O_WRONLY | _O_CREAT | _O_TRUNC : _O_RDONLY);
  int fd = _wopen(wide.c_str(), flags, _S_IREAD | _S_IWRITE);
  if (fd < 0) return nullptr;
  std::FILE* f = _fdopen(fd, write ? "wb" : "rb");
  if (f == nullptr) {
    int saved = errno;
    _close(fd);
    errno = saved;
  }
  return f;
}

char folderSeparator() { return '\\'; }

}  // namespace zorvhost::platform
