// The job list kept from client messages (names may repeat or be empty) and the message code read
// back from a job's syntax.
#include "jobs.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace zorv {
namespace {

TEST(JobTracker, MessagesFindTheOldestJobOfTheirNameInTheStateBefore) {
  JobTracker t;
  auto now = std::chrono::steady_clock::now();
  t.queued("a");
  t.queued("");
  t.queued("a");  // a name is free again once its job has been cancelled while queued
  TrackedJob* first = t.ended("a");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first, &t.all()[0]);
  TrackedJob& started = t.started("a", now);
  EXPECT_EQ(&started, &t.all()[2]);  // the queued one, not the ended one
  EXPECT_EQ(t.started("", now).state, JobState::Started);
  EXPECT_EQ(&t.all()[1], t.ended(""));
  EXPECT_EQ(&t.all()[2], t.ended("a"));
  EXPECT_FALSE(t.anyOpen());
  EXPECT_EQ(t.ended("a"), nullptr);  // a repeated end message finds no open job
  EXPECT_EQ(t.all().size(), 3u);
}

TEST(JobTracker, AStartForAJobNeverSeenQueuedAddsItAndOpenListsInSubmissionOrder) {
  JobTracker t;
  auto now = std::chrono::steady_clock::now();
  t.queued("q1");
  t.started("w", now);
  t.queued("q2");
  auto open = t.open();
  ASSERT_EQ(open.size(), 3u);
  EXPECT_EQ(open[0]->name, "q1");
  EXPECT_EQ(open[1]->name, "w");
  EXPECT_EQ(open[1]->startedAt, now);
  EXPECT_EQ(open[2]->name, "q2");
  // References stay valid while later jobs are added.
  TrackedJob* q1 = open[0];
  for (int i = 0; i < 1000; ++i) t.queued("n" + std::to_string(i));
  EXPECT_EQ(q1->name, "q1");
}

TEST(MessageCode, ReadFromThePrintCommandAsTheModuleWritesIt) {
  int32_t code = 0;
  const std::string print =
      "GENOSTAT\n"
      "                                        /JOB FILE='' NAME='r' ADAPTERS=NONE\n"
      "                                        /PRINT SAMPLE_COUNT=3 VARIABLE_COUNT=25 MESSAGE=100.\n"
      "PRESERVE.\n";
  ASSERT_TRUE(messageCodeOf(print, code));
  EXPECT_EQ(code, 100);
  ASSERT_TRUE(messageCodeOf("GENOSTAT /PRINT message = -7 /JOB NAME='x'.", code));
  EXPECT_EQ(code, -7);
  ASSERT_TRUE(messageCodeOf("GENOSTAT /JOB NAME='x'\n /PRINT MESSAGE=213", code));
  EXPECT_EQ(code, 213);
}

TEST(MessageCode, LiteralsOtherCommandsAndBadNumbersGiveNoCode) {
  int32_t code = 55;
  EXPECT_FALSE(messageCodeOf("", code));
  EXPECT_FALSE(messageCodeOf("GENOSTAT /PRINT SAMPLE_COUNT=1 /JOB NAME='MESSAGE=100'.", code));
  EXPECT_FALSE(messageCodeOf("GENOSTAT /PRINT /JOB NAME=\"it''s MESSAGE=1\".", code));
  EXPECT_FALSE(messageCodeOf("GENOSTAT /DELETE MESSAGE=100.", code));  // not a /PRINT
  EXPECT_FALSE(messageCodeOf("DATASET NAME MESSAGE.\nFOO /PRINT MESSAGE=1.", code));
  EXPECT_FALSE(messageCodeOf("GENOSTAT /PRINT MESSAGE=.", code));
  EXPECT_FALSE(messageCodeOf("GENOSTAT /PRINT MESSAGE=1x.", code));
  EXPECT_FALSE(messageCodeOf("GENOSTAT /PRINT MESSAGE=1.5.", code));
  EXPECT_FALSE(messageCodeOf("GENOSTAT /PRINT MESSAGE=2147483648.", code));
  EXPECT_EQ(code, 55);
  // The first /PRINT with a code counts.
  ASSERT_TRUE(messageCodeOf("GENOSTAT /PRINT MESSAGE=201.\nGENOSTAT /PRINT MESSAGE=100.", code));
  EXPECT_EQ(code, 201);
}

}  // namespace
}  // namespace zorv
