// The reference host's session state as the module and the console meet it: the command's text and
// errors, the client adapter and its messages (from many threads), metadata, folders, the
// case-insensitive compare and the common blocks.
#include "zorvhost/client.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/commonblocks.h"
#include "host/control.h"
#include "host/messages.h"
#include "host/paths.h"
#include "host/platform.h"
#include "host/tokens.h"

namespace {

// The state is process-wide and the binary may run every test in one process: each test starts
// from a known state.
class Session : public ::testing::Test {
 protected:
  void SetUp() override {
    zorvhost::detachClient();
    zorvhost::takeCommandErrors();
    resetMetadataJson();
  }
  void TearDown() override { zorvhost::detachClient(); }
};

TEST_F(Session, TheCommandsTextAndErrorsAsAProcedureMeetsThem) {
  zorvhost::setCommandText("GENOSTAT /JOB NAME='a'");
  ZORV_TokenSequence current(true), empty(false);
  zorvhost::setCommandText("GENOSTAT /PRINT");  // a running command keeps its own copy
  EXPECT_EQ(current.commandText() + "|" + empty.commandText(), "GENOSTAT /JOB NAME='a'|");
  zorvhost::reportCommandError("GENOSTAT", "File not found: /x");
  zorvhost::reportCommandError("OTHER", "second");
  std::string errors;
  for (const auto& e : zorvhost::takeCommandErrors()) errors += e.command + ": " + e.text + "\n";
  EXPECT_EQ(errors, "GENOSTAT: File not found: /x\nOTHER: second\n");
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty()) << "errors are taken once";
}

TEST_F(Session, MessagesReachTheAttachedClientOnlyWithTheirFields) {
  EXPECT_EQ(GetAdapter(), nullptr);
  ZorvwMsgStartGenomicProcessing start("job_1", true);
  ZorvwMsgEndGenomicProcessing end("job_1", "GENOSTAT /PRINT.", "/tmp/1.csv", 7, -1);
  zorvhost::attachClient(false, nullptr);  // command-line mode, and a client that swallows messages
  ASSERT_NE(GetAdapter(), nullptr);
  EXPECT_EQ(GetAdapter()->isInteractiveClient(), 0);
  GetAdapter()->postClientMessage(kZorvwMsgStartGenomicProcessingId, &start);

  std::vector<std::string> seen;
  zorvhost::attachClient(true, [&](int32_t id, const void* message) {
    if (id == kZorvwMsgStartGenomicProcessingId) {
      auto* m = static_cast<const ZorvwMsgStartGenomicProcessing*>(message);
      seen.push_back("start " + m->jobName() + (m->started() ? " true" : " false"));
    } else if (id == kZorvwMsgEndGenomicProcessingId) {
      auto* m = static_cast<const ZorvwMsgEndGenomicProcessing*>(message);
      seen.push_back("end " + m->jobName() + "|" + m->message() + "|" + m->csvFilePath() + "|" +
                     std::to_string(m->workbookId()) + "|" + std::to_string(m->paragraphId()));
    }
  });
  EXPECT_NE(GetAdapter()->isInteractiveClient(), 0);
  GetAdapter()->postClientMessage(kZorvwMsgStartGenomicProcessingId, &start);
  GetAdapter()->postClientMessage(kZorvwMsgEndGenomicProcessingId, &end);
  EXPECT_EQ(seen, (std::vector<std::string>{"start job_1 true", "end job_1|GENOSTAT /PRINT.|/tmp/1.csv|7|-1"}));
  zorvhost::detachClient();
  EXPECT_EQ(GetAdapter(), nullptr);
}

TEST_F(Session, AReplacedClientStopsReceivingButItsAdapterStaysUsable) {
  int first = 0, second = 0;
  zorvhost::attachClient(true, [&](int32_t, const void*) { ++first; });
  ZorvAdapter* old = GetAdapter();
  zorvhost::attachClient(true, [&](int32_t, const void*) { ++second; });
  ZorvwMsgStartGenomicProcessing start("j", false);
  GetAdapter()->postClientMessage(kZorvwMsgStartGenomicProcessingId, &start);
  // A poster that fetched the adapter before the switch must not touch freed memory.
  old->postClientMessage(kZorvwMsgStartGenomicProcessingId, &start);
  EXPECT_EQ(std::to_string(first) + " " + std::to_string(second), "1 1");
}

