// The console's handling of job messages, with a stand-in for the module's entry: the end message
// arrives from another thread, its syntax runs afterwards on the console's thread, command by
// command, and a job that vanishes without an end message is reported instead of waited for.
#include "console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "host/control.h"
#include "host/messages.h"
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
}

bool fakeCancel(GenoStatAlgoManager*, const char* name) {
  g_script->cancels.push_back(name);
  return false;
}

class ConsoleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_script = &script_;
    ASSERT_EQ(pipe2(wake_, O_CLOEXEC | O_NONBLOCK), 0);
    events_ = std::tmpfile();
    ASSERT_NE(events_, nullptr);
    eventsFd_ = dup(fileno(events_));
    module_.genostat = fakeGenostat;
    module_.getManager = getGenoManagerInstance;  // the real one: it holds none of these jobs
    module_.cancel = fakeCancel;
  }
  void TearDown() override {
    zorvhost::detachClient();
    close(wake_[0]);
    close(wake_[1]);
    close(eventsFd_);
    g_script = nullptr;
  }

  int run(const std::string& text) {
    options_.sources = {{Source::Kind::Text, text}};
    EventLog log(events_);
    Console console(options_, module_, log, wake_[0], wake_[1]);
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

  std::vector<std::string> eventLines() {
    std::string all;
    char buf[4096];
    ssize_t n;
    off_t at = 0;
    while ((n = pread(eventsFd_, buf, sizeof buf, at)) > 0) {
      all.append(buf, static_cast<size_t>(n));
      at += n;
    }
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
  int wake_[2];
  std::FILE* events_ = nullptr;  // owned by the EventLog of run()
  int eventsFd_ = -1;
  std::string out_, err_;
};

TEST_F(ConsoleTest, EndMessageSyntaxRunsCommandByCommandAfterTheUsersCommand) {
  script_.endSyntax =
      "GENOSTAT /PRINT SAMPLE_COUNT=2\n   /JOB NAME='x'.\n"
      "GET DATA /TYPE=TXT /FILE='/tmp/z/1.csv'.\n"
      "DATASET NAME x.\n";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 0) << err_;
  ASSERT_EQ(script_.commands.size(), 2u);
  EXPECT_EQ(script_.commands[0], "GENOSTAT /JOB NAME='x'");
  EXPECT_EQ(script_.commands[1], "GENOSTAT /PRINT SAMPLE_COUNT=2\n   /JOB NAME='x'");
  EXPECT_EQ(out_,
            "Job x queued.\n"
            "Job x started.\n"
            "Job x ended; running its syntax.\n"
            "GET DATA: command not available in this console yet\n"
            "DATASET NAME: command not available in this console yet\n");
  EXPECT_EQ(err_, "");
  auto lines = eventLines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], R"({"event":"job_start","job":"x","started":false})");
  EXPECT_EQ(lines[1], R"({"event":"job_start","job":"x","started":true})");
  EXPECT_EQ(lines[2],
            R"({"event":"job_end","job":"x","syntax":"GENOSTAT /PRINT SAMPLE_COUNT=2\n   /JOB )"
            R"(NAME='x'.\nGET DATA /TYPE=TXT /FILE='/tmp/z/1.csv'.\nDATASET NAME x.\n",)"
            R"("csv":"/tmp/z/1.csv","workbook":3,"paragraph":4})");
}

TEST_F(ConsoleTest, AnErrorInAJobsSyntaxFailsTheRunAndNamesTheJobsLine) {
  script_.endSyntax = "GENOSTAT /PRINT.\n\nGENOSTAT /DELETE FILE='/tmp/z/1.csv'.\n";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 1);
  EXPECT_EQ(err_, "job x:3: GENOSTAT: delete refused\n");
  auto lines = eventLines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), R"({"event":"error","command":"GENOSTAT","text":"delete refused"})");
}

TEST_F(ConsoleTest, AJobTheModuleDroppedWithoutAnEndIsReportedNotAwaited) {
  script_.sendEnd = false;
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 1);
  EXPECT_EQ(err_, "job x: GENOSTAT: the job ended without an end message\n");
  EXPECT_TRUE(script_.cancels.empty());
}

TEST_F(ConsoleTest, NoWaitCancelsStartedJobsFromTheClientThread) {
  script_.sendEnd = false;
  options_.waitForJobs = false;
  std::thread::id mainThread = std::this_thread::get_id();
  static std::thread::id cancelThread;
  module_.cancel = [](GenoStatAlgoManager*, const char* name) {
    cancelThread = std::this_thread::get_id();
    g_script->cancels.push_back(name);
    return true;
  };
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 0) << err_;
  EXPECT_EQ(script_.cancels, std::vector<std::string>{"x"});
  EXPECT_NE(cancelThread, mainThread);
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
  script_.endSyntax = "GENOSTAT /PRINT.\n";
  EXPECT_EQ(run("GENOSTAT /JOB NAME='x'."), 0) << err_;
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], options_.metadataJson);
  EXPECT_EQ(seen[1], "");  // the job's /PRINT is not the user's command
}

}  // namespace
}  // namespace zorv
