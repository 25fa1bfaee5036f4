// The console's handling of job messages, with a stand-in for the module's entry: the end message
// arrives from another thread, its syntax runs afterwards on the console's thread, command by
// command, and a job that vanishes without an end message is reported instead of waited for.
#include "console.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/control.h"
#include "host/messages.h"
#include "host/output.h"
#include "host/procedure.h"
#include "jobs/GenoStatAlgoManager.h"
#include "zorvhost/client.h"

namespace zorv {
namespace {

// What the stand-in entry saw and what it does.
struct Script {
  std::vector<std::string> commands;  // texts GENOSTAT was called with
  std::string endSyntax;              // sent with the end message of a submitted job
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
  if (text.rfind("GENOSTAT /JOB", 0) == 0) {  // a submission; /PRINT names a job too
    ZorvwMsgStartGenomicProcessing queued("x", false);
    post(kZorvwMsgStartGenomicProcessingId, &queued);
    // The worker's messages come from its own thread.
    std::thread worker([] {
      ZorvwMsgStartGenomicProcessing started("x", true);
      post(kZorvwMsgStartGenomicProcessingId, &started);
      if (g_script->sendEnd) {
        ZorvwMsgEndGenomicProcessing end("x", g_script->endSyntax, "/tmp/z/1.csv", 3, 4);
        post(kZorvwMsgEndGenomicProcessingId, &end);
      }
    });
    worker.join();
  }
  if (text.find("/DELETE") != std::string::npos) {
    zorvhost::reportCommandError("GENOSTAT", "delete refused");
  }
  if (text.find("/PRINT") != std::string::npos) {  // a summary table, as the module emits it
    BpProcedure procedure("GENOSTAT", 0);
    StatJSONConverter converter(&procedure);
    converter.generateOutput(
        R"({"procedure":"GENOSTAT","subtitle":"","tables":[{"title":"Summary","columnLabels":["Count"],)"
        R"("rowLabels":["Samples","Variables"],"cells":[["2"],["25"]]}]})");
  }
}

bool fakeCancel(GenoStatAlgoManager*, const char* name) {
  g_script->cancels.push_back(name);
  return false;
}

// As the module answers a cancel: an end message with an empty syntax, at once.
bool answeringCancel(GenoStatAlgoManager*, const char* name) {
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
    zorvhost::closeAllDatasets();
    dir_ = std::filesystem::temp_directory_path() /
           ("zorv-console-test-" + std::to_string(std::random_device{}()));
    std::filesystem::create_directories(dir_);
    wake_ = std::make_shared<platform::WakeChannel>();
    eventsPath_ = (dir_ / "events.jsonl").u8string();
    events_ = platform::openForWriting(eventsPath_);
    ASSERT_NE(events_, nullptr);
    module_.genostat = fakeGenostat;
    module_.getManager = getGenoManagerInstance;  // the real one: it holds none of these jobs
    module_.cancel = fakeCancel;
  }
  void TearDown() override {
    zorvhost::detachClient();
    if (!ran_ && events_ != nullptr) std::fclose(events_);
    g_script = nullptr;
    zorvhost::closeAllDatasets();
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }

  std::string writeFile(const std::string& name, const std::string& text) {
    std::string path = (dir_ / name).u8string();
    std::ofstream(dir_ / name, std::ios::binary) << text;
    return path;
  }

