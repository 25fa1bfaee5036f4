// What the engine's tests need from the operating system, with a POSIX and a Windows
// implementation (platform/posix, platform/win32): a file this process may not read.
#pragma once

#include <memory>
#include <string>

namespace genostat::testing {

// Keeps an existing file unreadable for this process while it lives: mode 0 on POSIX, an open
// that shares nothing on Windows (as when another program holds the file).
class UnreadableFile {
 public:
  virtual ~UnreadableFile() = default;
};
// Nothing when this system cannot deny the file to this process (on POSIX, running as root).
std::unique_ptr<UnreadableFile> makeUnreadable(const std::string& path);

}  // namespace genostat::testing
