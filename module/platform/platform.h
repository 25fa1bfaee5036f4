// The operating system behind one small interface. posix/ and win32/ implement it side by side;
// the build picks one, so no subsystem code needs to know which system it runs on.
#pragma once

#include <cstdint>
#include <string>

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
// root process itself was terminated. Never signals a pid of 1 or below.
bool killProcessTree(int pid);

}  // namespace genostat::platform