  static std::string slurp(const std::string& path) {
    std::ifstream in(std::filesystem::u8path(path), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  int run(const std::string& text) {
    options_.sources = {{Source::Kind::Text, text}};
    ran_ = true;
    EventLog log(events_);
    Console console(options_, module_, log, wake_, std::cout, std::cerr);
    zorvhost::attachClient(true, [box = console.mailbox()](int32_t id, const void* m) {
      box->post(id, m);
    });
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    int status = console.run();
    out_ = ::testing::internal::GetCapturedStdout();
    err_ = ::testing::internal::GetCapturedStderr();
    zorvhost::detachClient();
    return status;
  }

  // The events written so far (the log flushes every line).
  std::vector<std::string> eventLines() {
    std::string all = slurp(eventsPath_);
    std::vector<std::string> lines;
    size_t pos = 0, eol;
    while ((eol = all.find('\n', pos)) != std::string::npos) {
      lines.push_back(all.substr(pos, eol - pos));
      pos = eol + 1;
    }
    return lines;
  }

  Script script_;
  Options options_;
  ModuleEntry module_;
  std::shared_ptr<platform::WakeChannel> wake_;
  std::string eventsPath_;
  std::FILE* events_ = nullptr;  // owned by the EventLog of run()
  bool ran_ = false;
  std::string out_, err_;
  std::filesystem::path dir_;
};

TEST_F(ConsoleTest, AJobsSyntaxRunsAfterItsEndMessageImportingNamingAndActivatingItsDataset) {
  std::string csv = writeFile("1.csv", "Sample,GC\n\"s,1\",41.5\ns2,\n");
  script_.endSyntax =
      "GENOSTAT /PRINT SAMPLE_COUNT=2 VARIABLE_COUNT=0 MESSAGE=100\n   /JOB NAME='x'.\n"
      "PRESERVE.\nSET DECIMAL DOT.\n"
      "GET DATA  /TYPE=TXT /FILE=\"" + csv + "\" /ENCODING='UTF8' /DELIMITERS=\",\" /QUALIFIER='\"'\n"
      "  /ARRANGEMENT=DELIMITED /FIRSTCASE=2 /DATATYPEMIN PERCENTAGE=95.0\n"
      "  /VARIABLES= Sample AUTO GC AUTO /MAP.\n"
      "RESTORE.\nCACHE.\nEXECUTE.\nDATASET NAME x.\nDATASET ACTIVATE x.\n"
      "DESCRIPTIVES VARIABLES=GC\n  /STATISTICS=MEAN STDDEV MIN MAX.\n";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 0) << err_;
  ASSERT_EQ(script_.commands.size(), 2u);
  EXPECT_EQ(script_.commands[1], "GENOSTAT /PRINT SAMPLE_COUNT=2 VARIABLE_COUNT=0 MESSAGE=100\n   /JOB NAME='x'");
  EXPECT_EQ(err_, "");
  // The summary table comes from the output library through the handler, as aligned text.
  EXPECT_NE(out_.find("Summary\n"), std::string::npos) << out_;
  EXPECT_NE(out_.find("Samples"), std::string::npos);
  EXPECT_NE(out_.find("Active dataset (unnamed): 2 cases, 2 variables.\n"
                      "Active dataset x: 2 cases, 2 variables.\n"
                      "Active dataset x: 2 cases, 2 variables.\n"
                      "Descriptive Statistics\n"),
            std::string::npos)
      << out_;
  zorvhost::DatasetData data;
  ASSERT_TRUE(zorvhost::datasetData("X", data));
  ASSERT_EQ(data.variables.size(), 2u);
  EXPECT_EQ(data.variables[0].strings, (std::vector<std::string>{"s,1", "s2"}));
  EXPECT_EQ(data.variables[1].type, zorvhost::Variable::Type::Numeric);
  EXPECT_EQ(data.variables[1].numbers[0], 41.5);
  EXPECT_TRUE(std::isnan(data.variables[1].numbers[1]));

  auto lines = eventLines();
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(lines[0], R"({"event":"job_start","job":"x","started":false})");
  EXPECT_EQ(lines[1], R"({"event":"job_start","job":"x","started":true})");
  EXPECT_EQ(lines[2].rfind(R"({"event":"job_end","job":"x","syntax":"GENOSTAT /PRINT)", 0), 0u);
  EXPECT_EQ(lines[3].rfind(R"({"event":"table","title":"Summary","column_labels":["Count"])", 0), 0u)
      << lines[3];
  EXPECT_EQ(lines[4], R"({"event":"dataset","name":"","cases":2,"variables":2})");
  EXPECT_EQ(lines[5], R"({"event":"dataset","name":"x","cases":2,"variables":2})");
  EXPECT_EQ(lines[6], R"({"event":"dataset","name":"x","cases":2,"variables":2})");
  EXPECT_EQ(lines[7].rfind(R"({"event":"table","title":"Descriptive Statistics")", 0), 0u) << lines[7];
}

TEST_F(ConsoleTest, EveryCommandOfAJobsSyntaxRunsAfterAFailureAndEachFailureIsReported) {
  script_.endSyntax =
      "GENOSTAT /PRINT MESSAGE=100.\n"
      "GET DATA /TYPE=TXT /FILE='" + (dir_ / "missing.csv").u8string() + "'.\n"
      "DATASET NAME x.\n"
      "RESTORE.\n"
      "FREQUENCIES VARIABLES=GC /NTILES=4.5.\n"
      "GENOSTAT /DELETE FILE='/tmp/z/1.csv'.\n";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 1);
  ASSERT_EQ(script_.commands.size(), 3u);
  EXPECT_EQ(script_.commands[2], "GENOSTAT /DELETE FILE='/tmp/z/1.csv'");
  EXPECT_EQ(err_,
            "job x:2: GET DATA: cannot open " + (dir_ / "missing.csv").u8string() +
                ": No such file or directory\n"
                "job x:3: DATASET NAME: there is no active dataset to name\n"
                "job x:4: RESTORE: there are no preserved settings to restore (no PRESERVE before it)\n"
                "job x:5: FREQUENCIES: Line 1, column 34, at 4.5: an integer is expected for NTILES.\n"
                "job x:6: GENOSTAT: delete refused\n");
  auto lines = eventLines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), R"({"event":"error","command":"GENOSTAT","text":"delete refused"})");
}

