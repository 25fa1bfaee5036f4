// The command error: codes, texts and details.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "entry/GenomicParserException.h"

namespace {

TEST(CommandErrorTest, EveryCodeHasItsText) {
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
      // clang-format off
      "GENOSTAT procedure is not supported in command-line mode. Please use the interactive ZORV Statistics client.",
      // clang-format on
      "Error generating automatic job name",
      "Incompatible parameters",
      "Mutually exclusive parameters",
  };
  for (uint32_t code = 0; code < sizeof(expected) / sizeof(expected[0]); ++code) {
    SCOPED_TRACE(code);
    GenomicParserException e(code);
    EXPECT_STREQ(e.what(), expected[code]);
    EXPECT_EQ(e.code(), code);
  }
}

TEST(CommandErrorTest, CodesOutsideTheTableAreUnspecified) {
  for (uint32_t code : {23u, 100u, 0xFFFFFFFFu}) {
    EXPECT_STREQ(GenomicParserException(code).what(), "Unspecified error");
    EXPECT_STREQ(GenomicParserException(code, "x").what(), "Unspecified error: x");
  }
}

TEST(CommandErrorTest, DetailFollowsAColonOnlyWhenPresent) {
  EXPECT_STREQ(GenomicParserException(15, "10").what(),
               "Job queue threshold exceeded. Maximum allowed jobs in queue is : 10");
  EXPECT_STREQ(GenomicParserException(5, "/data/a.fq").what(), "File not found: /data/a.fq");
  EXPECT_STREQ(GenomicParserException(17, "").what(), "Invalid job name");
}

TEST(CommandErrorTest, CaughtAsStdExceptionKeepsTheText) {
  try {
    throw GenomicParserException(GenomicParserException::kAutomaticNameError,
                                 GenomicParserException(16).what());
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(),
                 "Error generating automatic job name: Maximum limit for automatic job names exceeded. "
                 "It should not be more than 100");
  }
}

TEST(CommandErrorTest, CopiesOwnTheirText) {
  GenomicParserException copy(0);
  {
    GenomicParserException original(8, std::string(200, 'p'));
    copy = original;
  }
  EXPECT_EQ(std::strlen(copy.what()), std::strlen("Error processing FASTQ file: ") + 200);
  EXPECT_EQ(copy.code(), 8u);
}

}  // namespace
