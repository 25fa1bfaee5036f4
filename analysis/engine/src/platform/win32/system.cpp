// The engine's system calls on Windows: C runtime descriptors opened from UTF-16 names, always in
// binary mode (no line-end translation), never inherited by child processes.
#include "platform/system.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <algorithm>
#include <bitset>
#include <cerrno>
#include <climits>
#include <cstring>
#include <thread>

#include "platform/win32/wide.h"

namespace genostat::platform {
namespace {

SystemError errorFrom(int code) {
  SystemError error;
  error.text = std::strerror(code);
  if (code == ENOENT || code == ENOTDIR) {
    error.kind = SystemError::Kind::NotFound;
  } else if (code == EISDIR) {
    error.kind = SystemError::Kind::IsFolder;
  } else if (code == EACCES || code == EPERM) {
    error.kind = SystemError::Kind::PermissionDenied;
  }
  return error;
}

// Windows refuses to open a folder as a file with "access denied": told apart here, so a folder
// is reported as one rather than as a permission problem.
SystemError openError(const std::wstring& name, int code) {
  if (code == EACCES) {
    const DWORD attributes = ::GetFileAttributesW(name.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      return errorFrom(EISDIR);
    }
  }
  return errorFrom(code);
}

SystemError notUtf8() {
  SystemError error;
  error.kind = SystemError::Kind::NotFound;
  error.text = "the file name is not valid UTF-8";
  return error;
}

int openWide(const std::string& path, int flags, SystemError& error) {
  std::wstring name;
  if (!utf8ToWide(path, name)) {
    error = notUtf8();
    return -1;
  }
  const int fd = ::_wopen(name.c_str(), flags | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
  if (fd < 0) error = openError(name, errno);
  return fd;
}

}  // namespace

int openForReading(const std::string& path, SystemError& error) {
  return openWide(path, _O_RDONLY, error);
}

int createForWriting(const std::string& path, SystemError& error) {
  return openWide(path, _O_WRONLY | _O_CREAT | _O_TRUNC, error);
}

std::int64_t readSome(int fd, char* buffer, std::size_t capacity, SystemError& error) {
  const unsigned chunk = static_cast<unsigned>(std::min<std::size_t>(capacity, INT_MAX));
  const int n = ::_read(fd, buffer, chunk);
  if (n >= 0) return n;
  error = errorFrom(errno);
  return -1;
}

bool writeAll(int fd, const char* data, std::size_t size, SystemError& error) {
  std::size_t done = 0;
  while (done < size) {
    const unsigned chunk = static_cast<unsigned>(std::min<std::size_t>(size - done, 1u << 30));
    const int n = ::_write(fd, data + done, chunk);
    if (n < 0) {
      error = errorFrom(errno);
      return false;
    }
    if (n == 0) {  // the runtime says nothing was written without an error: a full device
      error = errorFrom(ENOSPC);
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

bool closeFile(int fd, SystemError& error) {
  if (::_close(fd) == 0) return true;
  error = errorFrom(errno);
  return false;
}

bool describeOpenFile(int fd, FileKind& kind, SystemError& error) {
  struct _stat64 info {};
  if (::_fstat64(fd, &info) != 0) {
    error = errorFrom(errno);
    return false;
  }
  kind.folder = (info.st_mode & _S_IFMT) == _S_IFDIR;
  kind.regular = (info.st_mode & _S_IFMT) == _S_IFREG;
  kind.pipe = (info.st_mode & _S_IFMT) == _S_IFIFO;
  kind.size = kind.regular ? static_cast<std::uint64_t>(info.st_size) : 0;
  return true;
}

void adviseSequential(int /*fd*/) {}

std::optional<FileIdentity> regularFileIdentity(const std::string& path) {
  std::wstring name;
  if (!utf8ToWide(path, name)) return std::nullopt;
  // No access asked for: only the file's metadata is read, whoever holds the file open.
  const HANDLE handle = ::CreateFileW(name.c_str(), 0,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return std::nullopt;
  BY_HANDLE_FILE_INFORMATION info{};
  const bool known = ::GetFileType(handle) == FILE_TYPE_DISK &&
                     ::GetFileInformationByHandle(handle, &info) != 0 &&
                     (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  ::CloseHandle(handle);
  if (!known) return std::nullopt;
  return FileIdentity{info.dwVolumeSerialNumber,
                      (static_cast<std::uint64_t>(info.nFileIndexHigh) << 32) | info.nFileIndexLow};
}

bool removeFile(const std::string& path) {
  std::wstring name;
  return utf8ToWide(path, name) && ::DeleteFileW(name.c_str()) != 0;
}

unsigned usableProcessors() {
  DWORD_PTR process = 0;
  DWORD_PTR system = 0;
  if (::GetProcessAffinityMask(::GetCurrentProcess(), &process, &system) != 0 && process != 0) {
    return static_cast<unsigned>(std::bitset<sizeof(DWORD_PTR) * CHAR_BIT>(process).count());
  }
  return std::thread::hardware_concurrency();
}

// Large pages need a privilege ordinary users lack on Windows: the C++ heap is as good.
void* allocateLarge(std::size_t bytes) { return ::operator new(bytes); }

void releaseLarge(void* block, std::size_t /*bytes*/) { ::operator delete(block); }

}  // namespace genostat::platform
