// The interpreters, driven through the real parser: command text in, record out.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "entry/GenoStatCommand.h"
#include "entry_test_support.h"
#include "host/tokens.h"
#include "zorvhost/client.h"

namespace {

class InterpretersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zorvhost::takeCommandErrors();
    zorvhost::closeAllDatasets();
    fastq_ = dir_.write("a.fq", "@r1\nACGT\n+\nIIII\n");
  }
  void TearDown() override { zorvhost::closeAllDatasets(); }

  // Parses `text` into `record_`; returns the texts of the errors reported.
  std::vector<std::string> interpret(const std::string& text) {
    zorvhost::setCommandText(text);
    ZORV_TokenSequence tokens(true);
    GenoStatCommand command(&tokens, &record_);
    command.parseAndInterpret();
    failed_ = command.parseFailed();
    std::vector<std::string> texts;
    for (const auto& e : zorvhost::takeCommandErrors()) texts.push_back(e.text);
    return texts;
  }
  void expectClean(const std::string& text) {
    EXPECT_EQ(interpret(text), std::vector<std::string>{}) << text;
    EXPECT_FALSE(failed_) << text;
  }

  entry_test::ScratchFolder dir_;
  std::string fastq_;
  entry_test::Client client_;
  entry_test::ManagerScope instance_;
  GenoJobSettings record_;
  bool failed_ = false;
};

TEST_F(InterpretersTest, JobFillsTheRecordInSubmitMode) {
  const std::string second = dir_.write("b.fq", "@r\nA\n+\nI\n");
  expectClean("GENOSTAT /JOB FILE='" + fastq_ + "' '" + second + "' FOLDER='" + dir_.path() +
              "' NAME='run one' ADAPTERS=ILLUMINA.");
  EXPECT_EQ(record_.mode, JobMode::Submit);
  EXPECT_EQ(record_.fastqFiles, (std::vector<std::string>{fastq_, second}));
  EXPECT_EQ(record_.fastqFolder, dir_.path());
  EXPECT_EQ(record_.jobName, "run one");
  EXPECT_EQ(record_.adapterType, AdapterType::ILLUMINA);
  EXPECT_EQ(record_.descriptives, nullptr);
  EXPECT_EQ(record_.sampleCount, -1);  // untouched without PRINT
}

TEST_F(InterpretersTest, AdapterKeywords) {
  expectClean("GENOSTAT /JOB ADAPTERS=NEXTERA.");
  EXPECT_EQ(record_.adapterType, AdapterType::NEXTERA);
  expectClean("GENOSTAT /JOB ADAPTERS=NONE.");
  EXPECT_EQ(record_.adapterType, AdapterType::NONE);
  expectClean("GENOSTAT /JOB ADAPTERS=CUSTOM(acgtN).");
  EXPECT_EQ(record_.adapterType, AdapterType::CUSTOM);
  EXPECT_EQ(record_.customAdapterSequence, "ACGTN");
}

TEST_F(InterpretersTest, MissingFileStopsTheCommandBeforeLaterSubcommands) {
  const std::string missing = dir_.file("missing.fq");
  EXPECT_EQ(interpret("GENOSTAT /JOB FILE='" + fastq_ + "' '" + missing + "' NAME='x' /DESCRIPTIVES."),
            std::vector<std::string>{"File not found: " + missing});
  EXPECT_TRUE(failed_);
  EXPECT_TRUE(record_.fastqFiles.empty());  // the first file passed, but nothing is stored
  EXPECT_TRUE(record_.jobName.empty());
  EXPECT_EQ(record_.descriptives, nullptr);
}

TEST_F(InterpretersTest, EmptyFileAndFolderAreRefused) {
  const std::string empty = dir_.write("empty.fq", "");
  EXPECT_EQ(interpret("GENOSTAT /JOB FILE='" + empty + "'."),
            std::vector<std::string>{"Error processing FASTQ file: " + empty});
  EXPECT_EQ(interpret("GENOSTAT /JOB FILE='" + dir_.path() + "'."),
            std::vector<std::string>{"File not found: " + dir_.path()});
  EXPECT_TRUE(failed_);
}

TEST_F(InterpretersTest, PrintReadsCountsAndSkipsFileAndNameChecks) {
  expectClean("GENOSTAT /JOB FILE='" + dir_.file("gone.fq") +
              "' NAME='ALL' FOLDER='/x' /PRINT SAMPLE_COUNT=4 VARIABLE_COUNT=-2 MESSAGE=203.");
  EXPECT_EQ(record_.mode, JobMode::Print);
  EXPECT_EQ(record_.sampleCount, 4);
  EXPECT_EQ(record_.variableCount, -2);
  EXPECT_EQ(record_.messageCode, 203);
  EXPECT_EQ(record_.jobName, "ALL");
  EXPECT_TRUE(record_.fastqFiles.empty());
  EXPECT_TRUE(record_.fastqFolder.empty());
}

TEST_F(InterpretersTest, DeleteWinsOverPrint) {
  expectClean("GENOSTAT /PRINT SAMPLE_COUNT=1 /DELETE FILE='/tmp/x.csv'.");
  EXPECT_EQ(record_.mode, JobMode::Delete);
  EXPECT_EQ(record_.csvFilePath, "/tmp/x.csv");
  EXPECT_EQ(record_.sampleCount, 1);
}

TEST_F(InterpretersTest, DeleteWithoutFileStillSetsTheMode) {
  expectClean("GENOSTAT /DELETE.");
  EXPECT_EQ(record_.mode, JobMode::Delete);
  EXPECT_TRUE(record_.csvFilePath.empty());
}

