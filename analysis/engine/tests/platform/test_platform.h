// What the engine's tests need from the operating system, with a POSIX and a Windows
// implementation (platform/posix, platform/win32): running a program with its output captured,
// the environment, a file this process may not read, and a pipe that delivers its text slowly.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace genostat::testing {

struct ProgramOutcome {
  int code = -1;  // the exit code; -1 when the program did not end normally
  std::string out;
  std::string err;
};

// Runs `program` (UTF-8 path) with `args`, standard input empty, its standard output and error
// captured through files made in `scratchFolder`; waits for it to end.
ProgramOutcome runProgram(const std::string& program, const std::vector<std::string>& args,
                          const std::string& scratchFolder);

// Whether `path` names a file this system would run as a program.
bool isRunnableFile(const std::string& path);

void setEnvironment(const std::string& name, const std::string& value);
void unsetEnvironment(const std::string& name);

// Keeps an existing file unreadable for this process while it lives: mode 0 on POSIX, an open
// that shares nothing on Windows (as when another program holds the file).
class UnreadableFile {
 public:
  virtual ~UnreadableFile() = default;
};
// Nothing when this system cannot deny the file to this process (on POSIX, running as root).
std::unique_ptr<UnreadableFile> makeUnreadable(const std::string& path);

// A pipe the engine opens by name (a FIFO in `folder` on POSIX, a named pipe on Windows). Once
// opened it receives `text` up to `pause`, then nothing for `delay`, then the rest, then its end.
class SlowPipe {
 public:
  virtual ~SlowPipe() = default;
  virtual const std::string& path() const = 0;
};
std::unique_ptr<SlowPipe> slowPipe(const std::string& folder, const std::string& text,
                                   std::size_t pause, std::chrono::milliseconds delay);

}  // namespace genostat::testing
