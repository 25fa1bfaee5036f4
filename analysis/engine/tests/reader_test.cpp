// The FASTQ reader: record structure, tolerated forms (CRLF, empty lines, no final newline),
// every refusal with its record and line, and parsing that does not depend on how the input is cut.
#include "genostat/reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "engine_test_support.h"
#include "genostat/input_error.h"

namespace genostat {
namespace {

using testing::KeepingSink;
using testing::KeptRecord;

// Hands out its text a few bytes at a time, then optionally fails like a damaged stream.
class ChunkedSource final : public ByteSource {
 public:
  ChunkedSource(std::string text, std::size_t chunk, bool damagedAtEnd = false)
      : text_(std::move(text)), chunk_(chunk), damagedAtEnd_(damagedAtEnd) {}
  std::size_t read(char* buffer, std::size_t capacity) override {
    const std::size_t n = std::min({capacity, chunk_, text_.size() - at_});
    if (n == 0 && damagedAtEnd_) throw StreamDamaged("truncated gzip stream: test");
    std::memcpy(buffer, text_.data() + at_, n);
    at_ += n;
    return n;
  }

 private:
  std::string text_;
  std::size_t chunk_;
  std::size_t at_ = 0;
  bool damagedAtEnd_;
};

std::vector<KeptRecord> parse(const std::string& text, std::size_t chunk = 1 << 20,
                              std::size_t bufferSize = 1 << 20) {
  ChunkedSource source(text, chunk);
  KeepingSink sink;
  ReadOptions options;
  options.bufferSize = bufferSize;
  const std::uint64_t count = readFastq(source, "in.fastq", sink, options);
  EXPECT_EQ(count, sink.records.size());
  return sink.records;
}

// The error message of parsing `text`, or "" when it was accepted.
std::string refusal(const std::string& text, std::size_t chunk = 1 << 20) {
  try {
    parse(text, chunk);
  } catch (const InputError& error) {
    EXPECT_EQ(error.kind(), InputErrorKind::Malformed);
    EXPECT_EQ(error.path(), "in.fastq");
    EXPECT_EQ(std::string(error.what()), "in.fastq: " + error.message());
    return error.message();
  }
  return "";
}

TEST(Reader, HandsOverFourLineRecordsWithUpperCasedSequence) {
  const auto records = parse("@r1 extra\nacgtNnxy.\n+\n!!##$$%%~\n@r2\nGGCC\n+r2\nIIII\n");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0], (KeptRecord{"@r1 extra", "ACGTNNXY.", "!!##$$%%~"}));
  EXPECT_EQ(records[1], (KeptRecord{"@r2", "GGCC", "IIII"}));
}

TEST(Reader, QualityIsNeverUpperCased) {
  const auto records = parse("@r\nacgt\n+\nabcd\n");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].quality, "abcd");
}

TEST(Reader, CrLfLineEndsReadLikeLf) {
  const std::string lf = "@r1\nACGT\n+r1\nIIII\n\n@r2\nAC\n+\nII\n";
  std::string crlf;
  for (char c : lf) {
    if (c == '\n') crlf += '\r';
    crlf += c;
  }
  EXPECT_EQ(parse(crlf), parse(lf));
  EXPECT_EQ(parse(crlf).size(), 2u);
}

TEST(Reader, EmptyLinesBetweenRecordsAndAtTheEndAreSkipped) {
  const auto records = parse("\n\r\n@r1\nAC\n+\nII\n\n\n\r\n@r2\nGT\n+\nII\n\n\n");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[1].header, "@r2");
}

TEST(Reader, LastLineWithoutLineEndIsRead) {
  const auto records = parse("@r1\nAC\n+\nI#");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].quality, "I#");
  EXPECT_EQ(parse("@r1\nAC\n+\nI#\r").at(0).quality, "I#");
}

TEST(Reader, EmptySequenceIsARecord) {
  const auto records = parse("@empty\n\n+\n\n@r2\nA\n+\nI\n");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0], (KeptRecord{"@empty", "", ""}));
}

