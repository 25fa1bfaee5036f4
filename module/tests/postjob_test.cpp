// The syntax a job hands back when it ends.
#include <gtest/gtest.h>

#include "results/PostJobSyntax.h"
#include "test_peer.h"

namespace {

using Peer = GenoStatAlgoManagerTestPeer;
using namespace genostat::results;

std::string pad(std::size_t n) { return std::string(n, ' '); }

class PostJobTest : public ::testing::Test {
 protected:
  PostJobTest() {
    job_.jobName = "my run 1";
    job_.csvFilePath = "/tmp/genostat/1731721138.csv";
    job_.sampleCount = 4;
    job_.variableCount = 25;
    job_.messageCode = 100;
  }
  std::string printBlock() const {
    return "GENOSTAT\n" + pad(40) + "/JOB FILE='' NAME='my_run_1' ADAPTERS=NONE\n" + pad(40) +
           "/PRINT SAMPLE_COUNT=4 VARIABLE_COUNT=25 MESSAGE=100.";
  }
  std::string deleteBlock() const {
    return "GENOSTAT\n" + pad(40) + "/JOB FILE='' NAME='my_run_1' ADAPTERS=NONE\n" + pad(40) +
           "/DELETE FILE='/tmp/genostat/1731721138.csv'.";
  }
  std::string importBlock() const { return buildImportSyntax(table_, &job_); }

