// The programs' common entry: the system's own entry point (main on POSIX, wmain on Windows, in
// posix/ and win32/program_entry.cpp) calls programMain with the command line in UTF-8, the
// program's name first, after putting the standard streams into binary mode where the system
// has a text mode, so a program writes the same bytes everywhere.
#pragma once

#include <string>
#include <vector>

namespace genostat {

// Defined once by each program.
int programMain(const std::vector<std::string>& args);

}  // namespace genostat
