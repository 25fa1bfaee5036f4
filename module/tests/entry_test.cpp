// GENOSTAT as the host calls it: command text in; errors, queue, client messages and output out.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "entry_test_support.h"
#include "jobs/GenoStatAlgoManager.h"
#include "results/PostJobSyntax.h"
#include "zorvhost/client.h"
#include "zorvhost/output.h"

namespace {

using Peer = GenoStatAlgoManagerTestPeer;

const char kQueueFull[] = "Job queue threshold exceeded. Maximum allowed jobs in queue is : 10";
const char kCommandLine[] =
    "GENOSTAT procedure is not supported in command-line mode. Please use the interactive ZORV Statistics "
    "client.";

class EntryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zorvhost::takeCommandErrors();
    zorvhost::closeAllDatasets();
    zorvhost::setMetadataJson("");
    fastq_ = dir_.write("a.fq", "@r1\nACGT\n+\nIIII\n");
  }
  void TearDown() override {
    zorvhost::closeAllDatasets();
    zorvhost::setMetadataJson("");
  }

  // Runs one command; returns the texts of the errors it reported.
  std::vector<std::string> run(const std::string& text) {
    zorvhost::setCommandText(text);
    GENOSTAT();
    std::vector<std::string> texts;
    for (const auto& e : zorvhost::takeCommandErrors()) texts.push_back(e.text);
    return texts;
  }
  // Runs a command that must succeed.
  void ok(const std::string& text) { EXPECT_EQ(run(text), std::vector<std::string>{}) << text; }
  // Runs a command that must fail with exactly `error` and queue nothing.
  void refused(const std::string& text, const std::string& error) {
    const std::size_t before = queued().size();
    EXPECT_EQ(run(text), std::vector<std::string>{error}) << text;
    EXPECT_EQ(queued().size(), before) << text;
  }
  std::string submit(const std::string& name) {
    return "GENOSTAT /JOB FILE='" + fastq_ + "' NAME='" + name + "'.";
  }
  std::vector<std::string> queued() {
    std::vector<std::string> names;
    for (const GenoJobSettings* job : Peer::queuedJobs(instance_.manager())) names.push_back(job->jobName);
    return names;
  }
  // Runs a command and returns the tables it showed in the host's output, each as
  // "Title: row=value, row=value", joined by " | "; empty when it showed none.
  std::string printed(const std::string& text) {
    std::vector<zorvhost::OutputTable> tables;
    zorvhost::setOutputHandler([&tables](const zorvhost::OutputTable& table) { tables.push_back(table); });
    std::vector<std::string> errors = run(text);
    zorvhost::setOutputHandler(nullptr);
    EXPECT_EQ(errors, std::vector<std::string>{}) << text;
    std::string out;
    for (const auto& table : tables) {
      if (!out.empty()) out += " | ";
      out += table.title + ":";
      for (std::size_t row = 0; row < table.rowLabels.size(); ++row) {
        out += (row == 0 ? " " : ", ") + table.rowLabels[row] + "=";
        if (row < table.cells.size()) {
          for (std::size_t col = 0; col < table.cells[row].size(); ++col) {
            out += (col == 0 ? "" : " ") + table.cells[row][col];
          }
        }
      }
    }
    return out;
  }

  entry_test::ScratchFolder dir_;
  std::string fastq_;
  entry_test::Client client_;
  entry_test::ManagerScope instance_;
};

// ---- submitting ----------------------------------------------------------------------------

TEST_F(EntryTest, SubmitQueuesTheRecordAndTellsTheClient) {
  zorvhost::setMetadataJson(R"({"job_metadata":{"workbook_id":"3","paragraph_id":"9"}})");
  ok("GENOSTAT /JOB FILE='" + fastq_ + "' NAME='run 1' ADAPTERS=CUSTOM(acgt) /DESCRIPTIVES VARIABLES=GC.");
  const auto jobs = Peer::queuedJobs(instance_.manager());
  ASSERT_EQ(jobs.size(), 1u);
  const GenoJobSettings* job = jobs.front();
  EXPECT_EQ(job->jobName, "run 1");
  EXPECT_EQ(job->fastqFiles, std::vector<std::string>{fastq_});
  EXPECT_EQ(job->customAdapterSequence, "ACGT");
  EXPECT_EQ(job->adapterType, AdapterType::CUSTOM);
  ASSERT_NE(job->descriptives, nullptr);
  EXPECT_EQ(job->workbookId, 3);
  EXPECT_EQ(job->paragraphId, 9);
  EXPECT_EQ(job->jobStatus.load(), JobStatus::Pending);
  EXPECT_EQ(zorvhost::takeCommandErrors().size(), 0u);

  const auto messages = client_.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].id, kZorvwMsgStartGenomicProcessingId);
  EXPECT_EQ(messages[0].jobName, "run 1");
  EXPECT_FALSE(messages[0].started);
}

TEST_F(EntryTest, FailedCommandsQueueNothingAndSendNothing) {
  refused("GENOSTAT /JOB FILE='" + dir_.file("none.fq") + "' NAME='x'.", "File not found: " + dir_.file("none.fq"));
  EXPECT_EQ(run("GENOSTAT /JOB NAME=.").size(), 1u);  // the parser's error
  EXPECT_TRUE(queued().empty());
  EXPECT_TRUE(client_.messages().empty());
}