  GenoJobSettings job_;
  TemplateTable table_ = buildTemplateTable();
};

TEST_F(PostJobTest, FailedJobGetsOnlyThePrintCommand) {
  EXPECT_EQ(Peer::preparePostJobSyntax(&job_, true), printBlock() + "\n");
  job_.descriptivesOptions(true);  // analyses are not run for a failed job
  EXPECT_EQ(Peer::preparePostJobSyntax(&job_, true), printBlock() + "\n");
}

TEST_F(PostJobTest, NullRecordLeavesTheOutputAlone) {
  EXPECT_EQ(Peer::preparePostJobSyntax(nullptr, false), "");
  EXPECT_EQ(buildOutputSyntax(table_, nullptr), "");
  EXPECT_EQ(buildImportSyntax(table_, nullptr), "");
  EXPECT_EQ(buildDeleteSyntax(table_, nullptr), "");
  EXPECT_EQ(buildDescriptivesSyntax(table_, nullptr), "");
}

TEST_F(PostJobTest, SuccessWithoutAnalysesIsPrintImportDelete) {
  EXPECT_EQ(Peer::preparePostJobSyntax(&job_, false), printBlock() + "\n" + importBlock() + "\n" + deleteBlock());
}

TEST_F(PostJobTest, JobNameBlanksBecomeUnderscoresEverywhere) {
  const std::string text = Peer::preparePostJobSyntax(&job_, false);
  EXPECT_EQ(text.find("my run 1"), std::string::npos);
  EXPECT_NE(text.find("DATASET NAME my_run_1."), std::string::npos);
  EXPECT_NE(text.find("DATASET ACTIVATE my_run_1."), std::string::npos);
  EXPECT_EQ(syntaxJobName(" a  b "), "_a__b_");
  EXPECT_EQ(syntaxJobName("tab\tstays"), "tab\tstays");
}

TEST_F(PostJobTest, NegativeCountsAndCodesKeepTheirSign) {
  job_.sampleCount = -1;
  job_.variableCount = 0;
  job_.messageCode = 201;
  EXPECT_NE(buildOutputSyntax(table_, &job_).find("/PRINT SAMPLE_COUNT=-1 VARIABLE_COUNT=0 MESSAGE=201."),
            std::string::npos);
}

TEST_F(PostJobTest, AnalysesInFixedOrderEachAfterALineFeed) {
  job_.regressionOptions(true)->dependent = "GC";
  job_.correlationsOptions(true)->variables = {"GC", "qc_score"};
  job_.frequenciesOptions(true)->variables = {"GC"};
  job_.descriptivesOptions(true)->variables = {"GC"};
  const std::string expected = printBlock() + "\n" + importBlock() + "\n" + buildDescriptivesSyntax(table_, &job_) +
                               "\n" + buildFrequenciesSyntax(table_, &job_) + "\n" +
                               buildCorrelationsSyntax(table_, &job_) + "\n" +
                               buildRegressionSyntax(table_, &job_) + "\n" + deleteBlock();
  EXPECT_EQ(Peer::preparePostJobSyntax(&job_, false), expected);
  EXPECT_LT(expected.find("DESCRIPTIVES"), expected.find("FREQUENCIES"));
  EXPECT_LT(expected.find("FREQUENCIES"), expected.find("CORRELATIONS"));
  EXPECT_LT(expected.find("CORRELATIONS"), expected.find("REGRESSION"));
}

TEST_F(PostJobTest, Descriptives) {
  EXPECT_EQ(buildDescriptivesSyntax(table_, &job_), "");  // not requested
  DescriptivesOptions* d = job_.descriptivesOptions(true);
  EXPECT_EQ(buildDescriptivesSyntax(table_, &job_),
            "DESCRIPTIVES VARIABLES= \n" + pad(20) + "/STATISTICS=MEAN STDDEV MIN MAX  .");
  d->variables = {"GC", "qc_score"};
  d->kurtosis = true;
  EXPECT_EQ(buildDescriptivesSyntax(table_, &job_),
            "DESCRIPTIVES VARIABLES=GC qc_score \n" + pad(20) + "/STATISTICS=MEAN STDDEV MIN MAX  KURTOSIS.");
  d->skewness = true;
  EXPECT_EQ(buildDescriptivesSyntax(table_, &job_),
            "DESCRIPTIVES VARIABLES=GC qc_score \n" + pad(20) +
                "/STATISTICS=MEAN STDDEV MIN MAX SKEWNESS KURTOSIS.");
}

TEST_F(PostJobTest, FrequenciesDropTheLinesOfMissingOptions) {
  FrequenciesOptions* f = job_.frequenciesOptions(true);
  f->variables = {"GC"};
  EXPECT_EQ(buildFrequenciesSyntax(table_, &job_),
            "FREQUENCIES VARIABLES=GC\n" + pad(44) + "/STATISTICS=STDDEV VARIANCE RANGE MINIMUM MAXIMUM SEMEAN CV\n" +
                pad(44) + "/ORDER=ANALYSIS.");
}

TEST_F(PostJobTest, FrequenciesWithEveryOption) {
  FrequenciesOptions* f = job_.frequenciesOptions(true);
  f->variables = {"GC", "qc_score"};
  f->quartiles = true;
  f->ntiles = 10;
  f->percentiles = {5, 95.5, 25};
  f->histogram = true;
  // The /NTILES and /HISTOGRAM values open their own lines, so they stand without indentation.
  EXPECT_EQ(buildFrequenciesSyntax(table_, &job_),
            "FREQUENCIES VARIABLES=GC qc_score\n/NTILES=4\n/NTILES=10\n" + pad(44) +
                "/PERCENTILES=5.00 95.50 25.00\n" + pad(44) +
                "/STATISTICS=STDDEV VARIANCE RANGE MINIMUM MAXIMUM SEMEAN CV\n/HISTOGRAM NORMAL\n" + pad(44) +
                "/ORDER=ANALYSIS.");
  f->quartiles = false;
  f->ntiles = -3;  // not above 0: no n-tiles
  f->histogram = false;
  f->percentiles = {0.126, 1e70};  // 1e70 was cut at 64 bytes, losing its decimals
  EXPECT_EQ(buildFrequenciesSyntax(table_, &job_),
            "FREQUENCIES VARIABLES=GC qc_score\n" + pad(44) + "/PERCENTILES=0.13 " +
                "10000000000000000725314363815292351261583744096465219555182101554790400.00\n" + pad(44) +
                "/STATISTICS=STDDEV VARIANCE RANGE MINIMUM MAXIMUM SEMEAN CV\n" + pad(44) + "/ORDER=ANALYSIS.");
}

TEST_F(PostJobTest, CorrelationKinds) {
  CorrelationsOptions* c = job_.correlationsOptions(true);
  c->variables = {"GC", "qc_score"};
  const std::string pearson = "CORRELATIONS\n" + pad(44) + "/VARIABLES=GC qc_score\n" + pad(44) +
                              "/PRINT=ONETAIL TWOTAIL NOSIG FULL\n" + pad(44) + "/STATISTICS XPROD\n" + pad(44) +
                              "/MISSING=PAIRWISE.";
  auto nonpar = [&](const std::string& coeff) {
    return "NONPAR CORR\n" + pad(52) + "/VARIABLES=GC qc_score\n" + pad(52) + "/PRINT=" + coeff +
           " ONETAIL TWOTAIL NOSIG FULL\n" + pad(52) + "/MISSING=PAIRWISE.";
  };
  c->oneTail = c->twoTail = true;
  EXPECT_EQ(buildCorrelationsSyntax(table_, &job_), pearson);
  c->spearman = true;
  EXPECT_EQ(buildCorrelationsSyntax(table_, &job_), pearson + "\n" + nonpar("SPEARMAN"));
  c->kendall = true;
  EXPECT_EQ(buildCorrelationsSyntax(table_, &job_), pearson + "\n" + nonpar("BOTH"));
  c->spearman = false;
  c->pearson = false;
  EXPECT_EQ(buildCorrelationsSyntax(table_, &job_), "\n" + nonpar("KENDALL"));
  c->kendall = false;
  EXPECT_EQ(buildCorrelationsSyntax(table_, &job_), "");  // nothing requested, nothing refused
}

TEST_F(PostJobTest, SpearmanWithoutPearsonInTheWholeSyntax) {
  CorrelationsOptions* c = job_.correlationsOptions(true);
  c->pearson = false;
  c->spearman = true;
  const std::string text = Peer::preparePostJobSyntax(&job_, false);
  EXPECT_EQ(text.find("CORRELATIONS"), std::string::npos);
  EXPECT_NE(text.find("EXECUTE.\n" + pad(16) + "DATASET NAME my_run_1.\n" + pad(16) +
                      "DATASET ACTIVATE my_run_1.\n\nNONPAR CORR\n"),
            std::string::npos);
}

TEST_F(PostJobTest, CorrelationTailsDefaultToDoubleBlank) {
  job_.correlationsOptions(true);
  EXPECT_NE(buildCorrelationsSyntax(table_, &job_).find("/PRINT=  NOSIG FULL"), std::string::npos);
}

TEST_F(PostJobTest, Regression) {
  RegressionOptions* g = job_.regressionOptions(true);
  g->dependent = "qc_score";
  g->independent = {"GC", "mean_phred_all_reads"};
  g->method = RegressionMethod::BACKWARD;
  g->confidenceInterval = "90.500000";
  g->normalProbabilityPlot = true;
  EXPECT_EQ(buildRegressionSyntax(table_, &job_),
            "REGRESSION\n" + pad(36) + "/MISSING LISTWISE\n" + pad(36) +
                "/STATISTICS COEFF OUTS CI(90.500000) R ANOVA COLLIN TOL CHANGE\n" + pad(36) +
                "/CRITERIA=PIN(.05) POUT(.10) TOLERANCE(.0001)\n" + pad(36) + "/NOORIGIN\n" + pad(36) +
                "/DEPENDENT qc_score\n" + pad(36) + "/METHOD=BACKWARD GC mean_phred_all_reads\n" + pad(36) +
                "/RESIDUALS PRESS NORMPROB(ZRESID).");
  g->confidenceInterval.clear();
  g->normalProbabilityPlot = false;
  const std::string plain = buildRegressionSyntax(table_, &job_);
  EXPECT_NE(plain.find("/STATISTICS COEFF OUTS  R ANOVA"), std::string::npos);
  EXPECT_NE(plain.find("/RESIDUALS PRESS ."), std::string::npos);
}

TEST_F(PostJobTest, RegressionMethodKeywords) {
  RegressionOptions* g = job_.regressionOptions(true);
  const std::pair<RegressionMethod, const char*> cases[] = {
      {RegressionMethod::ENTER, "ENTER"},
      {RegressionMethod::STEPWISE, "STEPWISE"},
      {RegressionMethod::BACKWARD, "BACKWARD"},
      {RegressionMethod::FORWARD, "FORWARD"},
      {static_cast<RegressionMethod>(9), "ENTER"},
  };
  for (const auto& [method, keyword] : cases) {
    g->method = method;
    EXPECT_NE(buildRegressionSyntax(table_, &job_).find(std::string("/METHOD=") + keyword + " "),
              std::string::npos)
        << keyword;
  }
}

}  // namespace
