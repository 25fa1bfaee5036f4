// Devices as outputs and inputs (POSIX only: Windows has no device that fails every write, nor
// one that never ends).
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

TEST(CliDevices, EndlessDeviceAsInputIsRefusedNotReadForEver) {
  // Before, /dev/zero was read until the disk or the user gave up.
  testing::TempDir dir;
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(runCli({"--output", dir.file("r.csv"), "/dev/zero"}, out, err), exitCodeFor(InputErrorKind::ReadFailed));
  EXPECT_EQ(err.str(), "genostat-qc: error: /dev/zero: is a device, not a file; name a FASTQ file\n");
}

}  // namespace
}  // namespace genostat
