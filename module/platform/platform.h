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

// Whole seconds since 1970-01-01 UTC.
int64_t currentTimeSeconds();

// Terminates `pid` and every process descended from it, children before parents. True when the
// root process itself was terminated. Never signals a pid of 1 or below.
bool killProcessTree(int pid);

}  // namespace genostat::platform
