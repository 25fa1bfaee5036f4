// The client messages: their fields, and silence when the host has no client adapter.
#include <gtest/gtest.h>

#include "jobs_test_support.h"

namespace jobs_test {
namespace {

using Peer = GenoStatAlgoManagerTestPeer;

TEST(StartMessage, CarriesNameAndStartedFlag) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings job;
  job.jobName = "Genomic_analysis_job_3";
  Peer::sendStartGenomicsJobMessage(*manager, &job, true);
  Peer::sendStartGenomicsJobMessage(*manager, &job, false);
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].id, 1025);
  EXPECT_EQ(messages[0].jobName, "Genomic_analysis_job_3");
  EXPECT_TRUE(messages[0].started);
  EXPECT_EQ(messages[1].id, 1025);
  EXPECT_FALSE(messages[1].started);
}

TEST(EndMessage, CarriesTextPathAndHostIds) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings job;
  job.jobName = "run one";
  job.csvFilePath = "/tmp/1731721138.csv";
  job.workbookId = 41;
  job.paragraphId = -7;
  Peer::sendEndGenomicsJobMessage(*manager, &job, "GENOSTAT /PRINT.\n");
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].id, 1026);
  EXPECT_EQ(messages[0].jobName, "run one");
  EXPECT_EQ(messages[0].message, "GENOSTAT /PRINT.\n");
  EXPECT_EQ(messages[0].csvFilePath, "/tmp/1731721138.csv");
  EXPECT_EQ(messages[0].workbookId, 41);
  EXPECT_EQ(messages[0].paragraphId, -7);
}

TEST(EndMessage, HostIdsDefaultToMinusOneWithoutMetadata) {
  ClientRecorder client;
  auto manager = Peer::make();
  GenoJobSettings job;
  Peer::sendEndGenomicsJobMessage(*manager, &job, "");
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].csvFilePath, "");
  EXPECT_EQ(messages[0].workbookId, -1);
  EXPECT_EQ(messages[0].paragraphId, -1);
}

TEST(Messages, NonInteractiveClientStillReceivesThem) {
  // Only a missing adapter silences the module; command-line mode is refused earlier, by the entry.
  ClientRecorder client(false);
  auto manager = Peer::make();
  GenoJobSettings job;
  Peer::sendStartGenomicsJobMessage(*manager, &job, false);
  EXPECT_EQ(client.messages().size(), 1u);
}

TEST(Messages, NothingWithoutAnAdapter) {
  auto manager = Peer::make();
  std::vector<Recorded> seen;
  {
    ClientRecorder client;
    zorvhost::detachClient();  // the host has no adapter now
    GenoJobSettings job;
    job.jobName = "x";
    Peer::sendStartGenomicsJobMessage(*manager, &job, true);
    Peer::sendEndGenomicsJobMessage(*manager, &job, "text");
    manager->addJobToQueue(makeJob("queued"));
    EXPECT_TRUE(manager->cancelJob("queued"));
    seen = client.messages();
  }
  EXPECT_TRUE(seen.empty());
}

TEST(Messages, CancelledQueuedJobIsAnnouncedThenEndedButNeverStarted) {
  ClientRecorder client;
  auto manager = Peer::make();
  manager->addJobToQueue(makeJob("q"));
  ASSERT_TRUE(manager->cancelJob("q"));
  manager->cancellAllJobsPending();  // a cancelled job gets no second message from here
  const auto messages = client.messages();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].id, 1025);
  EXPECT_FALSE(messages[0].started);
  EXPECT_EQ(messages[1].id, 1026);
  EXPECT_EQ(messages[1].message, "");
}

}  // namespace
}  // namespace jobs_test
