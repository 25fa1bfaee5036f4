// The reference host's session state as the module and the console meet it: the command's text and
// errors, the client adapter and its messages, metadata, folders and the dataset registry.
#include "zorvhost/client.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/commonblocks.h"
#include "host/control.h"
#include "host/datasets.h"
#include "host/messages.h"
#include "host/paths.h"
#include "host/platform.h"
#include "host/tokens.h"

namespace {

// The state is process-wide and the binary may run every test in one process, so each test
// starts from a known state.
class SessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zorvhost::detachClient();
    zorvhost::takeCommandErrors();
    zorvhost::closeAllDatasets();
    zorvhost::setCommandText("");
    resetMetadataJson();
  }
};

std::vector<std::string> handles() {
  std::vector<SvrDMDataset*> list{reinterpret_cast<SvrDMDataset*>(1)};  // must be replaced
  ServerDataManager::GetInstance()->GetAllDatasets(list);
  std::vector<std::string> names;
  for (auto* d : list) {
    std::string name;
    d->GetHandle(name);
    names.push_back(name);
  }
  return names;
}

TEST_F(SessionTest, TokenSequenceTakesTheCurrentCommandOnlyWhenAsked) {
  zorvhost::setCommandText("GENOSTAT /JOB NAME='a'");
  ZORV_TokenSequence current(true);
  ZORV_TokenSequence empty(false);
  EXPECT_EQ(current.commandText(), "GENOSTAT /JOB NAME='a'");
  EXPECT_EQ(empty.commandText(), "");
  // The sequence keeps its own copy: the next command does not change a running one.
  zorvhost::setCommandText("GENOSTAT /PRINT");
  EXPECT_EQ(current.commandText(), "GENOSTAT /JOB NAME='a'");
}

TEST_F(SessionTest, CommandErrorsComeBackInOrderOnce) {
  zorvhost::reportCommandError("GENOSTAT", "File not found: /x");
  zorvhost::reportCommandError("GENOSTAT", "second");
  auto errors = zorvhost::takeCommandErrors();
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[0].command, "GENOSTAT");
  EXPECT_EQ(errors[0].text, "File not found: /x");
  EXPECT_EQ(errors[1].text, "second");
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty());
}

TEST_F(SessionTest, AdapterExistsOnlyWhileAClientIsAttached) {
  EXPECT_EQ(GetAdapter(), nullptr);
  zorvhost::attachClient(true, nullptr);
  ASSERT_NE(GetAdapter(), nullptr);
  EXPECT_NE(GetAdapter()->isInteractiveClient(), 0);
  // A client without a handler swallows messages.
  ZorvwMsgStartGenomicProcessing start("j", false);
  GetAdapter()->postClientMessage(kZorvwMsgStartGenomicProcessingId, &start);

  zorvhost::attachClient(false, nullptr);
  ASSERT_NE(GetAdapter(), nullptr);
  EXPECT_EQ(GetAdapter()->isInteractiveClient(), 0);  // command-line mode
  zorvhost::detachClient();
  EXPECT_EQ(GetAdapter(), nullptr);
}

TEST_F(SessionTest, MessagesReachTheAttachedHandlerWithTheirFields) {
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
  ZorvwMsgStartGenomicProcessing start("job_1", true);
  ZorvwMsgEndGenomicProcessing end("job_1", "GENOSTAT /PRINT.", "/tmp/1.csv", 7, -1);
  GetAdapter()->postClientMessage(kZorvwMsgStartGenomicProcessingId, &start);
  GetAdapter()->postClientMessage(kZorvwMsgEndGenomicProcessingId, &end);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], "start job_1 true");
  EXPECT_EQ(seen[1], "end job_1|GENOSTAT /PRINT.|/tmp/1.csv|7|-1");
}

TEST_F(SessionTest, ReplacedClientStopsReceivingButItsAdapterStaysUsable) {
  int first = 0, second = 0;
  zorvhost::attachClient(true, [&](int32_t, const void*) { ++first; });
  ZorvAdapter* old = GetAdapter();
  zorvhost::attachClient(true, [&](int32_t, const void*) { ++second; });
  ZorvwMsgStartGenomicProcessing start("j", false);
  GetAdapter()->postClientMessage(kZorvwMsgStartGenomicProcessingId, &start);
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
  // A poster that fetched the adapter before the switch must not touch freed memory.
  old->postClientMessage(kZorvwMsgStartGenomicProcessingId, &start);
  EXPECT_EQ(first, 1);
}

