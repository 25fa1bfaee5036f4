// Compressed input recognised by content; every gzip member and bzip2 stream read; damaged and
// truncated streams refused; file-opening errors; the read-ahead thread.
#include "genostat/byte_source.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "engine_test_support.h"
#include "genostat/input_error.h"
#include "genostat/reader.h"
#include "platform/system.h"
#include "platform/test_platform.h"

namespace genostat {
namespace {

using testing::TempDir;

std::string drain(ByteSource& source, std::size_t piece = 4096) {
  std::string out;
  std::string buffer(piece, '\0');
  for (;;) {
    const std::size_t n = source.read(buffer.data(), buffer.size());
    if (n == 0) return out;
    out.append(buffer, 0, n);
  }
}

std::string decode(const std::string& bytes, Inflater inflater, Compression* detected = nullptr,
                   std::size_t piece = 4096) {
  auto source = openDecodedSource(memorySource(bytes), "x", inflater, detected);
  return drain(*source, piece);
}

// Runs the check under every inflater this build has.
std::vector<Inflater> inflaters() {
  std::vector<Inflater> all{Inflater::Zlib};
  if (isalAvailable()) all.push_back(Inflater::Isal);
  return all;
}

std::string inflaterName(Inflater inflater) {
  return inflater == Inflater::Zlib ? "zlib" : "isa-l";
}

TEST(Sniff, RecognisesByContent) {
  EXPECT_EQ(sniffCompression("\x1f\x8b\x08"), Compression::Gzip);
  EXPECT_EQ(sniffCompression("BZh9"), Compression::Bzip2);
  EXPECT_EQ(sniffCompression("@r1"), Compression::Plain);
  EXPECT_EQ(sniffCompression("BZ"), Compression::Plain);
  EXPECT_EQ(sniffCompression("\x1f"), Compression::Plain);
  EXPECT_EQ(sniffCompression(""), Compression::Plain);
}

TEST(Decode, PlainTextPassesThroughWhateverItsName) {
  Compression detected = Compression::Gzip;
  const std::string text = testing::makeFastq(20);
  EXPECT_EQ(decode(text, Inflater::Default, &detected), text);
  EXPECT_EQ(detected, Compression::Plain);
  EXPECT_EQ(decode("@", Inflater::Default), "@");  // shorter than any magic
  EXPECT_EQ(decode("", Inflater::Default), "");
}

TEST(Decode, GzipSingleMember) {
  const std::string text = testing::makeFastq(2000);
  for (Inflater inflater : inflaters()) {
    SCOPED_TRACE(inflaterName(inflater));
    Compression detected = Compression::Plain;
    EXPECT_EQ(decode(testing::gzipMember(text), inflater, &detected), text);
    EXPECT_EQ(detected, Compression::Gzip);
  }
}

TEST(Decode, GzipEveryMemberOfAConcatenation) {
  const std::string text = testing::makeFastq(1500);
  // One-byte members at the start (many tiny ones), then members of odd or BGZF-like sizes, an
  // empty member in the middle and one at the end (BGZF files end with one).
  for (std::size_t piece : {777u, 65280u}) {
    const std::string members =
        testing::gzipMembers(text.substr(0, 3000), 1) +
        testing::gzipMembers(text.substr(3000, 50000), piece) + testing::gzipMember("") +
        testing::gzipMembers(text.substr(53000), piece) + testing::gzipMember("");
    for (Inflater inflater : inflaters()) {
      for (std::size_t readPiece : {1u, 4096u, 1u << 20}) {
        SCOPED_TRACE(::testing::Message()
                     << inflaterName(inflater) << " piece " << piece << " read " << readPiece);
        EXPECT_EQ(decode(members, inflater, nullptr, readPiece), text);
      }
    }
  }
}

TEST(Decode, GzipZeroPaddingAfterTheLastMemberIsIgnored) {
  const std::string text = "@r\nAC\n+\nII\n";
  for (Inflater inflater : inflaters()) {
    SCOPED_TRACE(inflaterName(inflater));
    EXPECT_EQ(decode(testing::gzipMember(text) + std::string(1000, '\0'), inflater), text);
  }
}

// Feeds `bytes` to the reader with the buffer size files get and returns the refusal ("" when
// accepted). (With a large buffer a bzip2 block's checksum is checked before any of its text is
// parsed, so damage inside a block is reported as such rather than as the garbage it decodes to.)
std::string readRefusal(const std::string& bytes, Inflater inflater) {
  testing::KeepingSink sink;
  try {
    auto source = openDecodedSource(memorySource(bytes), "x.fastq.gz", inflater);
    readFastq(*source, "x.fastq.gz", sink);
  } catch (const InputError& error) {
    EXPECT_EQ(error.kind(), InputErrorKind::Malformed);
    return error.message();
  }
  return "";
}

TEST(Decode, TruncatedGzipIsRefusedWhereTheTextStops) {
  const std::string text = testing::makeFastq(500);
  const std::string gz = testing::gzipMember(text);
  for (Inflater inflater : inflaters()) {
    SCOPED_TRACE(inflaterName(inflater));
    // Cut inside the data, inside the 8-byte trailer, and inside the header.
    for (std::size_t keep : {gz.size() / 2, gz.size() - 3, std::size_t{5}}) {
      SCOPED_TRACE(keep);
      const std::string message = readRefusal(gz.substr(0, keep), inflater);
      EXPECT_EQ(message.rfind("record ", 0), 0u) << message;
      EXPECT_NE(message.find("truncated gzip stream"), std::string::npos) << message;
    }
    // Cut inside a later member of a multi-member file.
    const std::string members = testing::gzipMembers(text, 5000);
    EXPECT_NE(readRefusal(members.substr(0, members.size() - 100), inflater)
                  .find("truncated gzip stream"),
              std::string::npos);
  }
}

TEST(Decode, DamagedGzipIsRefused) {
  const std::string text = testing::makeFastq(500);
  const std::string gz = testing::gzipMember(text);
  for (Inflater inflater : inflaters()) {
    SCOPED_TRACE(inflaterName(inflater));
    std::string badChecksum = gz;
    badChecksum[badChecksum.size() - 6] ^= 0x55;  // in the CRC-32 of the trailer
    EXPECT_NE(readRefusal(badChecksum, inflater).find("damaged gzip stream"), std::string::npos);

    std::string badMethod = gz;
    badMethod[2] = 7;  // compression method other than deflate
    EXPECT_NE(readRefusal(badMethod, inflater).find("damaged gzip stream"), std::string::npos);

    std::string badData = gz;
    for (std::size_t i = 20; i < 60; ++i) badData[i] = static_cast<char>(0xff);
    const std::string message = readRefusal(badData, inflater);
    EXPECT_NE(message, "");  // invalid codes, a checksum error or FASTQ garbage: never accepted

    EXPECT_NE(readRefusal(gz + "trailing text", inflater)
                  .find("data after the end of a member is not another member"),
              std::string::npos);
    EXPECT_NE(readRefusal(gz + std::string(10, '\0') + "x", inflater)
                  .find("unexpected data after the zero padding"),
              std::string::npos);
  }
}

#ifdef GENOSTAT_HAVE_BZIP2
TEST(Decode, Bzip2SingleAndMultiStream) {
  ASSERT_TRUE(bzip2Available());
  const std::string text = testing::makeFastq(1500);
  Compression detected = Compression::Plain;
  EXPECT_EQ(decode(testing::bzip2Stream(text), Inflater::Default, &detected), text);
  EXPECT_EQ(detected, Compression::Bzip2);
  const std::string multi = testing::bzip2Stream(text.substr(0, 7000)) +
                            testing::bzip2Stream(text.substr(7000)) + testing::bzip2Stream("");
  EXPECT_EQ(decode(multi, Inflater::Default, nullptr, 1), text);
}

TEST(Decode, DamagedAndTruncatedBzip2AreRefused) {
  const std::string bz = testing::bzip2Stream(testing::makeFastq(800));
  const std::string truncated = readRefusal(bz.substr(0, bz.size() / 2), Inflater::Default);
  EXPECT_NE(truncated.find("truncated bzip2 stream"), std::string::npos) << truncated;
  std::string damaged = bz;
  damaged[bz.size() / 2] ^= 0x10;
  const std::string message = readRefusal(damaged, Inflater::Default);
  EXPECT_NE(message.find("damaged bzip2 stream"), std::string::npos) << message;
  EXPECT_NE(readRefusal(bz + "junk", Inflater::Default)
                .find("damaged bzip2 stream: data after the end of a member"),
            std::string::npos);
}
#endif

// A build without the bzip2 library says so of the file, rather than misreading it as text.
TEST(Decode, Bzip2WithoutTheLibraryIsRefusedNamingTheFile) {
  if (bzip2Available()) GTEST_SKIP() << "this build reads bzip2";
  for (const std::string& bytes : {testing::bzip2Magic(), std::string("BZh")}) {
    try {
      openDecodedSource(memorySource(bytes), "reads.fq.bz2");
      FAIL() << "accepted";
    } catch (const InputError& error) {
      EXPECT_EQ(error.kind(), InputErrorKind::Unsupported);
      EXPECT_EQ(error.path(), "reads.fq.bz2");
      EXPECT_EQ(error.message(),
                "is compressed with bzip2, which this build of genostat-qc cannot read; "
                "decompress it, or compress it with gzip instead");
    }
  }
  // Text that merely starts like the magic is still text.
  EXPECT_EQ(decode("BZ\n", Inflater::Default), "BZ\n");
}

TEST(Decode, ZlibAndIsalAgreeByteForByte) {
  if (!isalAvailable()) GTEST_SKIP() << "this build has no ISA-L";
  const std::string members = testing::gzipMembers(testing::makeFastq(4000), 30000);
  EXPECT_EQ(decode(members, Inflater::Isal), decode(members, Inflater::Zlib));
}

TEST(Decode, InflaterChoice) {
  EXPECT_EQ(resolveInflater(Inflater::Zlib), Inflater::Zlib);
  EXPECT_EQ(resolveInflater(Inflater::Isal), isalAvailable() ? Inflater::Isal : Inflater::Zlib);
  testing::setEnvironment("GENOSTAT_INFLATER", "zlib");
  EXPECT_EQ(resolveInflater(Inflater::Default), Inflater::Zlib);
  testing::unsetEnvironment("GENOSTAT_INFLATER");
  EXPECT_EQ(resolveInflater(Inflater::Default), isalAvailable() ? Inflater::Isal : Inflater::Zlib);
}

TEST(FileSource, ReadsAndCountsRawBytes) {
  TempDir dir;
  const std::string gz = testing::gzipMember(testing::makeFastq(100));
  const std::string path = dir.write("plain-named.fastq", gz);  // gzip under a plain name
  std::atomic<std::uint64_t> bytes{0};
  std::uint64_t size = 0;
  auto source = openDecodedSource(openFileSource(path, &bytes, &size), path);
  EXPECT_EQ(drain(*source), testing::makeFastq(100));
  EXPECT_EQ(size, gz.size());
  EXPECT_EQ(bytes.load(), gz.size());
}

TEST(FileSource, OpenErrorsSayWhatIsWrong) {
  TempDir dir;
  try {
    openFileSource(dir.file("missing.fastq"));
    FAIL();
  } catch (const InputError& error) {
    EXPECT_EQ(error.kind(), InputErrorKind::NotFound);
    EXPECT_EQ(error.path(), dir.file("missing.fastq"));
    EXPECT_EQ(error.message(), "no such file");
  }
  try {
    openFileSource(dir.path().string());
    FAIL();
  } catch (const InputError& error) {
    EXPECT_EQ(error.kind(), InputErrorKind::NotFound);
    EXPECT_EQ(error.message(), "is a folder, not a file");
  }
  using Kind = platform::SystemError::Kind;
  EXPECT_EQ(openFailure("p", {Kind::NotFound, "x"}).message(), "no such file");
  EXPECT_EQ(openFailure("p", {Kind::IsFolder, "x"}).kind(), InputErrorKind::NotFound);
  EXPECT_EQ(openFailure("p", {Kind::IsFolder, "x"}).message(), "is a folder, not a file");
  EXPECT_EQ(openFailure("p", {Kind::PermissionDenied, "x"}).kind(),
            InputErrorKind::PermissionDenied);
  EXPECT_EQ(openFailure("p", {Kind::PermissionDenied, "x"}).message(), "permission denied");
  EXPECT_EQ(openFailure("p", {Kind::Other, "I/O error"}).kind(), InputErrorKind::ReadFailed);
  EXPECT_EQ(openFailure("p", {Kind::Other, "I/O error"}).message(), "cannot open: I/O error");
}

TEST(FileSource, UnreadableFileIsPermissionDenied) {
  TempDir dir;
  const std::string path = dir.write("secret.fastq", "@r\nA\n+\nI\n");
  const auto denied = testing::makeUnreadable(path);
  if (!denied) GTEST_SKIP() << "this process reads every file (running as root)";
  try {
    openFileSource(path);
    FAIL();
  } catch (const InputError& error) {
    EXPECT_EQ(error.kind(), InputErrorKind::PermissionDenied);
    EXPECT_EQ(error.path(), path);
  }
}

TEST(FileSource, NamesInAnyScriptAreOpened) {
  TempDir dir;
  const std::string text = testing::makeFastq(30);
  const std::string path = dir.write("pr\xC3\xB8ve-\xE6\x97\xA5\xE6\x9C\xAC-\xE2\x9C\x93.fastq", text);
  std::uint64_t size = 0;
  auto source = openDecodedSource(openFileSource(path, nullptr, &size), path);
  EXPECT_EQ(drain(*source), text);
  EXPECT_EQ(size, text.size());
}

// A source that yields a fixed text, then optionally throws.
class ScriptedSource final : public ByteSource {
 public:
  ScriptedSource(std::string text, bool failAtEnd)
      : text_(std::move(text)), failAtEnd_(failAtEnd) {}
  std::size_t read(char* buffer, std::size_t capacity) override {
    const std::size_t n = std::min<std::size_t>({capacity, 333, text_.size() - at_});
    if (n == 0 && failAtEnd_) throw StreamDamaged("damaged gzip stream: scripted");
    std::memcpy(buffer, text_.data() + at_, n);
    at_ += n;
    return n;
  }

