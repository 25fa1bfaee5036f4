// Windows-only parts of starting an analysis that tests need to see: the command line as it is
// built, and a replaceable process creator, so a test can check the exact arguments of the
// creation call and still let it go ahead. Included by win32 sources and tests only.
#pragma once

#include <windows.h>

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

}  // namespace genostat::platform::win32