TEST_F(Session, PostingFromManyThreadsWhileTheClientChanges) {
  std::atomic<int> delivered{0};
  auto handler = [&](int32_t, const void*) { delivered.fetch_add(1); };
  zorvhost::attachClient(true, handler);
  std::atomic<bool> stop{false};
  std::vector<std::thread> posters;
  for (int t = 0; t < 4; ++t) {
    posters.emplace_back([&] {
      ZorvwMsgStartGenomicProcessing start("j", true);
      for (int i = 0; i < 2000; ++i) {
        if (ZorvAdapter* a = GetAdapter()) a->postClientMessage(1025, &start);
      }
    });
  }
  std::thread switcher([&] {
    while (!stop.load()) zorvhost::attachClient(true, handler);
  });
  for (auto& p : posters) p.join();
  stop = true;
  switcher.join();
  EXPECT_EQ(delivered.load(), 4 * 2000);
}

TEST_F(Session, MetadataAndFoldersAsTheModuleReadsThem) {
  EXPECT_EQ(GetMetaDataJson(), "");
  zorvhost::setMetadataJson(R"({"workbookId":3})");
  EXPECT_EQ(GetMetaDataJson() + GetMetaDataJson(), R"({"workbookId":3}{"workbookId":3})") << "reading keeps it";
  resetMetadataJson();
  EXPECT_EQ(GetMetaDataJson(), "");

  zorvhost::setTempPath("/tmp/zorv-abc");
  EXPECT_STREQ(GetZorvTempPath(), "/tmp/zorv-abc");
  // The module appends file names to the install folder: it ends in a separator, the system's own
  // when it had none.
  const std::string separator(1, static_cast<char>(std::filesystem::path::preferred_separator));
  for (const std::string folder : {"/opt/zorv", "C:\\zorv", "/opt/zorv/", "C:\\zorv\\", ""}) {
    zorvhost::setInstallPath(folder);
    const char last = folder.empty() ? '/' : folder.back();
    EXPECT_EQ(zorvhost::installPath(), folder + (last == '/' || last == '\\' ? "" : separator)) << folder;
  }
  zorvhost::setInstallPath("/opt/zorv");
  ASSERT_NE(PathFactory::getPathInstance(3), nullptr);
  EXPECT_EQ(PathFactory::getPathInstance(3)->getPath(), "/opt/zorv" + separator);
  for (int other : {0, 2, 4}) EXPECT_EQ(PathFactory::getPathInstance(other), nullptr) << other;
}

TEST(HostPlatform, CaseInsensitiveCompareFoldsAsciiLettersOnly) {
  struct Case {
    const char *a, *b;
    int sign;
  } cases[] = {
      {"Genomic_Job_1", "GENOMIC_job_1", 0}, {"", "", 0}, {"abc", "ABD", -1}, {"abd", "ABC", 1},
      {"ab", "AB_", -1}, {"ab_", "AB", 1},
      {"[", "{", -1}, {"@", "`", -1},            // not letters: no folding onto each other
      {"\xC3\x84", "\xC3\xA4", -1},               // bytes above 0x7F compare as they are: Ä and ä differ
      {"\xC3", "z", 1},                           // and sort above ASCII, as unsigned bytes
  };
  for (const auto& c : cases) {
    const int r = ZORVMBstricmp_A(c.a, c.b);
    EXPECT_EQ((r > 0) - (r < 0), c.sign) << c.a << " " << c.b;
  }
}

TEST(HostCommonBlocks, EveryAccessorGivesItsOwnStableBlock) {
  std::set<void*> seen;
  for (auto fn : {pvGetCmnBpr, pvGetCmaDic, pvGetCmaGlb, pvGetCmaMch, pvGetCmaObv, pvGetCmaSym, pvGetCmaSys,
                  pvGetCmnDic, pvGetCmnDmo, pvGetCmnGlb, pvGetCmnInc, pvGetCmnIo, pvGetCmnLoc, pvGetCmnMch,
                  pvGetCmnMcs, pvGetCmnObv, pvGetCmnStk, pvGetCmnSym, pvGetCmnSys, pvGetCmnWrk, pvGetCmnDtm,
                  pvGetCmnBox}) {
    ASSERT_NE(fn(), nullptr);
    EXPECT_EQ(fn(), fn());
    seen.insert(fn());
  }
  EXPECT_EQ(seen.size(), 22u);
}

}  // namespace