TEST_F(EntryTest, NamesDifferingInCaseAreDifferentJobs) {
  ok(submit("Run"));
  ok(submit("run"));
  refused(submit("Run"), "Duplicate job name");
  EXPECT_EQ(queued(), (std::vector<std::string>{"Run", "run"}));
  // A cancelled job waiting in the queue no longer holds its name.
  ASSERT_TRUE(instance_.manager().cancelJob("Run"));
  ok(submit("Run"));
}

TEST_F(EntryTest, JobNameLengthAndReservedWords) {
  ok(submit(std::string(255, 'n')));
  refused(submit(std::string(256, 'n')), "Invalid job name");
  for (const char* reserved : {"*", "ALL", "LT", "WITH"}) refused(submit(reserved), "Invalid job name");
  for (const char* fine : {"all", "Lt", "with", "auto", "ALL2", "a b"}) ok(submit(fine));
}

TEST_F(EntryTest, OpenDatasetsBlockTheirNamesInAnyCase) {
  zorvhost::openDataset("DATA");
  refused(submit("Data"), "Duplicate job name");
  refused(submit("data"), "Duplicate job name");
  ok(submit("data2"));
  zorvhost::closeDataset("DATA");
  ok(submit("Data"));
}

TEST_F(EntryTest, AutomaticNames) {
  ok(submit("AUTO"));
  zorvhost::openDataset("GENOMIC_ANALYSIS_JOB_2");
  ok(submit("AUTO"));
  ok(submit("AUTO"));
  EXPECT_EQ(queued(), (std::vector<std::string>{"Genomic_analysis_job_1", "Genomic_analysis_job_3",
                                                "Genomic_analysis_job_4"}));
}

TEST_F(EntryTest, AutoGeneratesEvenInAPrintCommand) {
  const std::string out = printed("GENOSTAT /JOB NAME='AUTO' /PRINT SAMPLE_COUNT=2 MESSAGE=100.");
  EXPECT_NE(out.find("Dataset=Genomic_analysis_job_1"), std::string::npos) << out;
}

TEST_F(EntryTest, ExhaustedAutomaticNamesReadAsCode20) {
  for (int n = 1; n <= 100; ++n) zorvhost::openDataset("Genomic_analysis_job_" + std::to_string(n));
  refused(submit("AUTO"),
          "Error generating automatic job name: Maximum limit for automatic job names exceeded. It should not "
          "be more than 100");
}

TEST_F(EntryTest, FailureAfterHandingOnStaysInsideTheModule) {
  // A client that fails while being told of the queued job: the exception must not reach the
  // host's C caller; the user reads code 0's text and the manager keeps the record it was given.
  zorvhost::attachClient(true, [](int32_t, const void*) { throw std::runtime_error("client is gone"); });
  EXPECT_EQ(run(submit("kept")), std::vector<std::string>{"Unknown error occurred"});
  EXPECT_EQ(queued(), std::vector<std::string>{"kept"});
  zorvhost::detachClient();
  refused(submit("kept"), "Duplicate job name");
}

// ---- pre-checks ----------------------------------------------------------------------------

TEST_F(EntryTest, CommandLineModeRefusesEveryCommand) {
  entry_test::Client batch(false);
  refused(submit("x"), kCommandLine);
  refused("GENOSTAT /PRINT.", kCommandLine);
  refused("GENOSTAT /DELETE FILE='" + fastq_ + "'.", kCommandLine);
  EXPECT_TRUE(entry_test::exists(fastq_));
  EXPECT_TRUE(batch.messages().empty());
}

TEST_F(EntryTest, WithoutAnyClientTheCommandRuns) {
  zorvhost::detachClient();
  ok(submit("quiet"));
  EXPECT_EQ(queued(), std::vector<std::string>{"quiet"});
}

TEST_F(EntryTest, TenQueuedJobsFillTheQueue) {
  for (int i = 1; i <= 9; ++i) ok(submit("job" + std::to_string(i)));
  ok(submit("job10"));
  const std::string csv = dir_.write("r.csv", "x\n");
  testing::internal::CaptureStdout();
  refused(submit("job11"), kQueueFull);
  refused("GENOSTAT /PRINT SAMPLE_COUNT=1.", kQueueFull);
  refused("GENOSTAT /DELETE FILE='" + csv + "'.", kQueueFull);
  refused("GENOSTAT /JOB NAME='AUTO'.", kQueueFull);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(entry_test::exists(csv));
  EXPECT_EQ(queued().size(), 10u);
  // Cancelled jobs stay in the queue until the worker drops them, so they still count.
  EXPECT_TRUE(instance_.manager().cancelJob("job1"));
  refused(submit("job11"), kQueueFull);
}

TEST_F(EntryTest, QueueCheckNeedsNoManager) {
  GenoStatAlgoManager* mine = Peer::setInstance(nullptr);
  // With no manager, no queue can be full; the check must not create one either.
  EXPECT_EQ(run("GENOSTAT /DESCRIPTIVES /PRINT."), std::vector<std::string>{});
  Peer::setInstance(mine);
}

