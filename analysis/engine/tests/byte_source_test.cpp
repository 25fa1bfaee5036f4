// Compressed input under both inflaters: every member read, padding ignored, damage and
// truncation refused where the good text stops; opening errors; the read-ahead thread.
#include "genostat/byte_source.h"

#include <gtest/gtest.h>

#include <thread>

#include "engine_test_support.h"
#include "genostat/input_error.h"
#include "platform/system.h"
#include "platform/test_platform.h"

namespace genostat {
namespace {

std::string drain(ByteSource& source, std::size_t piece = 4096) {
  std::string out, buffer(piece, '\0');
  while (const std::size_t n = source.read(buffer.data(), buffer.size())) out.append(buffer, 0, n);
  return out;
}

std::string decode(const std::string& bytes, Inflater inflater, std::size_t piece = 4096) {
  return drain(*openDecodedSource(memorySource(bytes), "x", inflater), piece);
}

std::vector<Inflater> inflaters() {
  if (isalAvailable()) return {Inflater::Zlib, Inflater::Isal};
  return {Inflater::Zlib};
}

// The reader's refusal of `bytes`, "" when accepted.
std::string refusal(const std::string& bytes, Inflater inflater) {
  testing::KeepingSink sink;
  try {
    readFastq(*openDecodedSource(memorySource(bytes), "x.gz", inflater), "x.gz", sink);
  } catch (const InputError& error) {
    EXPECT_EQ(error.kind(), InputErrorKind::Malformed);
    return error.message();
  }
  return "";
}

TEST(Decode, EveryGzipMemberWhateverTheReadSize) {
  const std::string text = testing::makeFastq(1500);
  // Tiny members, then members of odd or BGZF-like sizes, empty ones, zero padding at the end.
  for (std::size_t piece : {777u, 65280u}) {
    const std::string members = testing::gzipMembers(text.substr(0, 3000), 1) +
                                testing::gzipMembers(text.substr(3000, 50000), piece) +
                                testing::gzipMember("") + testing::gzipMembers(text.substr(53000), piece) +
                                testing::gzipMember("") + std::string(1000, '\0');
    for (Inflater inflater : inflaters()) {
      for (std::size_t readPiece : {1u, 4096u, 1u << 20}) {
        EXPECT_TRUE(decode(members, inflater, readPiece) == text)
            << static_cast<int>(inflater) << " " << piece << " " << readPiece;
      }
    }
  }
  EXPECT_EQ(decode(text, Inflater::Default), text);  // plain text passes through
  EXPECT_EQ(decode("BZ\n", Inflater::Default), "BZ\n");
}

TEST(Decode, DamagedOrTruncatedGzipIsRefused) {
  const std::string gz = testing::gzipMember(testing::makeFastq(500));
  const std::string members = testing::gzipMembers(testing::makeFastq(500), 5000);
  std::string badChecksum = gz, badMethod = gz, badData = gz;
  badChecksum[gz.size() - 6] ^= 0x55;
  badMethod[2] = 7;
  for (std::size_t i = 20; i < 60; ++i) badData[i] = static_cast<char>(0xff);
  const std::pair<std::string, std::string> cases[] = {
      {gz.substr(0, gz.size() / 2), "truncated gzip stream: the file ends in the middle"},
      {gz.substr(0, gz.size() - 3), "truncated gzip stream"},  // inside the trailer
      {gz.substr(0, 5), "truncated gzip stream"},              // inside the header
      {members.substr(0, members.size() - 100), "truncated gzip stream"},
      {badChecksum, "damaged gzip stream"},
      {badMethod, "damaged gzip stream"},
      {badData, ""},  // bad codes, a checksum error or garbage text: refused either way
      {gz + std::string(10, '\0') + "x", "damaged gzip stream: unexpected data after the zero padding"},
  };
  for (Inflater inflater : inflaters()) {
    for (const auto& [bytes, reason] : cases) {
      const std::string message = refusal(bytes, inflater);
      EXPECT_EQ(message.rfind("record ", 0), 0u) << message;
      EXPECT_NE(message.find(reason), std::string::npos) << message;
    }
  }
}

#ifdef GENOSTAT_HAVE_BZIP2
TEST(Decode, Bzip2StreamsDamageAndTruncation) {
  const std::string text = testing::makeFastq(1500);
  const std::string bz = testing::bzip2Stream(text);
  EXPECT_EQ(decode(testing::bzip2Stream(text.substr(0, 7000)) + testing::bzip2Stream(text.substr(7000)) +
                       testing::bzip2Stream(""),
                   Inflater::Default, 1),
            text);
  std::string damaged = bz;
  damaged[bz.size() / 2] ^= 0x10;
  for (const auto& [bytes, reason] : {std::pair{bz.substr(0, bz.size() / 2), "truncated bzip2 stream"},
                                      {damaged, "damaged bzip2 stream"},
                                      {bz + "junk", "damaged bzip2 stream: data after the end of a member"}}) {
    EXPECT_NE(refusal(bytes, Inflater::Default).find(reason), std::string::npos) << reason;
  }
}
#else
// A build without the library says so of the file rather than misreading it as text.
TEST(Decode, Bzip2WithoutTheLibraryIsRefusedNamingTheFile) {
  try {
    openDecodedSource(memorySource("BZh91AY&SY"), "reads.fq.bz2");
    FAIL() << "accepted";
  } catch (const InputError& error) {
    EXPECT_EQ(error.kind(), InputErrorKind::Unsupported);
    EXPECT_EQ(std::string(error.what()),
              "reads.fq.bz2: is compressed with bzip2, which this build of genostat-qc cannot "
              "read; decompress it, or compress it with gzip instead");
  }
}
#endif

TEST(FileSource, CountsRawBytesAndClassifiesFailures) {
  testing::TempDir dir;
  const std::string gz = testing::gzipMember(testing::makeFastq(100));
  const std::string path = dir.write("plain-named.fastq", gz);
  std::atomic<std::uint64_t> bytes{0};
  std::uint64_t size = 0;
  EXPECT_EQ(drain(*openDecodedSource(openFileSource(path, &bytes, &size), path)),
            testing::makeFastq(100));
  EXPECT_EQ(size, gz.size());
  EXPECT_EQ(bytes.load(), gz.size());
  using Kind = platform::SystemError::Kind;
  const InputError denied = openFailure("p", {Kind::PermissionDenied, "x"});
  const InputError other = openFailure("p", {Kind::Other, "I/O error"});
  EXPECT_EQ(std::make_pair(denied.kind(), std::string(denied.what())),
            std::make_pair(InputErrorKind::PermissionDenied, std::string("p: permission denied")));
  EXPECT_EQ(std::make_pair(other.kind(), std::string(other.what())),
            std::make_pair(InputErrorKind::ReadFailed, std::string("p: cannot open: I/O error")));
  // A file this process may not read (impossible to arrange when running as root).
  if (const auto held = testing::makeUnreadable(path)) {
    try {
      openFileSource(path);
      ADD_FAILURE() << "opened";
    } catch (const InputError& error) {
      EXPECT_EQ(error.kind(), InputErrorKind::PermissionDenied);
    }
  }
}

TEST(ThreadedAsyncSource, DeliversInOrderThenTheErrorAndStopsWhenDropped) {
  const std::string text = testing::makeFastq(300);
  for (std::size_t block : {1u, 100u, 65536u}) {
    const std::string part = block == 1 ? text.substr(0, 3000) : text;
    auto source = asyncSource(std::make_unique<testing::ChunkedSource>(part, 333), block, 2);
    EXPECT_EQ(drain(*source, 1000), part) << block;
  }
  auto failing = asyncSource(std::make_unique<testing::ChunkedSource>(text, 333, true), 1000, 3);
  std::string got, buffer(777, '\0');
  try {
    while (const std::size_t n = failing->read(buffer.data(), buffer.size())) got.append(buffer, 0, n);
    ADD_FAILURE() << "ended without the error";
  } catch (const StreamDamaged& error) {
    EXPECT_STREQ(error.what(), "damaged gzip stream: test");
  }
  EXPECT_EQ(got, text);
  // The producer blocks on a full queue; destroying the source must stop and join it.
  auto dropped = asyncSource(std::make_unique<testing::ChunkedSource>(testing::makeFastq(5000), 333), 64, 2);
  char byte = 0;
  EXPECT_EQ(dropped->read(&byte, 1), 1u);
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  dropped.reset();
}

}  // namespace
}  // namespace genostat
