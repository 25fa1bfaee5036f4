// The engine over several files: rows in input order that do not depend on the thread count, the
// first failing file in input order reported whatever the threads do, progress while reading.
#include "genostat/engine.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>

#include "engine_test_support.h"
#include "genostat/csv.h"
#include "genostat/input_error.h"
#include "platform/test_platform.h"

namespace genostat {
namespace {

using testing::TempDir;

TEST(ThreadPlan, WorkersAndDecompressionThreads) {
  EXPECT_EQ(planThreads(1, 1).workers, 1u);
  EXPECT_FALSE(planThreads(1, 1).decompressionThreads);
  EXPECT_EQ(planThreads(2, 1).workers, 1u);
  EXPECT_TRUE(planThreads(2, 1).decompressionThreads);
  EXPECT_EQ(planThreads(2, 5).workers, 2u);
  EXPECT_FALSE(planThreads(2, 5).decompressionThreads);
  EXPECT_EQ(planThreads(3, 2).workers, 2u);
  EXPECT_FALSE(planThreads(3, 2).decompressionThreads);
  EXPECT_TRUE(planThreads(4, 2).decompressionThreads);
  EXPECT_EQ(planThreads(0, 0).workers, 1u);  // nothing asked: one thread
  EXPECT_EQ(planThreads(8, 0).workers, 1u);
}

// Input files of every kind the engine reads.
struct Inputs {
  TempDir dir;
  std::vector<std::string> files;
  Inputs() {
    files.push_back(dir.write("a.fastq", testing::makeFastq(3000, 30, 151, 1)));
    files.push_back(
        dir.write("b.fq.gz", testing::gzipMembers(testing::makeFastq(2500, 1, 300, 2), 20000)));
    const std::string third = testing::makeFastq(1800, 75, 75, 3);
#ifdef GENOSTAT_HAVE_BZIP2
    files.push_back(dir.write("c.fastq.bz2", testing::bzip2Stream(third)));
#else
    files.push_back(dir.write("c.fastq.gz", testing::gzipMember(third)));
#endif
    files.push_back(dir.write("empty.fastq", ""));
    // The same sample name as a.fastq, from another folder (one folder cannot hold both names
    // where names ignore case).
    files.push_back(dir.write("again/A.fastq", testing::makeFastq(40, 0, 10, 4)));
    files.push_back(dir.write("gzip-named-plain.fastq.gz", testing::makeFastq(500, 100, 100, 5)));
  }
};

std::string csvOf(const std::vector<std::string>& files, unsigned threads,
                  Inflater inflater = Inflater::Default) {
  EngineOptions options;
  options.threads = threads;
  options.inflater = inflater;
  options.metrics.adapter = AdapterSetting::Illumina;
  return csvDocument(csvColumnNames(), runEngine(files, options));
}

TEST(ThreadedEngine, SameBytesWhateverTheThreadCount) {
  Inputs inputs;
  const std::string one = csvOf(inputs.files, 1);
  for (unsigned threads : {2u, 3u, 4u, 8u, 13u}) {
    EXPECT_EQ(csvOf(inputs.files, threads), one) << threads << " threads";
  }
  // A single file with its decompression thread, too.
  EXPECT_EQ(csvOf({inputs.files[1]}, 2), csvOf({inputs.files[1]}, 1));
  EXPECT_EQ(csvOf(inputs.files, 2, Inflater::Zlib), one);
}

TEST(ThreadedEngine, RowsInInputOrderNamedAfterTheFiles) {
  Inputs inputs;
  EngineOptions options;
  options.threads = 4;
  const auto rows = runEngine(inputs.files, options);
  ASSERT_EQ(rows.size(), inputs.files.size());
  const std::vector<std::string> names{"a", "b", "c", "empty", "A_2", "gzip-named-plain"};
  const std::vector<std::string> counts{"3000", "2500", "1800", "0", "40", "500"};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(rows[i].size(), csvColumnNames().size());
    EXPECT_EQ(rows[i][0], names[i]);
    EXPECT_EQ(rows[i][1], "NONE");
    EXPECT_EQ(rows[i][2], counts[i]) << names[i];
  }
}

TEST(ThreadedEngine, FirstFailingFileInInputOrderIsReported) {
  TempDir dir;
  const std::string good = dir.write("good.fastq", testing::makeFastq(20000));
  const std::string bad = dir.write("bad.fastq", "@r\nAC\n+\nI\n");
  const std::string missing = dir.file("missing.fastq");
  for (unsigned threads : {1u, 2u, 4u}) {
    SCOPED_TRACE(threads);
    EngineOptions options;
    options.threads = threads;
    // The missing file comes after the malformed one: the malformed one is reported even when a
    // thread reaches the missing file first.
    try {
      runEngine({good, good, bad, missing, good}, options);
      FAIL() << "no error";
    } catch (const InputError& error) {
      EXPECT_EQ(error.kind(), InputErrorKind::Malformed);
      EXPECT_EQ(error.path(), bad);
      EXPECT_EQ(error.message(),
                "record 1, line 4: quality length 1 differs from sequence length 2");
    }
    try {
      runEngine({good, missing, good, bad}, options);
      FAIL() << "no error";
    } catch (const InputError& error) {
      EXPECT_EQ(error.kind(), InputErrorKind::NotFound);
      EXPECT_EQ(error.path(), missing);
    }
  }
}

TEST(ThreadedEngine, WorkerFailuresNameTheFile) {
  TempDir dir;
  const std::string a = dir.write("a.fastq", testing::makeFastq(10));
  const std::string b = dir.write("b.fastq", testing::makeFastq(10));
  for (unsigned threads : {1u, 2u}) {
    EngineOptions options;
    options.threads = threads;
    options.onFileStart = [](std::size_t index) {
      if (index == 1) throw std::runtime_error("boom");
    };
    try {
      runEngine({a, b}, options);
      FAIL() << "no error";
    } catch (const WorkerFailure& failure) {
      EXPECT_EQ(failure.path(), b);
      EXPECT_FALSE(failure.outOfMemory());
      EXPECT_STREQ(failure.what(), "boom");
    }
    options.onFileStart = [](std::size_t index) {
      if (index == 0) throw std::bad_alloc();
    };
    try {
      runEngine({a, b}, options);
      FAIL() << "no error";
    } catch (const WorkerFailure& failure) {
      EXPECT_EQ(failure.path(), a);
      EXPECT_TRUE(failure.outOfMemory());
    }
  }
}

TEST(ThreadedEngine, ReportsProgressWhileAFileIsRead) {
  // A named pipe whose writer pauses: the reader waits, so the reporter has time to speak.
  TempDir dir;
  const std::string text = testing::makeFastq(2000);
  const auto pipe =
      testing::slowPipe(dir.folder(), text, text.size() / 2, std::chrono::milliseconds(900));
  std::mutex mutex;
  std::vector<std::uint64_t> bytes;
  EngineOptions options;
  options.threads = 2;
  options.progress = [&](std::size_t index, std::uint64_t done, std::uint64_t total,
                         std::uint64_t) {
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(total, 0u);  // a pipe has no size
    bytes.push_back(done);
  };
  const auto start = std::chrono::steady_clock::now();
  const auto rows = runEngine({pipe->path()}, options);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][2], "2000");
  std::lock_guard<std::mutex> lock(mutex);
  ASSERT_FALSE(bytes.empty());
  EXPECT_LE(bytes.size(), static_cast<std::size_t>(seconds * 4) + 1);  // at most four a second
  for (std::uint64_t done : bytes) EXPECT_LE(done, text.size());
}

}  // namespace
}  // namespace genostat
