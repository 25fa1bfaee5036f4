// Cutting input lines into commands as they arrive.
#include "assembler.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zorv {
namespace {

// Feeds `lines` one at a time and records after which line (1-based) each chunk came out.
struct Fed {
  std::vector<Chunk> chunks;
  std::vector<int> completedAt;
};

Fed feed(const std::vector<std::string>& lines, bool finish = true) {
  LineAssembler a;
  Fed fed;
  int n = 0;
  for (const auto& line : lines) {
    ++n;
    for (auto& c : a.addLine(line)) {
      fed.chunks.push_back(c);
      fed.completedAt.push_back(n);
    }
  }
  if (finish) {
    for (auto& c : a.finish()) {
      fed.chunks.push_back(c);
      fed.completedAt.push_back(0);  // 0: completed by the end of input
    }
  }
  return fed;
}

TEST(LineAssembler, ACommandCompletesOnTheLineThatEndsWithAPeriod) {
  auto fed = feed({"GENOSTAT /JOB NAME='a'", "   FILE='x.fq'", "   /DESCRIPTIVES.  ",
                   "GENOSTAT /PRINT."});
  ASSERT_EQ(fed.chunks.size(), 2u);
  EXPECT_EQ(fed.chunks[0].text, "GENOSTAT /JOB NAME='a'\n   FILE='x.fq'\n   /DESCRIPTIVES.  \n");
  EXPECT_EQ(fed.chunks[0].firstLine, 1);
  EXPECT_EQ(fed.completedAt[0], 3);  // not later: the command runs before the next line is read
  EXPECT_EQ(fed.chunks[1].firstLine, 4);
  EXPECT_EQ(fed.completedAt[1], 4);
}

TEST(LineAssembler, PeriodsInsideLiteralsDoNotEndTheCommand) {
  auto fed = feed({"GENOSTAT /JOB FILE='a.", "b.fq' NAME=\"it''s.\"", "  /PRINT."});
  ASSERT_EQ(fed.chunks.size(), 1u);
  EXPECT_EQ(fed.completedAt[0], 3);
  // A doubled quote stands for itself and leaves the literal open.
  fed = feed({"GENOSTAT /JOB NAME='it''s.", "done'."});
  ASSERT_EQ(fed.chunks.size(), 1u);
  EXPECT_EQ(fed.completedAt[0], 2);
  // A quote of the other kind inside a literal is an ordinary character.
  fed = feed({"GENOSTAT /JOB NAME='say \"hi.", "there'."});
  ASSERT_EQ(fed.chunks.size(), 1u);
  EXPECT_EQ(fed.completedAt[0], 2);
}

TEST(LineAssembler, PeriodInsideALineIsNotTheEnd) {
  auto fed = feed({"GENOSTAT /REGRESSION CI=95.0 /JOB", "NAME='x'."});
  ASSERT_EQ(fed.chunks.size(), 1u);
  EXPECT_EQ(fed.completedAt[0], 2);
}

TEST(LineAssembler, EndOfInputCompletesAnOpenCommand) {
  auto fed = feed({"GENOSTAT /JOB NAME='a'", ""});
  ASSERT_EQ(fed.chunks.size(), 1u);
  EXPECT_EQ(fed.completedAt[0], 0);
  EXPECT_EQ(fed.chunks[0].text, "GENOSTAT /JOB NAME='a'\n\n");
  // An unterminated literal is handed on too; the parser reports it.
  fed = feed({"GENOSTAT /JOB NAME='a."});
  ASSERT_EQ(fed.chunks.size(), 1u);
  EXPECT_EQ(fed.completedAt[0], 0);
}

TEST(LineAssembler, BlankLinesBetweenCommandsAreDropped) {
  auto fed = feed({"", "   ", "\t", "GENOSTAT /PRINT.", "", ""});
  ASSERT_EQ(fed.chunks.size(), 1u);
  EXPECT_EQ(fed.chunks[0].firstLine, 4);
  EXPECT_TRUE(feed({"", "  "}).chunks.empty());
}

TEST(LineAssembler, ConsoleCommandsOnlyAtACommandsStart) {
  auto fed = feed({"  :jobs  ", "GENOSTAT /JOB", ":cancel x", "  NAME='y'.", ":quit"});
  ASSERT_EQ(fed.chunks.size(), 3u);
  EXPECT_EQ(fed.chunks[0].kind, Chunk::Kind::ConsoleCommand);
  EXPECT_EQ(fed.chunks[0].text, ":jobs");
  EXPECT_EQ(fed.chunks[0].firstLine, 1);
  // Inside an open command a line starting with ':' is part of the command.
  EXPECT_EQ(fed.chunks[1].kind, Chunk::Kind::Syntax);
  EXPECT_EQ(fed.chunks[1].text, "GENOSTAT /JOB\n:cancel x\n  NAME='y'.\n");
  EXPECT_EQ(fed.chunks[2].kind, Chunk::Kind::ConsoleCommand);
  EXPECT_EQ(fed.chunks[2].text, ":quit");
  EXPECT_EQ(fed.chunks[2].firstLine, 5);
}

TEST(LineAssembler, CarriageReturnsAreDroppedAndOpenStateIsVisible) {
  LineAssembler a;
  EXPECT_FALSE(a.commandOpen());
  EXPECT_TRUE(a.addLine("GENOSTAT /PRINT\r").empty());
  EXPECT_TRUE(a.commandOpen());
  auto done = a.addLine("  /DELETE.\r");
  ASSERT_EQ(done.size(), 1u);
  EXPECT_EQ(done[0].text, "GENOSTAT /PRINT\n  /DELETE.\n");
  EXPECT_FALSE(a.commandOpen());
}

}  // namespace
}  // namespace zorv
