// Automatic job names: the first suffix that no dataset (any case) and no live job (exact) bears.
#include <gtest/gtest.h>

#include <string>

#include "entry/GenomicParserException.h"
#include "jobs_test_support.h"

namespace jobs_test {
namespace {

using Peer = GenoStatAlgoManagerTestPeer;

class AutomaticNames : public ::testing::Test {
 protected:
  void SetUp() override { zorvhost::closeAllDatasets(); }
  void TearDown() override { zorvhost::closeAllDatasets(); }
  ScopedInstance instance_;
};

TEST_F(AutomaticNames, FirstNameHasSuffixOne) {
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_1");
}

TEST_F(AutomaticNames, NameIsNotReserved) {
  // Asking twice without queuing gives the same name.
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_1");
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_1");
}

TEST_F(AutomaticNames, DatasetInAnotherCaseClashes) {
  zorvhost::openDataset("GENOMIC_ANALYSIS_JOB_1");
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_2");
}

TEST_F(AutomaticNames, DatasetsAreComparedWhole) {
  zorvhost::openDataset("Genomic_analysis_job_10");
  zorvhost::openDataset("Genomic_analysis_job");
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_1");
}

TEST_F(AutomaticNames, QueuedJobInAnotherCaseDoesNotClash) {
  instance_.manager().addJobToQueue(makeJob("genomic_analysis_job_1"));
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_1");
}

TEST_F(AutomaticNames, QueuedAndRunningJobsClash) {
  GenoJobSettings running;
  running.jobName = "Genomic_analysis_job_1";
  Peer::setCurrentJob(instance_.manager(), &running, -1);
  instance_.manager().addJobToQueue(makeJob("Genomic_analysis_job_2"));
  zorvhost::openDataset("genomic_analysis_job_3");
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_4");
  Peer::setCurrentJob(instance_.manager(), nullptr, -1);
}

TEST_F(AutomaticNames, CancelledQueuedJobDoesNotHoldItsName) {
  instance_.manager().addJobToQueue(makeJob("Genomic_analysis_job_1"));
  ASSERT_TRUE(instance_.manager().cancelJob("Genomic_analysis_job_1"));
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_1");
}

TEST_F(AutomaticNames, HundredthNameIsTheLastTried) {
  for (int n = 1; n <= 99; ++n) zorvhost::openDataset("Genomic_analysis_job_" + std::to_string(n));
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_100");
}

TEST_F(AutomaticNames, HundredClashesRaiseCode16) {
  for (int n = 1; n <= 100; ++n) zorvhost::openDataset("Genomic_analysis_job_" + std::to_string(n));
  try {
    GenoStatAlgoManager::generateUniqueJobName();
    FAIL() << "no exception after 100 clashes";
  } catch (const GenomicParserException& e) {
    EXPECT_EQ(e.code(), 16u);
    EXPECT_STREQ(e.what(), "Maximum limit for automatic job names exceeded. It should not be more than 100");
  }
  // Nothing was reserved or changed: freeing one name makes it the answer.
  zorvhost::closeDataset("Genomic_analysis_job_57");
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "Genomic_analysis_job_57");
}

TEST(AutomaticNamesWithoutManager, EmptyName) {
  GenoStatAlgoManager::getManagerInstance();  // use up the call-once, then take the instance away
  GenoStatAlgoManager* previous = Peer::setInstance(nullptr);
  EXPECT_EQ(GenoStatAlgoManager::generateUniqueJobName(), "");
  Peer::setInstance(previous);
}

}  // namespace
}  // namespace jobs_test