TEST_F(ConsoleTest, AFailedJobIsAFailureOfTheRunAfterItsSyntaxHasRun) {
  script_.endSyntax =
      "GENOSTAT\n    /JOB FILE='' NAME='x' ADAPTERS=NONE\n"
      "    /PRINT SAMPLE_COUNT=0 VARIABLE_COUNT=0 MESSAGE=205.\n";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 1);
  EXPECT_EQ(script_.commands.size(), 2u);
  EXPECT_EQ(err_, "job x: GENOSTAT: the job failed (message code 205); its Details table gives the reason\n");
  EXPECT_NE(out_.find("Summary"), std::string::npos);  // its tables still show
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

TEST_F(ConsoleTest, NoWaitCancelsStartedJobsFromTheClientThreadAndACancelIsNoFailure) {
  script_.sendEnd = false;
  options_.waitForJobs = false;
  module_.cancel = answeringCancel;
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 0) << err_;
  EXPECT_EQ(script_.cancels, std::vector<std::string>{"x"});
  EXPECT_NE(script_.cancelThread, std::this_thread::get_id());
  EXPECT_NE(out_.find("Job x cancelled.\n"), std::string::npos) << out_;
}

TEST_F(ConsoleTest, AnInterruptStopsTheInputAndCancelsTheOpenJobsFromTheClientThread) {
  script_.sendEnd = false;  // the job would run for ever
  module_.cancel = answeringCancel;
  wake_->post('q');  // as the interrupt handler does, before the first command has ended
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'.\nGENOSTAT /PRINT MESSAGE=100."), 0) << err_;
  EXPECT_EQ(script_.commands.size(), 1u);  // nothing after the interrupt runs
  EXPECT_EQ(script_.cancels, std::vector<std::string>{"x"});
  EXPECT_NE(script_.cancelThread, std::this_thread::get_id());
  EXPECT_NE(out_.find("Job x cancelled.\n"), std::string::npos) << out_;
}

