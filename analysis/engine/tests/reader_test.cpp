// The reader's buffering: results that do not depend on how the input is cut, records larger
// than the buffer, the size limit, a damaged stream positioned where the good text stops,
// cancellation and the published count. (Record structure and refusals: golden/reader.txt.)
#include "genostat/reader.h"

#include <gtest/gtest.h>

#include "engine_test_support.h"
#include "genostat/input_error.h"

namespace genostat {
namespace {

using testing::ChunkedSource;

std::vector<std::string> parse(const std::string& text, std::size_t chunk, std::size_t buffer) {
  ChunkedSource source(text, chunk);
  testing::KeepingSink sink;
  ReadOptions options;
  options.bufferSize = buffer;
  const std::uint64_t count = readFastq(source, "in.fastq", sink, options);
  EXPECT_EQ(count, sink.records.size());
  return sink.records;
}

TEST(Reader, ResultDoesNotDependOnHowTheInputIsCut) {
  const std::string text = testing::makeFastq(300, 0, 300) + "\r\n@crlf\r\nacgt\r\n+\r\nIIII\r\n\n";
  const auto whole = parse(text, 1 << 20, 1 << 20);
  ASSERT_EQ(whole.size(), 301u);
  for (std::size_t chunk : {1u, 7u, 1000u}) {
    for (std::size_t buffer : {64u, 100u, 4096u}) {
      EXPECT_TRUE(parse(text, chunk, buffer) == whole) << chunk << " " << buffer;
    }
  }
  // A record far larger than the buffer makes it grow.
  const std::string big(100000, 'G');
  EXPECT_TRUE(parse("@long\n" + big + "\n+\n" + big + "\n", 4096, 64).at(0) == "@long|" + big + "|" + big);
}

// The refusal of reading `source`, and how many records were handed over before it.
std::string refusal(ByteSource& source, const ReadOptions& options) {
  testing::KeepingSink sink;
  try {
    readFastq(source, "x.fastq.gz", sink, options);
  } catch (const InputError& error) {
    return error.message() + " (after " + std::to_string(sink.records.size()) + ")";
  }
  return "accepted";
}

TEST(Reader, RecordOverTheSizeLimitAndDamagedStreamArePositioned) {
  const std::string good = "@ok\nACGT\n+\nIIII\n";
  // Line 5 is empty, 6 the header; the sequence line 7 is the one that never ends.
  ChunkedSource endless(good + "\n@big\n" + std::string(5000, 'A') + "\n+\n", 1000);
  ReadOptions options;
  options.bufferSize = 256;
  options.maxRecordBytes = 4096;
  EXPECT_EQ(refusal(endless, options),
            "record 2, line 7: the record is longer than 4096 bytes (is this a FASTQ file?) (after 1)");
  // Two whole records, then the stream fails inside the third one's sequence line.
  ChunkedSource damaged(good + good + "@r3\nAC", 5, true);
  EXPECT_EQ(refusal(damaged, {}), "record 3, line 10: damaged gzip stream: test (after 2)");
  // Cancelled between buffer fills; the count published as records are read.
  ChunkedSource cancelled(testing::makeFastq(123), 100), whole(testing::makeFastq(123), 1000);
  testing::KeepingSink sink;
  std::atomic<bool> cancel{true};
  std::atomic<std::uint64_t> count{0};
  options = ReadOptions{};
  options.cancel = &cancel;
  EXPECT_THROW(readFastq(cancelled, "in.fastq", sink, options), ReadCancelled);
  options.cancel = nullptr;
  options.recordsRead = &count;
  EXPECT_EQ(readFastq(whole, "in.fastq", sink, options), 123u);
  EXPECT_EQ(count.load(), 123u);
}

}  // namespace
}  // namespace genostat
