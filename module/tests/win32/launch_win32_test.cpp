// Starting the analysis on Windows: the command line as built and as the launcher receives it,
// the creation call's flags, the byte-wise widening of paths, and what the stand-in finds itself in.
#include <rapidjson/document.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "module_test_support.h"
#include "platform/platform.h"
#include "platform/win32/process_win32.h"
#include "win32_test_support.h"

namespace mt {
namespace {

namespace platform = genostat::platform;
namespace win32 = genostat::platform::win32;
namespace fs = std::filesystem;

std::string standIn() { return (testProgramFolder() / "standin-analysis.exe").u8string(); }

// ---- the command line and the creation call ---------------------------------------------------

TEST(CommandLine, ThreeQuotedPartsNothingEscapedNothingAfter) {
  EXPECT_EQ(win32::buildCommandLine("C:\\z\\statisticspython3.bat", {"C:\\z\\scripts\\genostat.pyc", "eyJh+/Q=="}),
            L"\"C:\\z\\statisticspython3.bat\" \"C:\\z\\scripts\\genostat.pyc\" \"eyJh+/Q==\"");
  EXPECT_EQ(win32::buildCommandLine("a b\"c", {""}), L"\"a b\"c\" \"\"") << "a quote inside is passed as it stands";
}

TEST(CommandLine, WideningIsByteWiseNotACodePageConversion) {
  // ASCII maps to itself; every byte above 0x7F becomes one unit 0xFF80..0xFFFF, so the UTF-8 of
  // "ä" (C3 A4) becomes two units, not U+00E4.
  EXPECT_EQ(win32::widenBytes(std::string("A\x7f\x80\xc3\xa4\xff", 6)),
            (std::wstring{L'A', wchar_t(0x7F), wchar_t(0xFF80), wchar_t(0xFFC3), wchar_t(0xFFA4), wchar_t(0xFFFF)}));
  EXPECT_EQ(win32::widenBytes(""), L"");
}

struct CreateCall {
  int calls = 0;
  bool applicationNull = false;
  std::wstring commandLine;
  bool securityNull = false;
  BOOL inherit = TRUE;
  DWORD flags = 0;
  bool environmentNull = false;
  bool folderNull = false;
  STARTUPINFOW startup{};
};
CreateCall g_call;
bool g_refuse = false;

BOOL WINAPI recordingCreator(LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES process,
                             LPSECURITY_ATTRIBUTES thread, BOOL inherit, DWORD flags, LPVOID environment,
                             LPCWSTR folder, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION information) {
  ++g_call.calls;
  g_call.applicationNull = application == nullptr;
  g_call.commandLine = commandLine;
  g_call.securityNull = process == nullptr && thread == nullptr;
  g_call.inherit = inherit;
  g_call.flags = flags;
  g_call.environmentNull = environment == nullptr;
  g_call.folderNull = folder == nullptr;
  g_call.startup = *startup;
  if (g_refuse) {
    ::SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
  }
  return ::CreateProcessW(application, commandLine, process, thread, inherit, flags, environment, folder, startup,
                          information);
}

class CreatorScope {
 public:
  explicit CreatorScope(bool refuse) : previous_(win32::setProcessCreator(&recordingCreator)) {
    g_call = CreateCall{};
    g_refuse = refuse;
  }
  ~CreatorScope() { win32::setProcessCreator(previous_); }
  CreatorScope(const CreatorScope&) = delete;
  CreatorScope& operator=(const CreatorScope&) = delete;