 private:
  std::string text_;
  std::size_t at_ = 0;
  bool failAtEnd_;
};

TEST(ThreadedAsyncSource, DeliversEverythingInOrder) {
  const std::string text = testing::makeFastq(300);
  for (std::size_t block : {1u, 100u, 65536u}) {
    // Byte-sized blocks cost a thread handover each: a shorter text says as much.
    const std::string part = block == 1 ? text.substr(0, 3000) : text;
    auto source = asyncSource(std::make_unique<ScriptedSource>(part, false), block, 2);
    EXPECT_EQ(drain(*source, 1000), part) << "block " << block;
  }
}

TEST(ThreadedAsyncSource, ErrorArrivesAfterTheBytesBeforeIt) {
  const std::string text = testing::makeFastq(200);
  auto source = asyncSource(std::make_unique<ScriptedSource>(text, true), 1000, 3);
  std::string got;
  std::string buffer(777, '\0');
  try {
    for (;;) {
      const std::size_t n = source->read(buffer.data(), buffer.size());
      ASSERT_NE(n, 0u) << "ended without the error";
      got.append(buffer, 0, n);
    }
  } catch (const StreamDamaged& error) {
    EXPECT_STREQ(error.what(), "damaged gzip stream: scripted");
  }
  EXPECT_EQ(got, text);
}

TEST(ThreadedAsyncSource, CanBeDroppedBeforeTheEnd) {
  // The producer is blocked on a full queue; destroying the source must stop and join it.
  auto source =
      asyncSource(std::make_unique<ScriptedSource>(testing::makeFastq(5000), false), 64, 2);
  char byte = 0;
  EXPECT_EQ(source->read(&byte, 1), 1u);
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  source.reset();
  SUCCEED();
}

}  // namespace
}  // namespace genostat