TEST_F(SessionTest, PostingFromManyThreadsWhileTheClientChanges) {
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

TEST_F(SessionTest, MetadataIsReadUntilReset) {
  EXPECT_EQ(GetMetaDataJson(), "");
  zorvhost::setMetadataJson(R"({"workbookId":3,"paragraphId":4})");
  EXPECT_EQ(GetMetaDataJson(), R"({"workbookId":3,"paragraphId":4})");
  EXPECT_EQ(GetMetaDataJson(), R"({"workbookId":3,"paragraphId":4})");  // reading keeps it
  resetMetadataJson();
  EXPECT_EQ(GetMetaDataJson(), "");
}

TEST_F(SessionTest, FoldersAsTheModuleReadsThem) {
  zorvhost::setTempPath("/tmp/zorv-abc");
  EXPECT_STREQ(GetZorvTempPath(), "/tmp/zorv-abc");

  // The module concatenates to the install folder, so it must end in a separator: the system's own
  // when one is missing.
  const std::string separator(1, static_cast<char>(std::filesystem::path::preferred_separator));
  zorvhost::setInstallPath("/opt/zorv");
  ASSERT_NE(PathFactory::getPathInstance(3), nullptr);
  EXPECT_EQ(PathFactory::getPathInstance(3)->getPath(), "/opt/zorv" + separator);
  EXPECT_EQ(zorvhost::installPath(), "/opt/zorv" + separator);
  zorvhost::setInstallPath("C:\\zorv");
  EXPECT_EQ(zorvhost::installPath(), "C:\\zorv" + separator);
  zorvhost::setInstallPath("/opt/zorv/");
  EXPECT_EQ(zorvhost::installPath(), "/opt/zorv/");
  zorvhost::setInstallPath("C:\\zorv\\");
  EXPECT_EQ(zorvhost::installPath(), "C:\\zorv\\");
  zorvhost::setInstallPath("");
  EXPECT_EQ(zorvhost::installPath(), "");

  EXPECT_EQ(PathFactory::getPathInstance(0), nullptr);
  EXPECT_EQ(PathFactory::getPathInstance(2), nullptr);
  EXPECT_EQ(PathFactory::getPathInstance(4), nullptr);
}

TEST_F(SessionTest, DatasetsOpenAndCloseByNameIgnoringCase) {
  EXPECT_TRUE(handles().empty());
  zorvhost::openDataset("Data");
  zorvhost::openDataset("other");
  zorvhost::openDataset("DATA");
  EXPECT_EQ(handles(), (std::vector<std::string>{"Data", "other", "DATA"}));
  EXPECT_EQ(zorvhost::datasetNames(), handles());

  EXPECT_TRUE(zorvhost::closeDataset("data"));  // closes both spellings
  EXPECT_EQ(handles(), std::vector<std::string>{"other"});
  EXPECT_FALSE(zorvhost::closeDataset("data"));
  EXPECT_FALSE(zorvhost::closeDataset("othe"));

  zorvhost::closeAllDatasets();
  EXPECT_TRUE(handles().empty());
}

TEST(HostPlatform, CaseInsensitiveCompareFoldsAsciiLettersOnly) {
  EXPECT_EQ(ZORVMBstricmp_A("Genomic_Job_1", "GENOMIC_job_1"), 0);
  EXPECT_EQ(ZORVMBstricmp_A("", ""), 0);
  EXPECT_LT(ZORVMBstricmp_A("abc", "ABD"), 0);
  EXPECT_GT(ZORVMBstricmp_A("abd", "ABC"), 0);
  EXPECT_LT(ZORVMBstricmp_A("ab", "AB_"), 0);  // a prefix sorts first
  EXPECT_GT(ZORVMBstricmp_A("ab_", "AB"), 0);
  // '[' (0x5B) and '{' (0x7B) are not letters: they must not fold onto each other.
  EXPECT_NE(ZORVMBstricmp_A("[", "{"), 0);
  EXPECT_NE(ZORVMBstricmp_A("@", "`"), 0);
  // Bytes above 0x7F compare as they are: "Ä" and "ä" in UTF-8 differ.
  EXPECT_NE(ZORVMBstricmp_A("\xC3\x84", "\xC3\xA4"), 0);
  // High bytes sort above ASCII, as unsigned bytes.
  EXPECT_GT(ZORVMBstricmp_A("\xC3", "z"), 0);
}

TEST(HostCommonBlocks, EveryAccessorGivesItsOwnBlock) {
  void* (*accessors[])() = {pvGetCmnBpr, pvGetCmaDic, pvGetCmaGlb, pvGetCmaMch, pvGetCmaObv,
                            pvGetCmaSym, pvGetCmaSys, pvGetCmnDic, pvGetCmnDmo, pvGetCmnGlb,
                            pvGetCmnInc, pvGetCmnIo,  pvGetCmnLoc, pvGetCmnMch, pvGetCmnMcs,
                            pvGetCmnObv, pvGetCmnStk, pvGetCmnSym, pvGetCmnSys, pvGetCmnWrk,
                            pvGetCmnDtm, pvGetCmnBox};
  std::set<void*> seen;
  for (auto fn : accessors) {
    void* block = fn();
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(fn(), block);  // stable across calls
    seen.insert(block);
  }
  EXPECT_EQ(seen.size(), 22u);
}

}  // namespace
