// The platform layer under the engine: every failure classified as the engine needs it, binary
// files, UTF-8 names, one file told apart from two.
#include "platform/system.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "engine_test_support.h"

namespace genostat {
namespace {

using platform::SystemError;
using testing::TempDir;

const std::string kWorldlyName = "\xC3\xA4\xC3\x9F-\xE6\x97\xA5\xE6\x9C\xAC-\xE2\x9C\x93.bin";

std::string readThrough(int fd) {
  std::string out;
  char buffer[7];  // small, so a read never returns the whole file at once
  SystemError error;
  for (;;) {
    const std::int64_t n = platform::readSome(fd, buffer, sizeof buffer, error);
    EXPECT_GE(n, 0) << error.text;
    if (n <= 0) return out;
    out.append(buffer, static_cast<std::size_t>(n));
  }
}

TEST(Platform, WritesAndReadsBytesUnchangedUnderAnyName) {
  TempDir dir;
  const std::string path = dir.file(kWorldlyName);
  const std::string bytes("line\nCRLF\r\n\x1a\0 end\n", 18);  // newlines, ^Z and a NUL
  SystemError error;
  const int out = platform::createForWriting(path, error);
  ASSERT_GE(out, 0) << error.text;
  EXPECT_TRUE(platform::writeAll(out, bytes.data(), bytes.size(), error)) << error.text;
  EXPECT_TRUE(platform::closeFile(out, error)) << error.text;
  // The name reached the system as written: the standard library finds it under the same name.
  EXPECT_EQ(std::filesystem::file_size(std::filesystem::u8path(path)), bytes.size());

  const int in = platform::openForReading(path, error);
  ASSERT_GE(in, 0) << error.text;
  platform::FileKind kind;
  ASSERT_TRUE(platform::describeOpenFile(in, kind, error)) << error.text;
  EXPECT_TRUE(kind.regular);
  EXPECT_FALSE(kind.folder);
  EXPECT_EQ(kind.size, bytes.size());
  platform::adviseSequential(in);
  EXPECT_EQ(readThrough(in), bytes);
  EXPECT_TRUE(platform::closeFile(in, error));

  // Creating again empties the file.
  const int again = platform::createForWriting(path, error);
  ASSERT_GE(again, 0);
  EXPECT_TRUE(platform::closeFile(again, error));
  EXPECT_EQ(std::filesystem::file_size(std::filesystem::u8path(path)), 0u);
}

TEST(Platform, OpenFailuresAreClassified) {
  TempDir dir;
  SystemError error;
  EXPECT_LT(platform::openForReading(dir.file("missing"), error), 0);
  EXPECT_EQ(error.kind, SystemError::Kind::NotFound);
  EXPECT_FALSE(error.text.empty());

  error = SystemError{};
  EXPECT_LT(platform::createForWriting(dir.file("no-folder/out.csv"), error), 0);
  EXPECT_EQ(error.kind, SystemError::Kind::NotFound);
  EXPECT_EQ(error.text, "No such file or directory");

  // A folder cannot be written as a file anywhere; reading one either fails as a folder or opens
  // and is then described as one.
  error = SystemError{};
  EXPECT_LT(platform::createForWriting(dir.folder(), error), 0);
  EXPECT_EQ(error.kind, SystemError::Kind::IsFolder);
  error = SystemError{};
  const int fd = platform::openForReading(dir.folder(), error);
  if (fd < 0) {
    EXPECT_EQ(error.kind, SystemError::Kind::IsFolder);
  } else {
    platform::FileKind kind;
    EXPECT_TRUE(platform::describeOpenFile(fd, kind, error));
    EXPECT_TRUE(kind.folder);
    EXPECT_FALSE(kind.regular);
    EXPECT_TRUE(platform::closeFile(fd, error));
  }
}

TEST(Platform, FileIdentityTellsOneFileFromTwo) {
  TempDir dir;
  const std::string a = dir.write("a.fastq", "@r\n");
  const std::string b = dir.write("b.fastq", "@r\n");
  const auto identityA = platform::regularFileIdentity(a);
  ASSERT_TRUE(identityA.has_value());
  EXPECT_EQ(platform::regularFileIdentity(dir.file("./a.fastq")), identityA);
  std::filesystem::create_directory(std::filesystem::u8path(dir.file("sub")));
  EXPECT_EQ(platform::regularFileIdentity(dir.file("sub/../a.fastq")), identityA);
  ASSERT_TRUE(platform::regularFileIdentity(b).has_value());
  EXPECT_FALSE(platform::regularFileIdentity(b) == identityA);
  EXPECT_EQ(platform::regularFileIdentity(dir.file("missing")), std::nullopt);
  EXPECT_EQ(platform::regularFileIdentity(dir.folder()), std::nullopt);
}

TEST(Platform, RemovesFilesOnly) {
  TempDir dir;
  const std::string path = dir.write(kWorldlyName, "x");
  EXPECT_TRUE(platform::removeFile(path));
  EXPECT_FALSE(testing::exists(path));
  EXPECT_FALSE(platform::removeFile(path));
  EXPECT_FALSE(platform::removeFile(dir.folder()));
  EXPECT_TRUE(testing::exists(dir.folder()));
}

TEST(Platform, AtLeastOneProcessor) {
  const unsigned processors = platform::usableProcessors();
  EXPECT_GE(processors, 1u);
  EXPECT_LE(processors, 4096u);
}

}  // namespace
}  // namespace genostat
