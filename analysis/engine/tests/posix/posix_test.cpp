// What only POSIX systems offer to test with: a device that fails every write, one that never
// ends, and a named pipe whose writer pauses long enough for progress to be reported.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "engine_test_support.h"

namespace genostat {
namespace {

using testing::runCommand;

TEST(CliDevices, FullDeviceExits73AndIsKeptEndlessDeviceIsRefused) {
  testing::TempDir dir;
  const std::string good = dir.write("good.fastq", testing::makeFastq(50));
  if (testing::exists("/dev/full")) {
    EXPECT_EQ(runCommand({"--output", "/dev/full", good}),
              std::make_pair(73, std::string("genostat-qc: error: /dev/full: cannot write: No space left on device\n")));
    EXPECT_TRUE(testing::exists("/dev/full"));
  }
  EXPECT_EQ(runCommand({"--output", dir.file("r.csv"), "/dev/zero"}),
            std::make_pair(66, std::string("genostat-qc: error: /dev/zero: is a device, not a file; name a FASTQ file\n")));
}

TEST(ThreadedCli, ProgressLinesWhileAPipeIsRead) {
  testing::TempDir dir;
  const std::string fifo = dir.file("slow.fastq"), text = testing::makeFastq(1000);
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::thread writer([&] {
    std::ofstream pipe(fifo, std::ios::binary);  // waits for the reader
    pipe << text.substr(0, 1000) << std::flush;
    std::this_thread::sleep_for(std::chrono::milliseconds(900));
    pipe << text.substr(1000);
  });
  const auto start = std::chrono::steady_clock::now();
  const auto [code, err] =
      runCommand({"--progress", "--threads", "1", "--output", dir.file("out.csv"), dir.write("a.fq", text), fifo});
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  writer.join();
  ASSERT_EQ(code, 0) << err;
  std::istringstream lines(err);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    std::smatch m;  // the second file, bytes done, no size for a pipe, reads per second
    ASSERT_TRUE(std::regex_match(line, m, std::regex("progress 2 ([0-9]+) 0 [0-9]+"))) << line;
    EXPECT_LE(std::stoull(m[1]), text.size());
  }
  EXPECT_GE(count, 1);
  EXPECT_LE(count, seconds * 4 + 1);  // at most four a second
}

}  // namespace
}  // namespace genostat
