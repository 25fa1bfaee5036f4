// Stands in for python.exe in the launcher's tests: writes each argument it was given (UTF-8, one
// per line) to the file named by GENOSTAT_FAKE_PYTHON_LOG and exits with the code in
// GENOSTAT_FAKE_PYTHON_EXIT.
#include <windows.h>

#include <cstdlib>
#include <string>

namespace {

std::wstring environment(const wchar_t* name) {
  wchar_t value[32768];
  const DWORD length = ::GetEnvironmentVariableW(name, value, 32768);
  return length == 0 || length >= 32768 ? std::wstring() : std::wstring(value, length);
}

std::string utf8(const std::wstring& text) {
  if (text.empty()) return std::string();
  const int size = static_cast<int>(text.size());
  const int length =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<std::size_t>(length), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, out.data(), length, nullptr, nullptr);
  return out;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  std::string log;
  for (int i = 1; i < argc; ++i) log += utf8(argv[i]) + "\n";
  const HANDLE file = ::CreateFileW(environment(L"GENOSTAT_FAKE_PYTHON_LOG").c_str(),
                                    GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return 120;
  DWORD written = 0;
  const BOOL ok = ::WriteFile(file, log.data(), static_cast<DWORD>(log.size()), &written, nullptr);
  ::CloseHandle(file);
  if (ok == 0 || written != log.size()) return 121;
  return std::wcstol(environment(L"GENOSTAT_FAKE_PYTHON_EXIT").c_str(), nullptr, 10);
}
