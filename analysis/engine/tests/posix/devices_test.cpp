// Output to a device (POSIX only: Windows has no device that fails every write).
#include <gtest/gtest.h>

#include <sstream>

#include "engine_test_support.h"
#include "genostat/cli.h"

namespace genostat {
namespace {

TEST(CliDevices, FullDeviceExits73AndIsNotRemoved) {
  if (!testing::exists("/dev/full")) GTEST_SKIP() << "no /dev/full on this system";
  testing::TempDir dir;
  const std::string good = dir.write("good.fastq", testing::makeFastq(50));
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(runCli({"--output", "/dev/full", good}, out, err), kExitCannotWrite);
  EXPECT_EQ(err.str(), "genostat-qc: error: /dev/full: cannot write: No space left on device\n");
  EXPECT_TRUE(testing::exists("/dev/full"));
}

}  // namespace
}  // namespace genostat