TEST(Reader, EmptyInputHasNoRecords) {
  EXPECT_TRUE(parse("").empty());
  EXPECT_TRUE(parse("\n\n\r\n").empty());
}

TEST(Reader, SeparatorMayRepeatTheHeaderText) {
  EXPECT_EQ(parse("@id desc\nAC\n+id desc\nII\n").size(), 1u);
  EXPECT_EQ(refusal("@id desc\nAC\n+id\nII\n"),
            "record 1, line 3: the text after '+' differs from the header's text after '@'");
  // The comparison is on the text exactly: a trailing blank makes it differ.
  EXPECT_NE(refusal("@id\nAC\n+id \nII\n"), "");
}

TEST(Reader, PrintableRangeBoundaries) {
  EXPECT_EQ(parse("@r\n!~\n+\n!~\n").size(), 1u);
  for (int code : {0, 9, 11, 13, 27, 31, 32, 127, 128, 200, 255}) {
    SCOPED_TRACE(code);
    const std::string bad(1, static_cast<char>(code));
    EXPECT_NE(refusal("@r\nA" + bad + "C\n+\nIII\n").find("record 1, line 2: the sequence has "),
              std::string::npos);
    EXPECT_NE(refusal("@r\nACG\n+\nI" + bad + "I\n").find("record 1, line 4: the quality has "),
              std::string::npos);
  }
}

struct Refusal {
  const char* name;
  std::string text;
  std::string message;
};

class ReaderRefuses : public ::testing::TestWithParam<Refusal> {};

TEST_P(ReaderRefuses, WithRecordLineAndReason) {
  EXPECT_EQ(refusal(GetParam().text), GetParam().message);
  // The same text delivered one byte at a time gives the same verdict.
  EXPECT_EQ(refusal(GetParam().text, 1), GetParam().message);
}

const std::string kGood = "@ok\nACGT\n+\nIIII\n";  // lines 1-4

INSTANTIATE_TEST_SUITE_P(
    Malformed, ReaderRefuses,
    ::testing::Values(
        Refusal{"HeaderWithoutAt", "r1\nAC\n+\nII\n",
                "record 1, line 1: the header line does not start with '@'"},
        Refusal{"HeaderAfterEmptyLines", "\n\n+r1\nAC\n+\nII\n",
                "record 1, line 3: the header line does not start with '@'"},
        Refusal{"SecondRecordHeader", kGood + "\nxr2\nAC\n+\nII\n",
                "record 2, line 6: the header line does not start with '@'"},
        Refusal{"WrappedSequence", kGood + "@r2\nACGT\nACGT\n+\nIIIIIIII\n",
                "record 2, line 7: the line after the sequence does not start with '+' (records "
                "of more than four lines are not supported)"},
        Refusal{"EmptySeparator", "@r\nAC\n\nII\n",
                "record 1, line 3: the line after the sequence is empty; expected a '+' line "
                "(records of more than four lines are not supported)"},
        Refusal{"QualityShorter", kGood + "@r2\nACGT\n+\nIII\n",
                "record 2, line 8: quality length 3 differs from sequence length 4"},
        Refusal{"QualityLonger", "@r\nAC\n+\nIII\n",
                "record 1, line 4: quality length 3 differs from sequence length 2"},
        Refusal{"QualityMissingForEmptyLine", "@r\nAC\n+\n\n",
                "record 1, line 4: quality length 0 differs from sequence length 2"},
        Refusal{"EndsAfterHeader", kGood + "@r2\n",
                "record 2, line 6: the file ends after the header line (no sequence line)"},
        Refusal{"EndsAfterSequence", kGood + "@r2\nAC",
                "record 2, line 7: the file ends after the sequence line (no '+' line)"},
        Refusal{"EndsAfterSeparator", kGood + "@r2\nAC\n+\n",
                "record 2, line 8: the file ends after the '+' line (no quality line)"},
        Refusal{"TabInSequence", "@r\nAC\tG\n+\nIIII\n",
                "record 1, line 2: the sequence has a tab (code 9) at position 3; only printable "
                "ASCII ('!' to '~') is allowed"},
        Refusal{"BlankInQuality", "@r\nACG\n+\nI I\n",
                "record 1, line 4: the quality has a blank (code 32) at position 2; only "
                "printable ASCII ('!' to '~') is allowed"},
        Refusal{"LoneCarriageReturnInSequence", "@r\nA\rC\n+\nIII\n",
                "record 1, line 2: the sequence has a carriage return (code 13) at position 2; "
                "only printable ASCII ('!' to '~') is allowed"},
        Refusal{"HighByteInQuality", "@r\nAC\n+\nI\xC3\n",
                "record 1, line 4: the quality has code 195 at position 2; only printable ASCII "
                "('!' to '~') is allowed"}),
    [](const ::testing::TestParamInfo<Refusal>& param) { return param.param.name; });

