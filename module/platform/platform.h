// The operating system behind one small interface. posix/ and win32/ implement it side by side;
// the build picks one, so no subsystem code needs to know which system it runs on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace genostat::platform {

// What the system says about a path (byte string, passed to the system unchanged).
struct PathAttributes {
  bool exists = false;
  bool directory = false;
};
PathAttributes pathAttributes(const std::string& path);

// The JOB subcommand's check of one input file (UTF-8 path): open for reading, query the size.
enum class InputFileCheck {
  Readable,          // opened, size known and above zero
  CannotOpen,        // missing, not permitted, or a folder (refused as the Windows open would)
  EmptyOrNoSize,     // opened, but its size is zero or cannot be queried
};
InputFileCheck checkInputFile(const std::string& utf8Path);

// Whole seconds since 1970-01-01 UTC, from the system clock or from the clock set below.
int64_t currentTimeSeconds();

// Replaces the clock that currentTimeSeconds reads (null: the system clock again) and returns the
// one it replaced. Lets tests pin the time stamp that result file names are made of. Thread-safe.
using ClockFunction = int64_t (*)();
ClockFunction setClock(ClockFunction clock);

// The separator joinPath inserts between a folder and a name: '\\' on Windows, '/' on POSIX,
// where a backslash is an ordinary character of a file name.
char pathSeparator();

// Terminates `pid` and every process descended from it, children before parents. True when the
// root process itself was terminated. Ids of 0 and below are refused (on POSIX 1 as well, init).
bool killProcessTree(int pid);

// ---- analysis processes ----

// The host's Python launcher in its installation folder: "statisticspython3" on POSIX (a script
// that starts the interpreter), "statisticspython3.bat" on Windows.
std::string launcherFileName();

// What a launch's command line may hold on this system, in bytes of the arguments as the module
// passes them: the longest single argument, and the whole line (program, arguments, their quotes
// and blanks). POSIX limits each argument (Linux: 32 pages less the terminating NUL); Windows'
// cmd.exe, which runs the .bat launcher, limits the whole line to 8,191 characters.
struct CommandLineLimits {
  size_t argument;
  size_t line;
};
CommandLineLimits commandLineLimits();

// Starts `program` with `args` as its arguments, without a shell, as the leader of a new process
// group, inheriting the caller's environment, working folder and standard streams and no other
// handle or file descriptor. Returns the child's process id, or -1 when no child could be created.
// On POSIX a program that cannot be executed (missing, not executable) still yields a child, which
// ends at once with exit code 127, as a shell would: the failure surfaces as that exit code.
int startProcess(const std::string& program, const std::vector<std::string>& args);

// Waits without a time limit until the child `pid` of startProcess has ended and returns its exit
// code; an end by a signal counts as 128 plus the signal number. The ended child keeps holding its
// process id (it is not reaped), so nothing else can be given that id until reapProcess: whoever
// stores the id can forget it first. -1 when `pid` is no such child.
int waitForExitKeepingId(int pid);

// Releases the ended child `pid` after waitForExitKeepingId; its id may be reused from then on.
void reapProcess(int pid);

}  // namespace genostat::platform