// ---- print and delete ----------------------------------------------------------------------

TEST_F(EntryTest, PrintShowsTheSummaryAndQueuesNothing) {
  EXPECT_EQ(printed("GENOSTAT /JOB FILE='' NAME='my_run' /PRINT SAMPLE_COUNT=4 VARIABLE_COUNT=25 MESSAGE=100."),
            "Summary: Samples=4, Variables=25 | Details: Message=Valid:4 fastQ file(s) detected., Dataset=my_run");
  EXPECT_TRUE(queued().empty());
  EXPECT_TRUE(client_.messages().empty());
}

TEST_F(EntryTest, PrintMessagesByCode) {
  EXPECT_EQ(printed("GENOSTAT /PRINT."),
            "Summary: Samples=0, Variables=0 | Details: Message=Unknown error occurred, Dataset=None");
  EXPECT_EQ(printed("GENOSTAT /JOB NAME='j' /PRINT MESSAGE=101."),
            "Summary: Samples=0, Variables=0 | Details: Message=Error:Generic Error., Dataset=None");
  EXPECT_EQ(printed("GENOSTAT /JOB NAME='j' /PRINT SAMPLE_COUNT=-1 MESSAGE=202."),
            "Summary: Samples=-1, Variables=0 | Details: Message=File not found:{{FILE_PATH}}, Dataset=None");
  EXPECT_EQ(printed("GENOSTAT /JOB NAME='j' /PRINT SAMPLE_COUNT=1 MESSAGE=203."),
            "Summary: Samples=1, Variables=0 | Details: Message=Invalid JSON configuration, Dataset=j");
}

TEST_F(EntryTest, DeleteRemovesTheFileOnlyOnce) {
  const std::string csv = dir_.write("1731721138.csv", "a,b\n");
  ok("GENOSTAT /JOB FILE='' NAME='x' /DELETE FILE='" + csv + "'.");
  EXPECT_FALSE(entry_test::exists(csv));
  ok("GENOSTAT /DELETE FILE='" + csv + "'.");
  ok("GENOSTAT /DELETE FILE='" + dir_.path() + "'.");
  EXPECT_TRUE(entry_test::exists(dir_.path()));
  EXPECT_TRUE(queued().empty());
}

TEST_F(EntryTest, PrintAndDeleteTogetherOnlyDelete) {
  const std::string csv = dir_.write("r.csv", "a\n");
  EXPECT_EQ(printed("GENOSTAT /PRINT SAMPLE_COUNT=3 /DELETE FILE='" + csv + "'."), "");
  EXPECT_FALSE(entry_test::exists(csv));
}

// ---- the post-job syntax comes back in ------------------------------------------------------

// The GENOSTAT commands of a post-job syntax text, each from its "GENOSTAT" line to its period.
std::vector<std::string> genostatCommands(const std::string& syntax) {
  std::vector<std::string> commands;
  std::size_t pos = 0;
  while ((pos = syntax.find("GENOSTAT\n", pos)) != std::string::npos) {
    const std::size_t end = syntax.find(".\n", pos);
    commands.push_back(syntax.substr(pos, end == std::string::npos ? std::string::npos : end + 1 - pos));
    pos += 9;
  }
  return commands;
}

TEST_F(EntryTest, PostJobCommandsParseAsPrintAndDelete) {
  GenoJobSettings job;
  job.jobName = "my run 1";
  job.csvFilePath = dir_.write("1731721138.csv", "Sample,Adapter_Type,GC\ns1,NONE,40\n");
  job.sampleCount = 1;
  job.variableCount = 1;
  job.messageCode = 100;
  job.descriptivesOptions(true);
  const std::string syntax = Peer::preparePostJobSyntax(&job, false);
  const std::vector<std::string> commands = genostatCommands(syntax + "\n");
  ASSERT_EQ(commands.size(), 2u) << syntax;

  EXPECT_EQ(printed(commands[0]),
            "Summary: Samples=1, Variables=1 | Details: Message=Valid:1 fastQ file(s) detected., Dataset=my_run_1");
  EXPECT_TRUE(entry_test::exists(job.csvFilePath));
  EXPECT_EQ(printed(commands[1]), "");
  EXPECT_FALSE(entry_test::exists(job.csvFilePath));
  EXPECT_TRUE(queued().empty());
  EXPECT_TRUE(client_.messages().empty());
}

TEST_F(EntryTest, FailedJobSyntaxIsOnePrintCommand) {
  GenoJobSettings job;
  job.jobName = "bad job";
  job.sampleCount = 0;
  job.variableCount = 0;
  job.messageCode = 208;
  const std::vector<std::string> commands = genostatCommands(Peer::preparePostJobSyntax(&job, true));
  ASSERT_EQ(commands.size(), 1u);
  EXPECT_EQ(printed(commands[0]),
            "Summary: Samples=0, Variables=0 | Details: Message=No FASTQ files found to process "
            "in{{FOLDER_PATH}}, Dataset=None");
}

}  // namespace
