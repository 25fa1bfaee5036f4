// GENOSTAT as the host calls it, and the pieces beneath: the command error's texts, the job
// record and the host's job metadata, the interpreters that fill the record from the parser.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "entry/GenoStatCommand.h"
#include "entry/GenomicParserException.h"
#include "host/control.h"
#include "host/tokens.h"
#include "module_test_support.h"

namespace mt {
namespace {

const char kQueueFull[] = "Job queue threshold exceeded. Maximum allowed jobs in queue is : 10";
const char kCommandLine[] =
    "GENOSTAT procedure is not supported in command-line mode. Please use the interactive ZORV Statistics "
    "client.";

// ---- the command error -----------------------------------------------------------------------

TEST(CommandError, EveryCodeHasItsTextAndOthersAreUnspecified) {
  const char* expected[] = {
      "Unknown error occurred",
      "Syntax error in command",
      "Invalid command",
      "Missing required parameter",
      "Invalid parameter value",
      "File not found",
      "Invalid file path",
      "Invalid folder path",
      "Error processing FASTQ file",
      "Invalid adapter type",
      "Missing custom adapter sequence",
      "Invalid variable name",
      "Duplicate variable name",
      "Invalid numeric value",
      "Value out of range",
      "Job queue threshold exceeded. Maximum allowed jobs in queue is ",
      "Maximum limit for automatic job names exceeded. It should not be more than 100",
      "Invalid job name",
      "Duplicate job name",
      kCommandLine,
      "Error generating automatic job name",
      "Incompatible parameters",
      "Mutually exclusive parameters",
  };
  for (uint32_t code = 0; code < sizeof(expected) / sizeof(expected[0]); ++code) {
    SCOPED_TRACE(code);
    EXPECT_STREQ(GenomicParserException(code).what(), expected[code]);
    EXPECT_STREQ(GenomicParserException(code, "").what(), expected[code]) << "an empty detail adds no colon";
    EXPECT_EQ(GenomicParserException(code).code(), code);
  }
  for (uint32_t code : {23u, 100u, 0xFFFFFFFFu}) {
    EXPECT_STREQ(GenomicParserException(code).what(), "Unspecified error");
    EXPECT_STREQ(GenomicParserException(code, "x").what(), "Unspecified error: x");
  }
  EXPECT_STREQ(GenomicParserException(5, "/data/a.fq").what(), "File not found: /data/a.fq");
}

TEST(CommandError, CopiesOwnTheirText) {
  GenomicParserException copy(0);
  {
    GenomicParserException original(8, std::string(200, 'p'));
    copy = original;
  }
  EXPECT_EQ(std::strlen(copy.what()), std::strlen("Error processing FASTQ file: ") + 200);
  EXPECT_EQ(copy.code(), 8u);
}

// ---- the record and the host's job metadata ---------------------------------------------------

TEST(Record, MetadataIdsAreReadFromStringsAndTheHostCopyIsUsedOnce) {
  struct Case {
    const char* json;
    int32_t workbook;
    int32_t paragraph;
  };
  const Case cases[] = {
      {"", -1, -1},
      {R"({"job_metadata":{"workbook_id":"12","paragraph_id":"-3x"}})", 12, -3},  // atoi stops at 'x'
      {R"({"job_metadata":{"workbook_id":7,"paragraph_id":"8"}})", -1, 8},
      {R"({"job_metadata":{"workbook_id":null,"paragraph_id":true}})", -1, -1},
      {R"({"job_metadata":"{\"workbook_id\":\"1\"}"})", -1, -1},
      {R"({"workbook_id":"1","paragraph_id":"2"})", -1, -1},
      {R"([{"job_metadata":{"workbook_id":"1"}}])", -1, -1},
      {R"({"job_metadata":{"workbook_id":"1")", -1, -1},
      {"not json", -1, -1},
      {R"({"job_metadata":{"workbook_id":"abc"}})", 0, -1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    zorvhost::setMetadataJson(c.json);
    GenoJobSettings r;
    EXPECT_EQ(r.workbookId, c.workbook);
    EXPECT_EQ(r.paragraphId, c.paragraph);
    EXPECT_EQ(r.metadataJson, c.json);
    EXPECT_EQ(GetMetaDataJson(), "");  // used for one command only
    GenoJobSettings next;
    EXPECT_EQ(next.workbookId, -1);
    EXPECT_TRUE(next.metadataJson.empty());
  }
}

TEST(Record, OptionsAreCreatedOnRequestOnlyAndCustomSequenceMeansCustom) {
  GenoJobSettings r;
  EXPECT_EQ(r.descriptivesOptions(false), nullptr);
  EXPECT_EQ(r.frequenciesOptions(false), nullptr);
  EXPECT_EQ(r.correlationsOptions(false), nullptr);
  EXPECT_EQ(r.regressionOptions(false), nullptr);
  DescriptivesOptions* d = r.descriptivesOptions(true);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(r.descriptivesOptions(true), d);
  EXPECT_EQ(r.descriptivesOptions(false), d);
  const void* made[] = {r.frequenciesOptions(true), r.correlationsOptions(true), r.regressionOptions(true)};
  EXPECT_EQ(made[0], r.frequenciesOptions(false));
  EXPECT_EQ(made[1], r.correlationsOptions(false));
  EXPECT_EQ(made[2], r.regressionOptions(false));

  r.adapterType = AdapterType::NEXTERA;
  r.setCustomAdapterSequence("");  // even an empty sequence means CUSTOM
  EXPECT_EQ(r.adapterType, AdapterType::CUSTOM);
}

// ---- the interpreters, driven through the real parser ------------------------------------------

class InterpretersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zorvhost::takeCommandErrors();
    zorvhost::closeAllDatasets();
    fastq_ = dir_.write("a.fq", "@r1\nACGT\n+\nIIII\n");
  }
  void TearDown() override { zorvhost::closeAllDatasets(); }