TEST(Reader, ResultDoesNotDependOnHowTheInputIsCut) {
  std::string text = testing::makeFastq(300, 0, 300);
  // Mix in CRLF records and empty lines.
  text += "\r\n@crlf\r\nacgt\r\n+crlf\r\nIIII\r\n\r\n\n";
  const auto whole = parse(text);
  ASSERT_EQ(whole.size(), 301u);
  for (std::size_t chunk : {1u, 2u, 3u, 7u, 64u, 1000u}) {
    for (std::size_t buffer : {64u, 100u, 4096u}) {
      SCOPED_TRACE(::testing::Message() << "chunk " << chunk << " buffer " << buffer);
      EXPECT_EQ(parse(text, chunk, buffer), whole);
    }
  }
}

TEST(Reader, ARecordLargerThanTheBufferMakesItGrow) {
  const std::string sequence(100000, 'G');
  const auto records =
      parse("@long\n" + sequence + "\n+\n" + std::string(100000, 'I') + "\n", 4096, 64);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].sequence, sequence);
}

TEST(Reader, RefusesARecordOverTheSizeLimit) {
  ChunkedSource source(kGood + "\n@big\n" + std::string(5000, 'A') + "\n+\n", 1000);
  KeepingSink sink;
  ReadOptions options;
  options.bufferSize = 256;
  options.maxRecordBytes = 4096;
  try {
    readFastq(source, "in.fastq", sink, options);
    FAIL() << "accepted";
  } catch (const InputError& error) {
    // Line 5 is empty, 6 the header; the sequence line 7 is the one that never ends.
    EXPECT_EQ(error.message(),
              "record 2, line 7: the record is longer than 4096 bytes (is this a FASTQ file?)");
  }
  EXPECT_EQ(sink.records.size(), 1u);
}

TEST(Reader, DamagedStreamIsPositionedWhereTheGoodTextStops) {
  // Two whole records, then the stream fails inside the third one's sequence line (line 10).
  ChunkedSource source(kGood + kGood + "@r3\nAC", 5, /*damagedAtEnd=*/true);
  KeepingSink sink;
  try {
    readFastq(source, "x.fastq.gz", sink);
    FAIL() << "accepted";
  } catch (const InputError& error) {
    EXPECT_EQ(error.kind(), InputErrorKind::Malformed);
    EXPECT_EQ(error.message(), "record 3, line 10: truncated gzip stream: test");
  }
  EXPECT_EQ(sink.records.size(), 2u);
}

TEST(Reader, CancellationStopsBetweenFills) {
  ChunkedSource source(testing::makeFastq(50), 100);
  KeepingSink sink;
  std::atomic<bool> cancel{true};
  ReadOptions options;
  options.cancel = &cancel;
  options.bufferSize = 128;
  EXPECT_THROW(readFastq(source, "in.fastq", sink, options), ReadCancelled);
}

TEST(Reader, PublishesTheRecordCount) {
  ChunkedSource source(testing::makeFastq(123), 1000);
  KeepingSink sink;
  std::atomic<std::uint64_t> count{0};
  ReadOptions options;
  options.recordsRead = &count;
  EXPECT_EQ(readFastq(source, "in.fastq", sink, options), 123u);
  EXPECT_EQ(count.load(), 123u);
}

}  // namespace
}  // namespace genostat
