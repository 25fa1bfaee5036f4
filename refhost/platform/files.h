// Files named by UTF-8 paths, opened the same way on every system: binary, not inherited by the
// analysis processes the module starts. One implementation per system, in posix/ and win32/.
#pragma once

#include <cstdio>
#include <string>

namespace zorvhost::platform {

// Opens `path` for reading ("rb") or writing ("wb"). Null with errno set on failure; a folder is
// refused with EISDIR on every system.
std::FILE* openFile(const std::string& path, const char* mode);

// The system's own separator of folders in a path: '/' on POSIX, '\\' on Windows.
char folderSeparator();

}  // namespace zorvhost::platform