  // Parses `text` into `record_` (a fresh one); returns the texts of the errors reported.
  Texts interpret(const std::string& text, GenoJobSettings* record = nullptr) {
    record_ = std::make_unique<GenoJobSettings>();
    zorvhost::setCommandText(text);
    ZORV_TokenSequence tokens(true);
    GenoStatCommand command(&tokens, record != nullptr ? record : record_.get());
    command.parseAndInterpret();
    failed_ = command.parseFailed();
    Texts texts;
    for (const auto& e : zorvhost::takeCommandErrors()) texts.push_back(e.text);
    return texts;
  }
  void expectClean(const std::string& text) {
    EXPECT_EQ(interpret(text), Texts{}) << text;
    EXPECT_FALSE(failed_) << text;
  }

  ScratchFolder dir_;
  std::string fastq_;
  Client client_;
  ManagerScope instance_;
  std::unique_ptr<GenoJobSettings> record_;
  bool failed_ = false;
};

TEST_F(InterpretersTest, JobFillsTheRecordInSubmitMode) {
  // A UTF-8 name, as the command text carries it, reaches the file check as UTF-8.
  const std::string second = dir_.write("b-\xc3\xa9" "chantillon-\xe6\x97\xa5.fq", "@r\nA\n+\nI\n");
  expectClean("GENOSTAT /JOB FILE='" + fastq_ + "' '" + second + "' FOLDER='" + dir_.path() +
              "' NAME='run one' ADAPTERS=ILLUMINA.");
  EXPECT_EQ(record_->mode, JobMode::Submit);
  EXPECT_EQ(record_->fastqFiles, (Texts{fastq_, second}));
  EXPECT_EQ(record_->fastqFolder, dir_.path());
  EXPECT_EQ(record_->jobName, "run one");
  EXPECT_EQ(record_->adapterType, AdapterType::ILLUMINA);
  EXPECT_EQ(record_->descriptives, nullptr);
  EXPECT_EQ(record_->sampleCount, -1);  // untouched without PRINT
}

TEST_F(InterpretersTest, BadInputFilesStopTheCommandBeforeLaterSubcommands) {
  const std::string missing = dir_.file("missing.fq");
  EXPECT_EQ(interpret("GENOSTAT /JOB FILE='" + fastq_ + "' '" + missing + "' NAME='x' /DESCRIPTIVES."),
            Texts{"File not found: " + missing});
  EXPECT_TRUE(failed_);
  EXPECT_TRUE(record_->fastqFiles.empty());  // the first file passed, but nothing is stored
  EXPECT_TRUE(record_->jobName.empty());
  EXPECT_EQ(record_->descriptives, nullptr);
  const std::string empty = dir_.write("empty.fq", "");
  EXPECT_EQ(interpret("GENOSTAT /JOB FILE='" + empty + "'."), Texts{"Error processing FASTQ file: " + empty});
  EXPECT_EQ(interpret("GENOSTAT /JOB FILE='" + dir_.path() + "'."), Texts{"File not found: " + dir_.path()});
  EXPECT_TRUE(failed_);
}

TEST_F(InterpretersTest, PrintReadsCountsAndSkipsFileAndNameChecksDeleteWinsOverPrint) {
  expectClean("GENOSTAT /JOB FILE='" + dir_.file("gone.fq") +
              "' NAME='ALL' FOLDER='/x' /PRINT SAMPLE_COUNT=4 VARIABLE_COUNT=-2 MESSAGE=203.");
  EXPECT_EQ(record_->mode, JobMode::Print);
  EXPECT_EQ(record_->sampleCount, 4);
  EXPECT_EQ(record_->variableCount, -2);
  EXPECT_EQ(record_->messageCode, 203);
  EXPECT_EQ(record_->jobName, "ALL");
  EXPECT_TRUE(record_->fastqFiles.empty());
  EXPECT_TRUE(record_->fastqFolder.empty());

  expectClean("GENOSTAT /PRINT SAMPLE_COUNT=1 /DELETE FILE='/tmp/x.csv'.");
  EXPECT_EQ(record_->mode, JobMode::Delete);
  EXPECT_EQ(record_->csvFilePath, "/tmp/x.csv");
  EXPECT_EQ(record_->sampleCount, 1);
  expectClean("GENOSTAT /DELETE.");
  EXPECT_EQ(record_->mode, JobMode::Delete);
  EXPECT_TRUE(record_->csvFilePath.empty());
}

TEST_F(InterpretersTest, AnalysesWithEveryOption) {
  expectClean(
      "GENOSTAT /DESCRIPTIVES VARIABLES=GC qc_score SKEWNESS KURTOSIS"
      " /FREQUENCIES VARIABLES=GC NTILES=10 PERCENTILES=5 95.5 HISTOGRAM QUARTILES"
      " /CORRELATIONS VARIABLES=GC Total_Sequences PEARSON=FALSE SPEARMAN KENDALL TWOTAIL ONETAIL"
      " /REGRESSION DEPENDENT=qc_score INDEPENDENT=GC mean_phred_all_reads METHOD=STEPWISE CI=90.5"
      " NORMALPROBABILITYPLOT.");
  ASSERT_NE(record_->descriptives, nullptr);
  EXPECT_EQ(record_->descriptives->variables, (Texts{"GC", "qc_score"}));
  EXPECT_TRUE(record_->descriptives->skewness && record_->descriptives->kurtosis);
  ASSERT_NE(record_->frequencies, nullptr);
  EXPECT_EQ(record_->frequencies->variables, Texts{"GC"});
  EXPECT_EQ(record_->frequencies->ntiles, 10);
  EXPECT_EQ(record_->frequencies->percentiles, (std::vector<double>{5, 95.5}));
  EXPECT_TRUE(record_->frequencies->histogram && record_->frequencies->quartiles);
  ASSERT_NE(record_->correlations, nullptr);
  EXPECT_EQ(record_->correlations->variables, (Texts{"GC", "Total_Sequences"}));
  EXPECT_FALSE(record_->correlations->pearson);
  EXPECT_TRUE(record_->correlations->spearman && record_->correlations->kendall);
  EXPECT_TRUE(record_->correlations->twoTail && record_->correlations->oneTail);
  ASSERT_NE(record_->regression, nullptr);
  EXPECT_EQ(record_->regression->dependent, "qc_score");
  EXPECT_EQ(record_->regression->independent, (Texts{"GC", "mean_phred_all_reads"}));
  EXPECT_EQ(record_->regression->method, RegressionMethod::STEPWISE);
  EXPECT_EQ(record_->regression->confidenceInterval, "90.500000");
  EXPECT_TRUE(record_->regression->normalProbabilityPlot);
  EXPECT_FALSE(record_->regression->reservedFlag);
}

TEST_F(InterpretersTest, AnalysisDefaults) {
  expectClean("GENOSTAT /DESCRIPTIVES /CORRELATIONS VARIABLES=GC /REGRESSION DEPENDENT=GC CI=95.");
  ASSERT_NE(record_->descriptives, nullptr);
  EXPECT_TRUE(record_->descriptives->variables.empty());
  EXPECT_FALSE(record_->descriptives->skewness || record_->descriptives->kurtosis);
  EXPECT_EQ(record_->frequencies, nullptr);
  ASSERT_NE(record_->correlations, nullptr);
  EXPECT_TRUE(record_->correlations->pearson);  // Pearson stays on unless switched off
  EXPECT_FALSE(record_->correlations->spearman || record_->correlations->kendall);
  ASSERT_NE(record_->regression, nullptr);
  EXPECT_EQ(record_->regression->method, RegressionMethod::ENTER);
  EXPECT_EQ(record_->regression->confidenceInterval, "95.000000");
  EXPECT_TRUE(record_->regression->independent.empty());
  expectClean("GENOSTAT /CORRELATIONS PEARSON=TRUE.");
  EXPECT_TRUE(record_->correlations->pearson);
}

TEST_F(InterpretersTest, GrammarErrorsRunNoInterpreterAndANullRecordIsOnlyParsed) {
  EXPECT_EQ(interpret("GENOSTAT /DESCRIPTIVES /CORRELATIONS PEARSON=MAYBE.").size(), 1u);  // the parser's own
  EXPECT_TRUE(failed_);
  EXPECT_EQ(record_->descriptives, nullptr);
  for (const char* bad : {"GENOSTAT /REGRESSION METHOD=REMOVE.", "GENOSTAT /JOB ADAPTERS=TRUSEQ.",
                          "GENOSTAT /BOGUS.", "GENOSTAT /PRINT SAMPLE_COUNT='x'.", "GENOSTAT /DESCRIPTIVES WIDTH."}) {
    EXPECT_EQ(interpret(bad).size(), 1u) << bad;
    EXPECT_TRUE(failed_) << bad;
  }
  zorvhost::setCommandText("GENOSTAT /JOB NAME='ALL' FILE='/no/such/file' /PRINT.");
  ZORV_TokenSequence tokens(true);
  GenoStatCommand command(&tokens, nullptr);
  command.parseAndInterpret();
  EXPECT_FALSE(command.parseFailed());
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty());
}

