// statisticspython3.bat as the module starts it: the .bat itself as the program, its two arguments
// quoted. A stand-in python.exe first on the PATH records what arrives and picks the exit code.
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Starts `commandLine` and returns its exit code.
DWORD launch(std::wstring commandLine) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE,
                       CREATE_UNICODE_ENVIRONMENT, nullptr, nullptr, &startup, &process) == 0) {
    ADD_FAILURE() << "CreateProcessW failed: " << ::GetLastError();
    return 0xffffffff;
  }
  ::WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 0xffffffff;
  ::GetExitCodeProcess(process.hProcess, &code);
  ::CloseHandle(process.hThread);
  ::CloseHandle(process.hProcess);
  return code;
}

TEST(Launcher, PassesArgumentsIntactAndPythonsExitCodeOrFailsWithoutPython) {
  const fs::path folder = fs::temp_directory_path() /
                          fs::u8path("genostat launcher \xC3\xA4 " + std::to_string(std::random_device{}()));
  fs::create_directories(folder / "python home");
  fs::copy_file(fs::u8path(GENOSTAT_FAKE_PYTHON), folder / "python home" / "python.exe");
  const std::wstring path = _wgetenv(L"PATH");  // the process's own, untouched by the test
  const fs::path log = folder / "arguments.txt";
  ::SetEnvironmentVariableW(L"GENOSTAT_FAKE_PYTHON_LOG", log.wstring().c_str());
  // A script path with blanks and letters outside every single-byte code page; a payload with
  // every base64 letter cmd.exe might take apart: '+', '/' and '=' padding.
  const fs::path script = folder / fs::u8path("install dir \xE6\x97\xA5\xE6\x9C\xAC") / "genostat.pyc";
  const std::string payload = "eyJmYXN0cV9kYXRhIjpbeyJhZGFwdGVyIjoiTk9ORSJ9XX0+/w+/Zm9v/==";
  const std::wstring commandLine = L"\"" + fs::u8path(GENOSTAT_LAUNCHER).wstring() + L"\" \"" +
                                   script.wstring() + L"\" \"" + fs::u8path(payload).wstring() + L"\"";
  for (const DWORD code : {0ul, 7ul, 255ul}) {
    fs::remove(log);
    ::SetEnvironmentVariableW(L"GENOSTAT_FAKE_PYTHON_EXIT", std::to_wstring(code).c_str());
    ::SetEnvironmentVariableW(L"PATH", ((folder / "python home").wstring() + L";" + path).c_str());
    EXPECT_EQ(launch(commandLine), code);
    std::ifstream in(log, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str(), script.u8string() + "\n" + payload + "\n");
  }
  ::SetEnvironmentVariableW(L"PATH", path.c_str());
  fs::remove(log);
  EXPECT_NE(launch(commandLine), 0u);
  EXPECT_FALSE(fs::exists(log));
  fs::remove_all(folder);
}

TEST(Launcher, FileHasWindowsLineEndsAndPassesTheExitCode) {
  std::ifstream in(fs::u8path(GENOSTAT_LAUNCHER), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  const std::string bat = text.str();
  for (std::size_t at = bat.find('\n'); at != std::string::npos; at = bat.find('\n', at + 1)) {
    EXPECT_TRUE(at > 0 && bat[at - 1] == '\r') << "a bare LF at byte " << at;
  }
  EXPECT_NE(bat.find("exit /b %ERRORLEVEL%\r\n"), std::string::npos);
}

}  // namespace
