// Windows-only parts of starting an analysis that tests need to see: the command line as it is
// built, and a replaceable process creator, so a test can check the exact arguments of the
// creation call and still let it go ahead. Included by win32 sources and tests only.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace genostat::platform::win32 {

// One byte becomes one UTF-16 unit, taken as a signed 8-bit value: ASCII maps to itself, bytes
// 0x80 to 0xFF become 0xFF80 to 0xFFFF. No code-page conversion, on purpose.
std::wstring widenBytes(const std::string& bytes);

// `"program" "arg1" "arg2"`: every part widened byte by byte and put in double quotes, one blank
// between, nothing escaped, nothing after the last quote.
std::wstring buildCommandLine(const std::string& program, const std::vector<std::string>& args);

// The signature of CreateProcessW, through which startProcess creates its processes.
using ProcessCreator = BOOL(WINAPI*)(LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES process,
                                     LPSECURITY_ATTRIBUTES thread, BOOL inheritHandles, DWORD flags,
                                     LPVOID environment, LPCWSTR currentFolder, LPSTARTUPINFOW startup,
                                     LPPROCESS_INFORMATION information);
// Replaces the creator (null: CreateProcessW again) and returns the one it replaced. Thread-safe.
ProcessCreator setProcessCreator(ProcessCreator creator);

// One process of a Toolhelp snapshot, with its creation time (FILETIME ticks; 0 when it could not
// be read, e.g. the process has ended or may not be queried).
struct ProcessEntry {
  DWORD id = 0;
  DWORD parent = 0;
  uint64_t created = 0;
};

// The ids to terminate for the tree of `root`, children before their parent, siblings in table
// order, `root` last. Windows never updates the parent id of a process whose parent has ended,
// and ids are reused fast: an entry that names a process as its parent but was created before
// it is a stranger (the child of an earlier holder of that id) and is left out with its subtree;
// so is an entry whose creation time is unknown. The root's own time comes from the caller.
std::vector<DWORD> treeKillOrder(DWORD root, uint64_t rootCreated, const std::vector<ProcessEntry>& table);

}  // namespace genostat::platform::win32