// ---- GENOSTAT from command text to queue, client and output ------------------------------------

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
  void ok(const std::string& text) { EXPECT_EQ(runCommand(text), Texts{}) << text; }
  // Runs a command that must fail with exactly `error` and queue nothing.
  void refused(const std::string& text, const std::string& error) {
    const std::size_t before = queued().size();
    EXPECT_EQ(runCommand(text), Texts{error}) << text;
    EXPECT_EQ(queued().size(), before) << text;
  }
  std::string submit(const std::string& name) { return "GENOSTAT /JOB FILE='" + fastq_ + "' NAME='" + name + "'."; }
  Texts queued() {
    Texts names;
    for (const GenoJobSettings* job : Peer::queuedJobs(instance_.manager())) names.push_back(job->jobName);
    return names;
  }

  ScratchFolder dir_;
  std::string fastq_;
  Client client_;
  ManagerScope instance_;
};

TEST_F(EntryTest, SubmitQueuesTheRecordAndTellsTheClient) {
  zorvhost::setMetadataJson(R"({"job_metadata":{"workbook_id":"3","paragraph_id":"9"}})");
  ok("GENOSTAT /JOB FILE='" + fastq_ + "' NAME='run 1' ADAPTERS=CUSTOM(acgt) /DESCRIPTIVES VARIABLES=GC.");
  const auto jobs = Peer::queuedJobs(instance_.manager());
  ASSERT_EQ(jobs.size(), 1u);
  const GenoJobSettings* job = jobs.front();
  EXPECT_EQ(job->jobName, "run 1");
  EXPECT_EQ(job->fastqFiles, Texts{fastq_});
  EXPECT_EQ(job->customAdapterSequence, "ACGT");
  EXPECT_EQ(job->adapterType, AdapterType::CUSTOM);
  ASSERT_NE(job->descriptives, nullptr);
  EXPECT_EQ(job->workbookId, 3);
  EXPECT_EQ(job->paragraphId, 9);
  const auto messages = client_.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].id, kStartId);
  EXPECT_EQ(messages[0].jobName, "run 1");
  EXPECT_FALSE(messages[0].started);
}

