#include "platform/files.h"

#include <sys/stat.h>

#include <cerrno>
#include <string>

namespace zorvhost::platform {

std::FILE* openFile(const std::string& path, const char* mode) {
  std::FILE* f = std::fopen(path.c_str(), (std::string(mode) + "e").c_str());
  if (f == nullptr) return nullptr;
  // Reading a folder opens fine here and fails only at the first read: refuse it now, as Windows
  // does.
  struct stat st;
  if (fstat(fileno(f), &st) == 0 && S_ISDIR(st.st_mode)) {
    std::fclose(f);
    errno = EISDIR;
    return nullptr;
  }
  return f;
}

char folderSeparator() { return '/'; }

}  // namespace zorvhost::platform
