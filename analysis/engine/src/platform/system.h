// The operating-system calls of the engine and its programs, behind one small interface with a
// POSIX implementation (posix/system.cpp) and a Windows one (win32/system.cpp). Paths are UTF-8 on
// both systems; files are always binary, so the same bytes go in and out everywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace genostat::platform {

// Why a call failed: the kind the engine reacts to, and the system's own words
// ("No such file or directory").
struct SystemError {
  enum class Kind { NotFound, IsFolder, PermissionDenied, Other };
  Kind kind = Kind::Other;
  std::string text;
};

// Descriptors are the C runtime's on both systems; -1 means a failed open.
int openForReading(const std::string& path, SystemError& error);
// Creates or empties `path` for writing.
int createForWriting(const std::string& path, SystemError& error);

// Bytes read (0 at the end) or -1 with `error` filled; interrupted calls are retried.
std::int64_t readSome(int fd, char* buffer, std::size_t capacity, SystemError& error);
bool writeAll(int fd, const char* data, std::size_t size, SystemError& error);
bool closeFile(int fd, SystemError& error);

struct FileKind {
  bool folder = false;
  bool regular = false;
  bool pipe = false;       // a FIFO or an anonymous pipe
  std::uint64_t size = 0;  // of a regular file; 0 for pipes and devices
};
bool describeOpenFile(int fd, FileKind& kind, SystemError& error);

// Tells the system the file will be read from start to end, where it takes such hints.
void adviseSequential(int fd);

// What tells two names of one regular file apart from two files: equal for the same file.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t file = 0;
  bool operator==(const FileIdentity& other) const {
    return device == other.device && file == other.file;
  }
};
// The identity of an existing regular file; nothing for a missing path, a folder or a device.
std::optional<FileIdentity> regularFileIdentity(const std::string& path);

bool removeFile(const std::string& path);

// Memory for tables of a megabyte or more. Where the system has large pages it is asked to back
// the block with them, so filling it costs one page fault per 2 MB instead of one per 4 KB (for a
// multi-megabase read that was a sixth of the run). Throws std::bad_alloc.
void* allocateLarge(std::size_t bytes);
void releaseLarge(void* block, std::size_t bytes);

// The processors this process may run on (its affinity mask where the system has one).
unsigned usableProcessors();

}  // namespace genostat::platform