TEST_F(EntryTest, RefusedCommandsQueueNothingAndSendNothing) {
  refused("GENOSTAT /JOB FILE='" + dir_.file("none.fq") + "' NAME='x'.", "File not found: " + dir_.file("none.fq"));
  EXPECT_EQ(runCommand("GENOSTAT /JOB NAME=.").size(), 1u);  // the parser's error
  ok(submit(std::string(255, 'n')));
  refused(submit(std::string(256, 'n')), "Invalid job name");
  for (const char* reserved : {"*", "ALL", "LT", "WITH"}) refused(submit(reserved), "Invalid job name");
  EXPECT_EQ(client_.messages().size(), 1u) << "only the 255-byte name was queued";
  for (const char* fine : {"all", "Lt", "with", "auto", "ALL2", "a b"}) ok(submit(fine));
}

TEST_F(EntryTest, JobNamesAreCaseSensitiveDatasetNamesAreNot) {
  ok(submit("Run"));
  ok(submit("run"));
  refused(submit("Run"), "Duplicate job name");
  EXPECT_EQ(queued(), (Texts{"Run", "run"}));
  // A cancelled job waiting in the queue no longer holds its name.
  ASSERT_TRUE(instance_.manager().cancelJob("Run"));
  ok(submit("Run"));

  zorvhost::openDataset("DATA");
  refused(submit("Data"), "Duplicate job name");
  refused(submit("data"), "Duplicate job name");
  ok(submit("data2"));
  zorvhost::closeDataset("DATA");
  ok(submit("Data"));
}