 private:
  win32::ProcessCreator previous_;
};

TEST(StartProcess, NewGroupUnicodeEnvironmentNothingInheritedHostsEnvironmentAndFolder) {
  int pid = -1;
  {
    CreatorScope scope(false);
    pid = platform::startProcess(standIn(), {"--exit", "7"});
  }
  ASSERT_GT(pid, 0);
  EXPECT_EQ(platform::waitForExitKeepingId(pid), 7);
  EXPECT_EQ(platform::waitForExitKeepingId(pid), 7) << "the handle stays open until reaped";
  platform::reapProcess(pid);
  EXPECT_EQ(platform::waitForExitKeepingId(pid), -1);

  ASSERT_EQ(g_call.calls, 1);
  EXPECT_TRUE(g_call.applicationNull) << "the launcher comes from the command line";
  EXPECT_EQ(g_call.commandLine, L"\"" + fs::u8path(standIn()).wstring() + L"\" \"--exit\" \"7\"");
  EXPECT_TRUE(g_call.securityNull);
  EXPECT_EQ(g_call.inherit, FALSE);
  EXPECT_EQ(g_call.flags, static_cast<DWORD>(CREATE_NEW_PROCESS_GROUP | CREATE_UNICODE_ENVIRONMENT));
  EXPECT_EQ(g_call.flags, 0x600u);
  EXPECT_TRUE(g_call.environmentNull) << "the host's environment is inherited";
  EXPECT_TRUE(g_call.folderNull) << "the host's current folder";
  EXPECT_EQ(g_call.startup.cb, sizeof(STARTUPINFOW));
  EXPECT_EQ(g_call.startup.dwFlags, 0u);
  EXPECT_EQ(g_call.startup.lpDesktop, nullptr);
  EXPECT_EQ(g_call.startup.hStdOutput, nullptr);
}

TEST(StartProcess, FailedCreationGivesNoProcess) {
  {
    CreatorScope scope(true);
    EXPECT_EQ(platform::startProcess(standIn(), {"--exit", "0"}), -1);
  }
  EXPECT_EQ(platform::startProcess((testProgramFolder() / "no-such-program.exe").u8string(), {}), -1);
  for (int id : {-1, 0}) {
    EXPECT_EQ(platform::waitForExitKeepingId(id), -1);
    platform::reapProcess(id);  // nothing to release, nothing happens
  }
}

// ---- the analysis process as the launcher and the stand-in see it -----------------------------

class LaunchTest : public RunTest {
 protected:
  // The lines the tests' launcher recorded: each the command line cmd.exe handed it.
  std::vector<std::string> received(const std::string& installFolder) {
    std::istringstream in(readAll(installFolder + "/launcher-received.txt"));
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(in, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      lines.push_back(line);
    }
    return lines;
  }
  std::string echoPlan(const std::string& name, const std::string& extra = "") {
    return plan(R"({"echo":")" + scratch_.file(name + ".json") + R"(","rows":1)" + extra + "}");
  }
  rapidjson::Document echoed(const std::string& name) {
    rapidjson::Document report;
    report.Parse(readAll(scratch_.file(name + ".json")).c_str());
    return report;
  }
  std::string base() const { return hostPath(installDir_) + "\\"; }
};

TEST_F(LaunchTest, LauncherReceivesExactlyThreeQuotedArgumentsWithThePayloadIntact) {
  // Custom sequences of six lengths make parameter texts of every length modulo 3, so several
  // payloads end in '=' padding, which cmd.exe would take for a separator outside quotes.
  const std::vector<std::string> names = {"a", "b", "c", "d", "e", "f"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    GenoJobSettings* settings = job(names[i], echoPlan(names[i]));
    settings->adapterType = AdapterType::CUSTOM;
    settings->customAdapterSequence = std::string(i, 'A');
    queue(settings);
  }
  ASSERT_TRUE(client_.waitForEnds(names.size(), 60.0));

  const std::vector<std::string> lines = received(installDir_);
  ASSERT_EQ(lines.size(), names.size());
  const std::string prefix =
      "\"" + base() + "statisticspython3.bat\" \"" + base() + "scripts\\genostat.pyc\" \"";
  int padded = 0;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string& line = lines[i];
    ASSERT_EQ(line.rfind(prefix, 0), 0u) << line;
    ASSERT_EQ(line.back(), '"') << "nothing after the third argument: " << line;
    const std::string payload = line.substr(prefix.size(), line.size() - prefix.size() - 1);
    EXPECT_TRUE(std::regex_match(payload, std::regex("[A-Za-z0-9+/]+={0,2}"))) << payload;
    EXPECT_EQ(payload.size() % 4, 0u) << payload;
    if (payload.back() == '=') ++padded;

    // The stand-in got the same two arguments, and the payload decodes to what it was sent.
    const rapidjson::Document report = echoed(names[i]);
    ASSERT_TRUE(report.IsObject()) << names[i];
    ASSERT_EQ(report["argv"].Size(), 2u);
    EXPECT_EQ(std::string(report["argv"][0].GetString()), base() + "scripts\\genostat.pyc");
    EXPECT_EQ(std::string(report["argv"][1].GetString()), payload);
    rapidjson::Document params;
    params.Parse(decodeBase64(payload).c_str());
    ASSERT_TRUE(params.IsObject()) << payload;
    EXPECT_TRUE(params == report["params"]);
    EXPECT_EQ(std::string(params["fastq_data"][0]["custom_sequence"].GetString()), std::string(i, 'A'));
  }
  EXPECT_GE(padded, 2);
}

TEST_F(LaunchTest, ScriptOutsideTheScriptsFolderIsTheFallback) {
  fs::remove_all(fs::u8path(installDir_));
  install(installDir_, Launcher::Runs, /*scriptInScripts=*/false);
  queue(job("fallback", echoPlan("fallback")));
  ASSERT_TRUE(client_.waitForEnds(1));
  const rapidjson::Document report = echoed("fallback");
  ASSERT_TRUE(report.IsObject());
  EXPECT_EQ(std::string(report["argv"][0].GetString()), base() + "genostat.pyc");
}

TEST_F(LaunchTest, ScriptRunsUnderTheStoredLauncherWithTheHostsEnvironmentAndFolder) {
  // A value no code page but UTF-16 holds, set for the host process only.
  ASSERT_TRUE(::SetEnvironmentVariableW(L"GENOSTAT_TEST_MARK", L"gr\u00fc\u00dfe \u65e5\u672c \u2713"));
  queue(job("env", echoPlan("env", R"(,"ready":")" + scratch_.file("ready") + R"(","sleep":0.5)")));
  ASSERT_TRUE(ready());
  const int32_t launcher = Peer::processId(*manager_);
  ASSERT_TRUE(client_.waitForEnds(1));
  ::SetEnvironmentVariableW(L"GENOSTAT_TEST_MARK", nullptr);

  const rapidjson::Document report = echoed("env");
  ASSERT_TRUE(report.IsObject());
  EXPECT_EQ(std::string(report["mark"].GetString()), "gr\xc3\xbc\xc3\x9f" "e \xe6\x97\xa5\xe6\x9c\xac \xe2\x9c\x93");
  wchar_t folder[MAX_PATH] = {};
  ::GetCurrentDirectoryW(MAX_PATH, folder);
  EXPECT_EQ(std::string(report["cwd"].GetString()), utf8Of(folder));
  // The stored id is the launcher's (cmd.exe running the batch file), the stand-in's parent.
  EXPECT_GT(launcher, 0);
  EXPECT_EQ(report["ppid"].GetInt64(), launcher);
  EXPECT_EQ(Peer::processId(*manager_), -1) << "an ended job's id must not reach a later kill";
  EXPECT_TRUE(processGone(launcher));
}

TEST_F(LaunchTest, InstallFolderIsWidenedByteByByte) {
  // The host's folder arrives as UTF-8 bytes; the launch widens each byte on its own, so the
  // launcher is looked for in the folder whose name holds the widened units, not in "instä".
  const std::string bytes = "inst\xc3\xa4";
  const std::wstring widened = L"inst\uffc3\uffa4";
  const std::string widenedFolder = utf8Of(fs::u8path(scratch_.path()).wstring() + L"\\" + widened);
  install(widenedFolder, Launcher::Runs);
  const std::string hostBase = hostPath(scratch_.path()) + "\\" + bytes + "\\";
  zorvhost::setInstallPath(hostBase);

  queue(job("widened", echoPlan("widened")));
  ASSERT_TRUE(client_.waitForEnds(1)) << "the launcher in the widened folder ran";
  const rapidjson::Document report = echoed("widened");
  ASSERT_TRUE(report.IsObject());
  // The script check asks the ANSI file API with the bytes as they are, which finds nothing
  // there, so the fallback path goes out, widened like the launcher.
  EXPECT_EQ(std::string(report["argv"][0].GetString()), utf8Of(win32::widenBytes(hostBase + "genostat.pyc")));
  EXPECT_NE(client_.ends()[0].message.find("MESSAGE=100."), std::string::npos);
}

TEST_F(LaunchTest, InstallFolderInProperUtf16IsNotFound) {
  // Only "instä" exists: the widened name is not there, CreateProcessW fails and the job is
  // dropped without a word, as a job that cannot start always is.
  install(utf8Of(fs::u8path(scratch_.path()).wstring() + L"\\inst\u00e4"), Launcher::Runs);
  zorvhost::setInstallPath(hostPath(scratch_.path()) + "\\inst\xc3\xa4\\");
  queue(job("proper", echoPlan("proper")));
  ASSERT_TRUE(client_.waitForStarted("proper"));
  ASSERT_TRUE(workerIdle());
  EXPECT_TRUE(client_.ends().empty());
  EXPECT_FALSE(exists(scratch_.file("proper.json")));
  EXPECT_FALSE(manager_->isJobPendingOrRunning("proper"));
}

TEST_F(LaunchTest, MissingLauncherDropsTheJobAndTheNextRuns) {
  fs::remove(fs::u8path(installDir_ + "/statisticspython3.bat"));
  queue(job("no launcher", echoPlan("none")));
  ASSERT_TRUE(client_.waitForStarted("no launcher"));
  ASSERT_TRUE(workerIdle());
  EXPECT_TRUE(client_.ends().empty());

  install(installDir_, Launcher::Runs);
  queue(job("launcher back", echoPlan("back")));
  ASSERT_TRUE(client_.waitForEnds(1));
  EXPECT_EQ(client_.ends()[0].jobName, "launcher back");
}

}  // namespace
}  // namespace mt
