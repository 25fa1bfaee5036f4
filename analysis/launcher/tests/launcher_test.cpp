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

std::wstring wide(const std::string& utf8) { return fs::u8path(utf8).wstring(); }

// The folder of the test, its stand-in python.exe, and the environment the launcher runs in.
class Launcher : public ::testing::Test {
 protected:
  void SetUp() override {
    std::mt19937_64 random(std::random_device{}());
    folder_ = fs::temp_directory_path() /
              fs::u8path("genostat launcher \xC3\xA4 " + std::to_string(random()));
    fs::create_directories(folder_ / "python home");
    fs::copy_file(fs::u8path(GENOSTAT_FAKE_PYTHON), folder_ / "python home" / "python.exe");
    oldPath_ = variable(L"PATH");
    set(L"PATH", (folder_ / "python home").wstring() + L";" + oldPath_);
    set(L"GENOSTAT_FAKE_PYTHON_LOG", (folder_ / "arguments.txt").wstring());
  }
  void TearDown() override {
    set(L"PATH", oldPath_);
    ::SetEnvironmentVariableW(L"GENOSTAT_FAKE_PYTHON_LOG", nullptr);
    ::SetEnvironmentVariableW(L"GENOSTAT_FAKE_PYTHON_EXIT", nullptr);
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }

  static std::wstring variable(const wchar_t* name) {
    std::wstring value(32768, L'\0');
    const DWORD length = ::GetEnvironmentVariableW(name, value.data(), 32768);
    value.resize(length < 32768 ? length : 0);
    return value;
  }
  static void set(const wchar_t* name, const std::wstring& value) {
    ASSERT_NE(::SetEnvironmentVariableW(name, value.c_str()), 0);
  }

  // Starts the launcher with `commandLine` and returns its exit code.
  static DWORD launch(std::wstring commandLine) {
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

  // The module's command line: the launcher, the compiled script and the payload, each quoted.
  static std::wstring moduleCommandLine(const std::wstring& script, const std::string& payload) {
    return L"\"" + wide(GENOSTAT_LAUNCHER) + L"\" \"" + script + L"\" \"" + wide(payload) + L"\"";
  }

  std::vector<std::string> recordedArguments() const {
    std::ifstream in(folder_ / "arguments.txt", std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  fs::path folder_;
  std::wstring oldPath_;
};

// A payload with every base64 letter cmd.exe might take apart: '+', '/' and '=' padding.
const std::string kPayload = "eyJmYXN0cV9kYXRhIjpbeyJhZGFwdGVyIjoiTk9ORSJ9XX0+/w+/Zm9v/==";

TEST_F(Launcher, PassesArgumentsIntactAndPythonsExitCode) {
  // A script path with blanks and letters outside every single-byte code page.
  const fs::path script = folder_ / fs::u8path("install dir \xE6\x97\xA5\xE6\x9C\xAC") /
                          "scripts" / "genostat.pyc";
  for (const DWORD code : {0ul, 1ul, 7ul, 13ul, 255ul}) {
    SCOPED_TRACE(code);
    fs::remove(folder_ / "arguments.txt");
    set(L"GENOSTAT_FAKE_PYTHON_EXIT", std::to_wstring(code));
    EXPECT_EQ(launch(moduleCommandLine(script.wstring(), kPayload)), code);
    const std::vector<std::string> expected{script.u8string(), kPayload};
    EXPECT_EQ(recordedArguments(), expected);
  }
}

TEST_F(Launcher, FailsWhenNoPythonIsOnThePath) {
  set(L"PATH", oldPath_);
  set(L"GENOSTAT_FAKE_PYTHON_EXIT", L"0");
  const DWORD code = launch(moduleCommandLine(L"C:\\nowhere\\genostat.pyc", kPayload));
  EXPECT_NE(code, 0u);
  EXPECT_FALSE(fs::exists(folder_ / "arguments.txt"));
}

TEST(LauncherFile, HasWindowsLineEnds) {
  std::ifstream in(fs::u8path(GENOSTAT_LAUNCHER), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  const std::string bat = text.str();
  ASSERT_FALSE(bat.empty());
  std::size_t lines = 0;
  for (std::size_t at = bat.find('\n'); at != std::string::npos; at = bat.find('\n', at + 1)) {
    EXPECT_TRUE(at > 0 && bat[at - 1] == '\r') << "line " << lines + 1 << " ends in a bare LF";
    ++lines;
  }
  EXPECT_GE(lines, 2u);
  EXPECT_NE(bat.find("exit /b %ERRORLEVEL%"), std::string::npos);
}

}  // namespace