TEST_F(ConsoleTest, ARepeatedEndMessageIsShownButEndsNoOtherJob) {
  options_.waitForJobs = false;
  script_.sendEnd = false;
  module_.cancel = answeringCancel;
  // Cancelled twice while queued, the module answers twice; the second answer must not end the
  // later job of the same name.
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'.\n:cancel x\n:cancel x"), 0) << err_;
  EXPECT_NE(out_.find("Job x cancelled.\n"
                      "Job x: a further end message, for a job that has already ended.\n"),
            std::string::npos)
      << out_;
}

TEST_F(ConsoleTest, OnlyTheUsersCommandsGetTheMetadata) {
  options_.haveMetadata = true;
  options_.metadataJson = R"({"job_metadata":{"workbook_id":"1"}})";
  static std::vector<std::string> seen;
  seen.clear();
  module_.genostat = [] {
    seen.push_back(GetMetaDataJson());
    fakeGenostat();
  };
  script_.endSyntax = "GENOSTAT /PRINT MESSAGE=100.\n";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 0) << err_;
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], options_.metadataJson);
  EXPECT_EQ(seen[1], "");  // the job's /PRINT is not the user's command
}

TEST_F(ConsoleTest, TheOutputPageHoldsTablesErrorsAndJobMessages) {
  options_.outputPath = (dir_ / "session.html").u8string();
  script_.endSyntax = "GENOSTAT /PRINT MESSAGE=100.\nGENOSTAT /DELETE FILE='<b>'.\n";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'.\nBOGUS 1."), 1);
  std::string page = slurp(options_.outputPath);
  EXPECT_EQ(page.rfind("<!DOCTYPE html>", 0), 0u) << page.substr(0, 200);
  EXPECT_NE(page.find("<p class=\"zorv-message\">Job x queued.</p>"), std::string::npos);
  // An outline links the job, its procedures and tables; the job's own commands are folded away.
  EXPECT_NE(page.find("<nav class=\"zorv-outline\">"), std::string::npos);
  EXPECT_NE(page.find("<a href=\"#s1\">Job x</a>"), std::string::npos) << page;
  EXPECT_NE(page.find("<h2 class=\"zorv-job\" id=\"s1\">Job x</h2>"), std::string::npos);
  EXPECT_NE(page.find("<h2 class=\"zorv-procedure\" id=\"s2\">GENOSTAT</h2>"), std::string::npos);
  EXPECT_NE(page.find("<table class=\"zorv-table\">"), std::string::npos);
  const size_t fold = page.find("<details class=\"zorv-generated\"><summary>Commands the job ran</summary>");
  const size_t deleted = page.find("<pre class=\"zorv-command\">GENOSTAT /DELETE FILE=&#39;&lt;b&gt;&#39;.</pre>");
  ASSERT_NE(deleted, std::string::npos) << page;
  EXPECT_LT(fold, deleted);
  EXPECT_EQ(page.find("<pre class=\"zorv-command\">GENOSTAT /JOB NAME=&#39;x&#39;.</pre>"), page.find("<pre"))
      << "the user's own command stands unfolded, first";
  EXPECT_NE(page.find("<p class=\"zorv-error\">job x:2: GENOSTAT: delete refused</p>"), std::string::npos);
  EXPECT_NE(page.find("BOGUS: unrecognized command"), std::string::npos);
  EXPECT_NE(page.find("</html>"), std::string::npos);
}

TEST_F(ConsoleTest, AnOutputPageThatCannotBeWrittenFailsTheRun) {
  options_.outputPath = (dir_ / "no" / "such" / "page.html").u8string();
  script_.endSyntax = "GENOSTAT /PRINT MESSAGE=100.\n";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 1);
  EXPECT_NE(err_.find(options_.outputPath + ": zorv: cannot write the output page: "), std::string::npos)
      << err_;
}

TEST_F(ConsoleTest, CommandsOutsideTheLanguageAreErrors) {
  EXPECT_EQ(run("FROB x.\n'quoted'."), 1);
  EXPECT_EQ(err_,
            "-e:1: FROB: unrecognized command; this console runs GENOSTAT and the commands of a job's syntax\n"
            "-e:2: 'quoted': not a command of the command language\n");
}

}  // namespace
}  // namespace zorv
