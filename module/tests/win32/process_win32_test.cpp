// Starting and stopping the analysis on Windows: the command line as built and as cmd.exe hands it
// on, the creation call, and the Toolhelp tree kill over live processes and over stale parent ids.
#include "platform/win32/process_win32.h"

#include <regex>
#include <sstream>

#include "module_test_support.h"

namespace mt {

std::filesystem::path testProgramFolder();  // fixture_win32.cpp

namespace {

namespace platform = genostat::platform;
namespace win32 = genostat::platform::win32;

std::string standIn() { return (testProgramFolder() / "standin-analysis.exe").u8string(); }

TEST(CommandLine, QuotedPartsNothingEscapedAndBytesWidenedOneByOne) {
  EXPECT_EQ(win32::buildCommandLine("C:\\z\\statisticspython3.bat", {"C:\\z\\scripts\\genostat.pyc", "eyJh+/Q=="}),
            L"\"C:\\z\\statisticspython3.bat\" \"C:\\z\\scripts\\genostat.pyc\" \"eyJh+/Q==\"");
  EXPECT_EQ(win32::buildCommandLine("a b\"c", {""}), L"\"a b\"c\" \"\"");
  // No code page: the UTF-8 of "ä" (C3 A4) becomes two units, not U+00E4.
  EXPECT_EQ(win32::widenBytes(std::string("A\x7f\x80\xc3\xa4\xff", 6)),
            (std::wstring{L'A', wchar_t(0x7F), wchar_t(0xFF80), wchar_t(0xFFC3), wchar_t(0xFFA4), wchar_t(0xFFFF)}));
}

struct CreateCall {
  std::wstring commandLine;
  bool defaults = false;  // no application name, security, environment block or folder of its own
  BOOL inherit = TRUE;
  DWORD flags = 0;
};
CreateCall g_call;

BOOL WINAPI recordingCreator(LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES process,
                             LPSECURITY_ATTRIBUTES thread, BOOL inherit, DWORD flags, LPVOID environment,
                             LPCWSTR folder, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION information) {
  g_call = {commandLine, !application && !process && !thread && !environment && !folder, inherit, flags};
  return ::CreateProcessW(application, commandLine, process, thread, inherit, flags, environment, folder, startup,
                          information);
}

TEST(StartProcess, NewGroupUnicodeEnvironmentNothingInheritedAndTheIdKeptUntilReaped) {
  EXPECT_EQ(platform::startProcess((testProgramFolder() / "none.exe").u8string(), {}), -1);
  const win32::ProcessCreator previous = win32::setProcessCreator(&recordingCreator);
  const int pid = platform::startProcess(standIn(), {"--exit", "7"});
  win32::setProcessCreator(previous);
  ASSERT_GT(pid, 0);
  EXPECT_EQ(platform::waitForExitKeepingId(pid), 7);
  EXPECT_EQ(platform::waitForExitKeepingId(pid), 7) << "the handle stays open until reaped";
  platform::reapProcess(pid);
  EXPECT_EQ(platform::waitForExitKeepingId(pid), -1);
  EXPECT_EQ(g_call.commandLine, L"\"" + std::filesystem::u8path(standIn()).wstring() + L"\" \"--exit\" \"7\"");
  EXPECT_TRUE(g_call.defaults);
  EXPECT_EQ(g_call.inherit, FALSE);
  EXPECT_EQ(g_call.flags, static_cast<DWORD>(CREATE_NEW_PROCESS_GROUP | CREATE_UNICODE_ENVIRONMENT));
}

class Launch : public RunTest {};

TEST_F(Launch, CmdHandsTheLauncherThreeQuotedPartsWithThePaddingOfThePayload) {
  // '=' separates arguments for cmd.exe outside quotes; payloads of every length modulo 3.
  for (const std::string sequence : {"", "A", "AC", "ACG", "ACGT", "ACGTA"}) {
    GenoJobSettings* settings = new GenoJobSettings();
    settings->jobName = "adapter " + sequence;
    settings->setCustomAdapterSequence(sequence);
    settings->fastqFiles = {scratch_.write(sequence + ".json", R"({"rows":1})")};
    manager_->addJobToQueue(settings);
  }
  ASSERT_TRUE(workerIdle());
  std::istringstream received(readAll(installDir_ + "/launcher-received.txt"));
  const std::string base = hostPath(installDir_) + "\\";
  const std::string parts = "\"" + base + "statisticspython3.bat\" \"" + base + "scripts\\genostat.pyc\" \"";
  int lines = 0;
  int padded = 0;
  for (std::string text; std::getline(received, text); ++lines) {
    text.erase(text.find_last_not_of('\r') + 1);
    ASSERT_EQ(text.rfind(parts, 0), 0u) << text;
    // Nothing after the payload's closing quote.
    EXPECT_TRUE(std::regex_match(text.substr(parts.size()), std::regex("([A-Za-z0-9+/=]{4})+\""))) << text;
    padded += text[text.size() - 2] == '=' ? 1 : 0;
  }
  EXPECT_EQ(lines, 6);
  EXPECT_GE(padded, 2);
  // The strict stand-in read every payload whole: results, not exit code 3.
  for (const Recorded& end : client_.ends())
    EXPECT_NE(end.message.find("MESSAGE=100."), std::string::npos) << end.message;
}

TEST(TreeKill, EndsEveryLevelTheRootWithExitCodeOneAndRefusesIdsOfNoProcess) {
  ScratchFolder folder;
  const int root = platform::startProcess(standIn(), {"--sleep", folder.file("child")});
  ASSERT_GT(root, 0);
  ASSERT_TRUE(eventually([&] { return !readAll(folder.file("child")).empty(); }));
  const int child = std::stoi(readAll(folder.file("child")));
  EXPECT_TRUE(platform::killProcessTree(root));
  EXPECT_EQ(platform::waitForExitKeepingId(root), 1) << "what the waiting launch reads";
  EXPECT_TRUE(eventually([&] { return processGone(child); }, 5.0));
  platform::reapProcess(root);
  for (int pid : {0, -1, 0x7ffffffc}) EXPECT_FALSE(platform::killProcessTree(pid)) << pid;
}

TEST(TreeKill, StrangersOlderThanTheirPresumedParentAndUnknownAgesAreLeftAlive) {
  // The launcher 100 was created at 50. 200 and its child are an earlier process 100's: before,
  // they were ended with the job, and the host could be among them.
  const std::vector<win32::ProcessEntry> table = {
      {0, 0, 0},       // the idle process, its own parent
      {100, 4, 50},    // the launcher
      {200, 100, 10},  // stranger: older than the launcher
      {201, 200, 30},  //   and its child
      {300, 100, 60},  // the script
      {301, 300, 70},  //   its child
      {302, 301, 20},  //     a stranger under it: the script's child took an ended process's id
      {303, 301, 0},   //     creation time unreadable: not ended blindly
      {400, 100, 55},  // a second child of the launcher
      {300, 301, 80},  // a loop through a reused id is entered once
  };
  EXPECT_EQ(win32::treeKillOrder(100, 50, table), (std::vector<DWORD>{301, 300, 400, 100}));
}

}  // namespace
}  // namespace mt