TEST_F(EntryTest, AutomaticNamesEvenInAPrintAndTheirExhaustion) {
  ok(submit("AUTO"));
  zorvhost::openDataset("GENOMIC_ANALYSIS_JOB_2");
  ok(submit("AUTO"));
  ok(submit("AUTO"));
  EXPECT_EQ(queued(), (Texts{"Genomic_analysis_job_1", "Genomic_analysis_job_3", "Genomic_analysis_job_4"}));
  const std::string out = printed("GENOSTAT /JOB NAME='AUTO' /PRINT SAMPLE_COUNT=2 MESSAGE=100.");
  EXPECT_NE(out.find("Dataset=Genomic_analysis_job_5"), std::string::npos) << out;

  for (int n = 1; n <= 100; ++n) zorvhost::openDataset("Genomic_analysis_job_" + std::to_string(n));
  refused(submit("AUTO"),
          "Error generating automatic job name: Maximum limit for automatic job names exceeded. It should not "
          "be more than 100");
}

TEST_F(EntryTest, QueuedMessageThatThrowsLeavesNoOrphanJobSoTheRetryRuns) {
  // A client that fails while being told of the queued job: the exception must not reach the
  // host's C caller, and the user, told the command failed, must be able to submit it again.
  zorvhost::attachClient(true, [](int32_t, const void*) { throw std::runtime_error("client is gone"); });
  EXPECT_EQ(runCommand(submit("kept")), Texts{"Unknown error occurred"});
  EXPECT_TRUE(queued().empty());
  zorvhost::detachClient();
  ok(submit("kept"));
  EXPECT_EQ(queued(), Texts{"kept"});
}

TEST_F(EntryTest, NameTheJobsSyntaxCouldNotCarryIsRefusedUpFrontAndNoNameGetsAnAutomaticOne) {
  // Before, these passed and broke the job's DATASET NAME after its whole analysis had run.
  refused(submit("run-2024-w12"),
          "Invalid job name: 'run-2024-w12' cannot name the job's dataset: it holds '-'; a dataset name holds "
          "only letters, digits and _ . @ # $ (blanks become _). NAME='run_2024_w12' would work");
  refused("GENOSTAT /JOB FILE='" + fastq_ + "' NAME='Bob''s run'.",
          "Invalid job name: 'Bob's run' cannot name the job's dataset: it holds an apostrophe, which would end "
          "the quoted name in the job's commands. NAME='Bobs_run' would work");
  ok("GENOSTAT /JOB FILE='" + fastq_ + "'.");
  EXPECT_EQ(queued(), Texts{"Genomic_analysis_job_1"});
}

