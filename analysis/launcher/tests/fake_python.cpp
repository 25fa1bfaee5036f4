// Stands in for python.exe in the launcher's tests: writes each argument it was given (UTF-8, one
// per line) to the file named by GENOSTAT_FAKE_PYTHON_LOG and exits with the code in
// GENOSTAT_FAKE_PYTHON_EXIT.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int wmain(int argc, wchar_t** argv) {
  FILE* log = ::_wfopen(::_wgetenv(L"GENOSTAT_FAKE_PYTHON_LOG"), L"wb");
  if (log == nullptr) return 120;
  for (int i = 1; i < argc; ++i) {
    char utf8[32768];
    const int n = ::WideCharToMultiByte(CP_UTF8, 0, argv[i], -1, utf8, sizeof utf8, nullptr, nullptr);
    std::fprintf(log, "%s\n", n > 0 ? utf8 : "(not convertible)");
  }
  std::fclose(log);
  return std::wcstol(::_wgetenv(L"GENOSTAT_FAKE_PYTHON_EXIT"), nullptr, 10);
}