TEST_F(InterpretersTest, DescriptivesAloneRequestsDefaults) {
  expectClean("GENOSTAT /DESCRIPTIVES.");
  ASSERT_NE(record_.descriptives, nullptr);
  EXPECT_TRUE(record_.descriptives->variables.empty());
  EXPECT_FALSE(record_.descriptives->skewness);
  EXPECT_FALSE(record_.descriptives->kurtosis);
  EXPECT_EQ(record_.frequencies, nullptr);
}

TEST_F(InterpretersTest, AnalysesWithEveryOption) {
  expectClean(
      "GENOSTAT /DESCRIPTIVES VARIABLES=GC qc_score SKEWNESS KURTOSIS"
      " /FREQUENCIES VARIABLES=GC NTILES=10 PERCENTILES=5 95.5 HISTOGRAM QUARTILES"
      " /CORRELATIONS VARIABLES=GC Total_Sequences PEARSON=FALSE SPEARMAN KENDALL TWOTAIL ONETAIL"
      " /REGRESSION DEPENDENT=qc_score INDEPENDENT=GC mean_phred_all_reads METHOD=STEPWISE CI=90.5"
      " NORMALPROBABILITYPLOT.");
  ASSERT_NE(record_.descriptives, nullptr);
  EXPECT_EQ(record_.descriptives->variables, (std::vector<std::string>{"GC", "qc_score"}));
  EXPECT_TRUE(record_.descriptives->skewness && record_.descriptives->kurtosis);

  ASSERT_NE(record_.frequencies, nullptr);
  EXPECT_EQ(record_.frequencies->variables, std::vector<std::string>{"GC"});
  EXPECT_EQ(record_.frequencies->ntiles, 10);
  EXPECT_EQ(record_.frequencies->percentiles, (std::vector<double>{5, 95.5}));
  EXPECT_TRUE(record_.frequencies->histogram && record_.frequencies->quartiles);

  ASSERT_NE(record_.correlations, nullptr);
  EXPECT_EQ(record_.correlations->variables, (std::vector<std::string>{"GC", "Total_Sequences"}));
  EXPECT_FALSE(record_.correlations->pearson);
  EXPECT_TRUE(record_.correlations->spearman && record_.correlations->kendall);
  EXPECT_TRUE(record_.correlations->twoTail && record_.correlations->oneTail);

  ASSERT_NE(record_.regression, nullptr);
  EXPECT_EQ(record_.regression->dependent, "qc_score");
  EXPECT_EQ(record_.regression->independent, (std::vector<std::string>{"GC", "mean_phred_all_reads"}));
  EXPECT_EQ(record_.regression->method, RegressionMethod::STEPWISE);
  EXPECT_EQ(record_.regression->confidenceInterval, "90.500000");
  EXPECT_TRUE(record_.regression->normalProbabilityPlot);
  EXPECT_FALSE(record_.regression->reservedFlag);
}

TEST_F(InterpretersTest, PearsonStaysOnUnlessFalse) {
  expectClean("GENOSTAT /CORRELATIONS VARIABLES=GC.");
  ASSERT_NE(record_.correlations, nullptr);
  EXPECT_TRUE(record_.correlations->pearson);
  expectClean("GENOSTAT /CORRELATIONS PEARSON=TRUE.");
  EXPECT_TRUE(record_.correlations->pearson);
  expectClean("GENOSTAT /CORRELATIONS PEARSON=FALSE.");  // no kind at all: nothing refuses it
  EXPECT_FALSE(record_.correlations->pearson || record_.correlations->spearman || record_.correlations->kendall);
}

TEST_F(InterpretersTest, RegressionDefaults) {
  expectClean("GENOSTAT /REGRESSION DEPENDENT=GC CI=95.");
  ASSERT_NE(record_.regression, nullptr);
  EXPECT_EQ(record_.regression->method, RegressionMethod::ENTER);
  EXPECT_EQ(record_.regression->confidenceInterval, "95.000000");
  EXPECT_TRUE(record_.regression->independent.empty());
}

TEST_F(InterpretersTest, GrammarErrorsRunNoInterpreter) {
  const auto errors = interpret("GENOSTAT /DESCRIPTIVES /CORRELATIONS PEARSON=MAYBE.");
  EXPECT_EQ(errors.size(), 1u);  // the parser's own message, nothing from the module
  EXPECT_TRUE(failed_);
  EXPECT_EQ(record_.descriptives, nullptr);
  for (const char* bad : {"GENOSTAT /REGRESSION METHOD=REMOVE.", "GENOSTAT /JOB ADAPTERS=TRUSEQ.",
                          "GENOSTAT /BOGUS.", "GENOSTAT /PRINT SAMPLE_COUNT='x'.", "GENOSTAT /DESCRIPTIVES WIDTH."}) {
    EXPECT_EQ(interpret(bad).size(), 1u) << bad;
    EXPECT_TRUE(failed_) << bad;
  }
}

TEST_F(InterpretersTest, NullRecordIsParsedButNothingIsFilled) {
  zorvhost::setCommandText("GENOSTAT /JOB NAME='ALL' FILE='/no/such/file' /PRINT.");
  ZORV_TokenSequence tokens(true);
  GenoStatCommand command(&tokens, nullptr);
  command.parseAndInterpret();
  EXPECT_FALSE(command.parseFailed());
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty());
}

}  // namespace