TEST_F(EntryTest, FileListTooLongForTheLaunchIsRefusedUpFrontSuggestingFolder) {
  // Before, it was queued and failed after the fact (POSIX: exit 127, "Unknown error occurred";
  // Windows: cmd.exe's line cut short).
  std::string files;
  for (int i = 0; i < 3000; ++i) files += " '" + fastq_ + "'";
  const Texts errors = runCommand("GENOSTAT /JOB FILE=" + files + " NAME='many'.");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].rfind("Value out of range: 3000 input files make a command line of ", 0), 0u) << errors[0];
  EXPECT_NE(errors[0].find("FOLDER='...'"), std::string::npos) << errors[0];
  EXPECT_TRUE(queued().empty());
  ok("GENOSTAT /JOB FOLDER='" + dir_.path() + "' NAME='many'.");
}

TEST_F(EntryTest, CommandLineModeRefusesEveryCommandWithoutAnyClientTheyRun) {
  {
    Client batch(false);
    refused(submit("x"), kCommandLine);
    refused("GENOSTAT /PRINT.", kCommandLine);
    refused("GENOSTAT /DELETE FILE='" + fastq_ + "'.", kCommandLine);
    EXPECT_TRUE(exists(fastq_));
    EXPECT_TRUE(batch.messages().empty());
  }
  ok(submit("quiet"));
  EXPECT_EQ(queued(), Texts{"quiet"});
}

TEST_F(EntryTest, TenQueuedJobsRefuseEveryCommand) {
  for (int i = 1; i <= 10; ++i) ok(submit("job" + std::to_string(i)));
  const std::string csv = dir_.write("r.csv", "x\n");
  testing::internal::CaptureStdout();
  refused(submit("job11"), kQueueFull);
  refused("GENOSTAT /PRINT SAMPLE_COUNT=1.", kQueueFull);
  refused("GENOSTAT /DELETE FILE='" + csv + "'.", kQueueFull);
  refused("GENOSTAT /JOB NAME='AUTO'.", kQueueFull);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(exists(csv));
  EXPECT_EQ(queued().size(), 10u);
  // Cancelled jobs stay in the queue until the worker drops them, so they still count.
  EXPECT_TRUE(instance_.manager().cancelJob("job1"));
  refused(submit("job11"), kQueueFull);
}

TEST_F(EntryTest, QueueCheckNeedsNoManager) {
  GenoStatAlgoManager* mine = Peer::setInstance(nullptr);
  // With no manager, no queue can be full; the check must not create one either.
  EXPECT_EQ(runCommand("GENOSTAT /DESCRIPTIVES /PRINT."), Texts{});
  EXPECT_EQ(GenoStatAlgoManager::existingInstance(), nullptr);
  Peer::setInstance(mine);
}

TEST_F(EntryTest, DeleteRemovesTheFileOnlyAndWinsOverPrint) {
  const std::string csv = dir_.write("1731721138.csv", "a,b\n");
  ok("GENOSTAT /JOB FILE='' NAME='x' /DELETE FILE='" + csv + "'.");
  EXPECT_FALSE(exists(csv));
  ok("GENOSTAT /DELETE FILE='" + csv + "'.");  // a second delete finds nothing and says nothing
  ok("GENOSTAT /DELETE FILE='" + dir_.path() + "'.");
  EXPECT_TRUE(exists(dir_.path())) << "folders are not removed";
  ok("GENOSTAT /DELETE FILE=''.");
  const std::string other = dir_.write("r.csv", "a\n");
  EXPECT_EQ(printed("GENOSTAT /PRINT SAMPLE_COUNT=3 /DELETE FILE='" + other + "'."), "");
  EXPECT_FALSE(exists(other));
  EXPECT_TRUE(exists(fastq_));
  EXPECT_TRUE(queued().empty());
}

// The GENOSTAT commands of a post-job syntax text, each from its "GENOSTAT" line to its period.
Texts genostatCommands(const std::string& syntax) {
  Texts commands;
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
  const Texts commands = genostatCommands(syntax + "\n");
  ASSERT_EQ(commands.size(), 2u) << syntax;
  EXPECT_EQ(printed(commands[0]),
            "Summary: Samples=1, Variables=1 | Details: Message=Valid:1 fastQ file(s) detected., Dataset=my_run_1");
  EXPECT_TRUE(exists(job.csvFilePath));
  EXPECT_EQ(printed(commands[1]), "");
  EXPECT_FALSE(exists(job.csvFilePath));
  EXPECT_TRUE(queued().empty());
  EXPECT_TRUE(client_.messages().empty());
}

}  // namespace
}  // namespace mt
