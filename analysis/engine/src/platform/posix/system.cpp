// The engine's system calls on POSIX systems.
#include "platform/system.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <thread>

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

constexpr std::size_t kLargePage = std::size_t{2} << 20;

std::size_t largeSize(std::size_t bytes) { return (bytes + kLargePage - 1) & ~(kLargePage - 1); }

}  // namespace

int openForReading(const std::string& path, SystemError& error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) error = errorFrom(errno);
  return fd;
}

int createForWriting(const std::string& path, SystemError& error) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) error = errorFrom(errno);
  return fd;
}

std::int64_t readSome(int fd, char* buffer, std::size_t capacity, SystemError& error) {
  for (;;) {
    const ssize_t n = ::read(fd, buffer, capacity);
    if (n >= 0) return n;
    if (errno == EINTR) continue;
    error = errorFrom(errno);
    return -1;
  }
}

bool writeAll(int fd, const char* data, std::size_t size, SystemError& error) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = ::write(fd, data + done, size - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errorFrom(errno);
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

bool closeFile(int fd, SystemError& error) {
  if (::close(fd) == 0) return true;
  error = errorFrom(errno);
  return false;
}

bool describeOpenFile(int fd, FileKind& kind, SystemError& error) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    error = errorFrom(errno);
    return false;
  }
  kind.folder = S_ISDIR(info.st_mode);
  kind.regular = S_ISREG(info.st_mode);
  kind.pipe = S_ISFIFO(info.st_mode);
  kind.size = kind.regular ? static_cast<std::uint64_t>(info.st_size) : 0;
  return true;
}

void adviseSequential(int fd) {
#ifdef POSIX_FADV_SEQUENTIAL
  ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
#else
  (void)fd;
#endif
}

std::optional<FileIdentity> regularFileIdentity(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  return FileIdentity{static_cast<std::uint64_t>(info.st_dev),
                      static_cast<std::uint64_t>(info.st_ino)};
}

bool removeFile(const std::string& path) { return ::unlink(path.c_str()) == 0; }

unsigned usableProcessors() {
#ifdef __linux__
  cpu_set_t set;
  CPU_ZERO(&set);
  if (::sched_getaffinity(0, sizeof set, &set) == 0) {
    return static_cast<unsigned>(CPU_COUNT(&set));
  }
#endif
  return std::thread::hardware_concurrency();
}

void* allocateLarge(std::size_t bytes) {
  // Over-map by one large page and trim both ends, so the block starts on a large-page boundary.
  const std::size_t size = largeSize(bytes);
  if (size < bytes) throw std::bad_alloc();
  void* mapped = ::mmap(nullptr, size + kLargePage, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) throw std::bad_alloc();
  const auto start = reinterpret_cast<std::uintptr_t>(mapped);
  const std::uintptr_t aligned = (start + kLargePage - 1) & ~(std::uintptr_t{kLargePage} - 1);
  if (aligned != start) ::munmap(mapped, aligned - start);
  const std::size_t after = kLargePage - (aligned - start);
  if (after != 0) ::munmap(reinterpret_cast<void*>(aligned + size), after);
  void* block = reinterpret_cast<void*>(aligned);
#ifdef MADV_HUGEPAGE
  ::madvise(block, size, MADV_HUGEPAGE);  // a hint: refused or ignored, small pages still work
#endif
  return block;
}

void releaseLarge(void* block, std::size_t bytes) {
  if (block != nullptr) ::munmap(block, largeSize(bytes));
}

}  // namespace genostat::platform
