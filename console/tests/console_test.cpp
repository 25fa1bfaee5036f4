// The console's handling of job messages where the real module cannot be made to misbehave: a
// stand-in for its entry sends the end message from another thread with a syntax the test chooses,
// or none at all. Also the two readings of a job's output that zorv does itself: the message code
// of its syntax and the verdict colours on a terminal.
#include "console.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/control.h"
#include "host/messages.h"
#include "jobs/GenoStatAlgoManager.h"
#include "qcview.h"
#include "zorvhost/client.h"
#include "zorvhost/output.h"

namespace zorv {
namespace {

// What the stand-in entry saw and what it does.
struct Script {
  std::vector<std::string> commands, metadata;  // what GENOSTAT was called with
  std::string endSyntax;                        // sent with the end message of a submitted job
  bool sendEnd = true;
  std::vector<std::string> cancels;
  std::thread::id cancelThread;
};
Script* g_script = nullptr;

void post(int32_t id, const void* message) {
  if (ZorvAdapter* adapter = GetAdapter()) adapter->postClientMessage(id, message);
}

void fakeGenostat() {
  const std::string text = zorvhost::commandText();
  g_script->commands.push_back(text);
  g_script->metadata.push_back(GetMetaDataJson());
  if (text.rfind("GENOSTAT /JOB", 0) == 0) {
    ZorvwMsgStartGenomicProcessing queued("x", false);
    post(kZorvwMsgStartGenomicProcessingId, &queued);
    std::thread worker([] {  // the worker's messages come from its own thread
      ZorvwMsgStartGenomicProcessing started("x", true);
      post(kZorvwMsgStartGenomicProcessingId, &started);
      if (!g_script->sendEnd) return;
      ZorvwMsgEndGenomicProcessing end("x", g_script->endSyntax, "/tmp/z/1.csv", 3, 4);
      post(kZorvwMsgEndGenomicProcessingId, &end);
    });
    worker.join();
  }
  if (text.find("/DELETE") != std::string::npos) zorvhost::reportCommandError("GENOSTAT", "delete refused");
}

// As the module answers a cancel: an end message with an empty syntax, at once.
bool fakeCancel(GenoStatAlgoManager*, const char* name) {
  g_script->cancels.push_back(name);
  g_script->cancelThread = std::this_thread::get_id();
  ZorvwMsgEndGenomicProcessing end(name, "", "", -1, -1);
  post(kZorvwMsgEndGenomicProcessingId, &end);
  return true;
}

class ConsoleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_script = &script_;
    module_ = {fakeGenostat, getGenoManagerInstance, fakeCancel};  // a manager that holds none of these jobs
  }
  void TearDown() override {
    g_script = nullptr;
    zorvhost::closeAllDatasets();
  }

  int run(const std::string& text) {
    options_.sources = {{Source::Kind::Text, text}};
    EventLog none;
    Console console(options_, module_, none, wake_, std::cout, std::cerr);
    zorvhost::attachClient(true, [box = console.mailbox()](int32_t id, const void* m) { box->post(id, m); });
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    int status = console.run();
    out_ = ::testing::internal::GetCapturedStdout();
    err_ = ::testing::internal::GetCapturedStderr();
    zorvhost::detachClient();
    return status;
  }

  Script script_;
  Options options_;
  ModuleEntry module_;
  std::shared_ptr<platform::WakeChannel> wake_ = std::make_shared<platform::WakeChannel>();
  std::string out_, err_;
};

TEST_F(ConsoleTest, EveryCommandOfAJobsSyntaxRunsAfterAFailureEachReportedWithItsLine) {
  script_.endSyntax =
      "GENOSTAT /PRINT MESSAGE=100.\nGET DATA /TYPE=TXT /FILE='/nonexistent/1.csv'.\nDATASET NAME x.\n"
      "GENOSTAT /DELETE FILE='/tmp/z/1.csv'.\n";
  options_.haveMetadata = true;
  options_.metadataJson = R"({"job_metadata":{"workbook_id":"1"}})";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 1);
  EXPECT_EQ(script_.commands.back(), "GENOSTAT /DELETE FILE='/tmp/z/1.csv'");
  // The metadata is the user's: the job's own commands never see it.
  EXPECT_EQ(script_.metadata, (std::vector<std::string>{options_.metadataJson, "", ""}));
  EXPECT_EQ(err_,
            "job x:2: GET DATA: cannot open /nonexistent/1.csv: No such file or directory\n"
            "job x:3: DATASET NAME: there is no active dataset to name\n"
            "job x:4: GENOSTAT: delete refused\n");
}

