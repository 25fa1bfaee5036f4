// The engine over several files and threads, and the command line's failures that need a hand
// inside the run (a worker that throws, a file that cannot be read). Everything the program does
// with its arguments and files: golden/runs.txt.
#include "genostat/engine.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "engine_test_support.h"
#include "genostat/cli.h"
#include "genostat/csv.h"
#include "genostat/input_error.h"
#include "platform/test_platform.h"

namespace genostat {
namespace {

std::string csvOf(const std::vector<std::string>& files, unsigned threads,
                  Inflater inflater = Inflater::Default) {
  EngineOptions options;
  options.threads = threads;
  options.inflater = inflater;
  return csvDocument(csvColumnNames(), runEngine(files, options));
}

TEST(ThreadedEngine, SameBytesWhateverTheThreadCount) {
  testing::TempDir dir;
  const std::vector<std::string> files{
      dir.write("a.fastq", testing::makeFastq(3000, 30, 151, 1)),
      dir.write("b.fq.gz", testing::gzipMembers(testing::makeFastq(2500, 1, 300, 2), 20000)),
      dir.write("c.fastq.gz", testing::gzipMember(testing::makeFastq(1800, 75, 75, 3))),
      dir.write("empty.fastq", ""), dir.write("d.fastq", testing::makeFastq(40, 0, 10, 4))};
  const std::string one = csvOf(files, 1);
  for (unsigned threads : {2u, 3u, 8u, 13u}) EXPECT_EQ(csvOf(files, threads), one) << threads;
  EXPECT_EQ(csvOf(files, 2, Inflater::Zlib), one);
  // A single file with a decompression thread of its own.
  EXPECT_EQ(csvOf({files[1]}, 2), csvOf({files[1]}, 1));
}

TEST(ThreadedEngine, FirstFailingFileInInputOrderIsReported) {
  testing::TempDir dir;
  const std::string first = dir.file("first.fastq"), second = dir.file("second.fastq");
  // The first file fails once the second has started; the second fails last. The first one's
  // error is still the one reported.
  std::atomic<bool> secondStarted{false};
  EngineOptions options;
  options.threads = 2;
  options.onFileStart = [&secondStarted](std::size_t index) {
    if (index == 0) {
      while (!secondStarted.load()) std::this_thread::yield();
    } else {
      secondStarted.store(true);
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
  };
  try {
    runEngine({first, second}, options);
    ADD_FAILURE() << "no error";
  } catch (const InputError& error) {
    EXPECT_EQ(error.path(), first);
    EXPECT_EQ(error.message(), "no such file");
  }
}

TEST(ThreadedCli, WorkerFailureExits70AndOutOfMemory75NamingTheFileAndLeavingNoOutput) {
  testing::TempDir dir;
  const std::string a = dir.write("a.fastq", testing::makeFastq(10));
  const std::string b = dir.write("b.fastq", testing::makeFastq(10));
  for (const char* threads : {"1", "2"}) {
    for (const bool memory : {false, true}) {
      const auto [code, err] = testing::runCommand({"--threads", threads, "--output", dir.file("out.csv"), a, b},
                                                   [memory](EngineOptions& o) {
        o.onFileStart = [memory](std::size_t index) {
          if (memory && index == 0) throw std::bad_alloc();
          if (!memory && index == 1) throw std::logic_error("broken invariant");
        };
      });
      EXPECT_EQ(code, memory ? kExitOutOfMemory : kExitInternal);
      EXPECT_EQ(err, memory ? "genostat-qc: error: " + a + ": out of memory\n"
                            : "genostat-qc: error: " + b + ": internal failure: broken invariant\n");
      EXPECT_FALSE(testing::exists(dir.file("out.csv")));
    }
  }
}

TEST(Cli, InputErrorsExitAsTheAnalysisScriptExpects) {
  using Kind = InputErrorKind;
  EXPECT_EQ((std::vector<int>{exitCodeFor(Kind::Malformed), exitCodeFor(Kind::Unsupported), exitCodeFor(Kind::NotFound),
                              exitCodeFor(Kind::ReadFailed), exitCodeFor(Kind::PermissionDenied)}),
            (std::vector<int>{65, 65, 66, 66, 77}));
  testing::TempDir dir;
  const std::string secret = dir.write("secret.fastq", testing::makeFastq(3));
  if (const auto held = testing::makeUnreadable(secret)) {  // not when running as root
    EXPECT_EQ(testing::runCommand({"--output", dir.file("out.csv"), secret}),
              std::make_pair(77, "genostat-qc: error: " + secret + ": permission denied\n"));
  }
}

// Names in any script reach the files and the CSV (through UTF-16 calls on Windows).
TEST(Cli, NamesInAnyScript) {
  testing::TempDir dir;
  const std::string name = "pr\xC3\xB8ve \xE6\x97\xA5\xE6\x9C\xAC \xE2\x9C\x93";
  EXPECT_EQ(testing::runCommand({"--output", dir.file(name + ".csv"), dir.write(name + ".fastq", "@r\nACGT\n+\nIIII\n")}),
            std::make_pair(0, std::string()));
  EXPECT_NE(testing::readWholeFile(dir.file(name + ".csv")).find("\n" + name + ",NONE,1,4,4,"),
            std::string::npos);
}

}  // namespace
}  // namespace genostat