TEST_F(ConsoleTest, AJobWhoseSyntaxCarriesNoMessageCodeCountsAsFailed) {
  script_.endSyntax = "GENOSTAT /PRINT SAMPLE_COUNT=1 /JOB NAME='MESSAGE=100'.\n";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 1);
  EXPECT_EQ(err_, "job x: GENOSTAT: the job's syntax carries no message code; its outcome is unknown\n");
}

TEST_F(ConsoleTest, AJobTheModuleDroppedWithoutAnEndIsReportedNotAwaited) {
  script_.sendEnd = false;
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 1);
  EXPECT_EQ(err_,
            "job x: GENOSTAT: the job ended without a result and sent no end message; likely causes: "
            "the temporary folder is missing, no free result file name was left in it, or the "
            "analysis process could not be started\n");
  EXPECT_TRUE(script_.cancels.empty());
}

TEST_F(ConsoleTest, AnInterruptStopsTheInputAndCancelsTheOpenJobsFromTheClientThread) {
  script_.sendEnd = false;  // the job would run for ever
  wake_->post('q');         // as the interrupt handler does, before the first command has ended
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'.\nGENOSTAT /PRINT MESSAGE=100."), 0) << err_;
  EXPECT_EQ(script_.commands.size(), 1u);
  EXPECT_EQ(script_.cancels, std::vector<std::string>{"x"});
  EXPECT_NE(script_.cancelThread, std::this_thread::get_id());
  EXPECT_NE(out_.find("Job x cancelled.\n"), std::string::npos) << out_;
}

TEST_F(ConsoleTest, AnOutputPageThatCannotBeWrittenAtTheEndFailsTheRun) {
  options_.outputPath = (std::filesystem::temp_directory_path() / "zorv-no-such-folder" / "page.html").u8string();
  EXPECT_EQ(run("CACHE."), 1);
  EXPECT_EQ(err_.rfind(options_.outputPath + ": zorv: cannot write the output page: ", 0), 0u) << err_;
}

TEST(MessageCode, OnlyAnIntegerAfterMessageInAGenostatPrintCounts) {
  const std::vector<std::pair<std::string, int32_t>> read = {
      {"GENOSTAT\n   /JOB FILE='' NAME='r'\n   /PRINT SAMPLE_COUNT=3 MESSAGE=100.\nPRESERVE.\n", 100},
      {"GENOSTAT /PRINT message = -7 /JOB NAME='x'.", -7},
      {"GENOSTAT /PRINT MESSAGE=201.\nGENOSTAT /PRINT MESSAGE=100.", 201}};
  for (const auto& [syntax, expected] : read) {
    int32_t code = 0;
    EXPECT_TRUE(messageCodeOf(syntax, code)) << syntax;
    EXPECT_EQ(code, expected) << syntax;
  }
  for (const char* none : {"GENOSTAT /PRINT /JOB NAME=\"it''s MESSAGE=1\".", "GENOSTAT /DELETE MESSAGE=100.",
                           "FOO /PRINT MESSAGE=1.", "GENOSTAT /PRINT MESSAGE=.", "GENOSTAT /PRINT MESSAGE=1.5.",
                           "GENOSTAT /PRINT MESSAGE=2147483648."}) {
    int32_t code = 55;
    EXPECT_FALSE(messageCodeOf(none, code)) << none;
    EXPECT_EQ(code, 55) << none;
  }
}

TEST(QcView, OnlyWholeVerdictCellsAreColouredInEitherRuleStyle) {
  zorvhost::OutputTable t;
  t.title = "t";
  t.columnLabels = {"adapters", "note"};
  t.rowLabels = {"Valid pass", "s2"};
  t.cells = {{"fail", "passed"}, {"warn", "pass"}};
  for (auto rules : {zorvhost::TextRules::Box, zorvhost::TextRules::Ascii}) {
    const std::string text = colourVerdicts(zorvhost::renderTableText(t, rules));
    for (const char* coloured : {"\x1b[31mfail\x1b[0m", "\x1b[33mwarn\x1b[0m", "\x1b[32mpass\x1b[0m", "Valid pass",
                                 " passed"}) {
      EXPECT_NE(text.find(coloured), std::string::npos) << coloured << " in\n" << text;
    }
  }
}

}  // namespace
}  // namespace zorv
