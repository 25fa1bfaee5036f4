// The event lines: exact keys and order, JSON escaping, invalid UTF-8 made safe, one flushed line
// per event.
#include "events.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "platform/platform.h"

namespace zorv {
namespace {

TEST(Events, ExactLines) {
  EXPECT_EQ(errorEvent("GENOSTAT", "File not found: /data/a.fq"),
            R"({"event":"error","command":"GENOSTAT","text":"File not found: /data/a.fq"})");
  EXPECT_EQ(jobStartEvent("Genomic_analysis_job_1", false),
            R"({"event":"job_start","job":"Genomic_analysis_job_1","started":false})");
  EXPECT_EQ(jobStartEvent("j", true), R"({"event":"job_start","job":"j","started":true})");
  EXPECT_EQ(jobEndEvent("j", "", "", -1, -1),
            R"({"event":"job_end","job":"j","syntax":"","csv":"","workbook":-1,"paragraph":-1})");
  EXPECT_EQ(jobEndEvent("j", "GENOSTAT /PRINT.", "/tmp/1.csv", 2147483647, -2147483647 - 1),
            R"({"event":"job_end","job":"j","syntax":"GENOSTAT /PRINT.","csv":"/tmp/1.csv",)"
            R"("workbook":2147483647,"paragraph":-2147483648})");
}

TEST(Events, TextsAreEscaped) {
  EXPECT_EQ(errorEvent("GENOSTAT", "a \"quoted\" C:\\path\nline\ttab\x01"),
            R"({"event":"error","command":"GENOSTAT","text":"a \"quoted\" C:\\path\nline\ttab\u0001"})");
  // A multi-line syntax stays on one event line.
  std::string line = jobEndEvent("j", "GENOSTAT /PRINT\n   /DELETE.\n", "", 1, 2);
  EXPECT_EQ(line.find('\n'), std::string::npos);
  // Embedded NUL bytes are kept, escaped.
  EXPECT_EQ(errorEvent("X", std::string("a\0b", 3)),
            R"({"event":"error","command":"X","text":"a\u0000b"})");
}

TEST(Events, Utf8PassesInvalidBytesBecomeReplacementCharacters) {
  EXPECT_EQ(errorEvent("GENOSTAT", "/d/\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"),
            "{\"event\":\"error\",\"command\":\"GENOSTAT\",\"text\":\"/d/\xC3\xA4\xE2\x82\xAC"
            "\xF0\x9F\x98\x80\"}");
  // Latin-1 'ä', a lone continuation byte, an overlong '/', a surrogate, a truncated sequence.
  EXPECT_EQ(errorEvent("G", "\xE4|\x80|\xC0\xAF|\xED\xA0\x80|\xE2\x82"),
            "{\"event\":\"error\",\"command\":\"G\",\"text\":\""
            "\xEF\xBF\xBD|\xEF\xBF\xBD|\xEF\xBF\xBD\xEF\xBF\xBD|"
            "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD|\xEF\xBF\xBD\xEF\xBF\xBD\"}");
}

std::string slurp(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(Events, LogWritesFlushedLinesAndDropsWithoutAFile) {
  std::filesystem::path path = std::filesystem::temp_directory_path() /
                               ("zorv-events-" + std::to_string(std::random_device{}()) + ".jsonl");
  std::FILE* f = platform::openForWriting(path.u8string());
  ASSERT_NE(f, nullptr);
  {
    EventLog log(f);
    EXPECT_TRUE(log.enabled());
    log.write("{\"a\":1}");
    // Visible to another reader before the log is closed: it was flushed, and written as bytes
    // (no carriage return added on any system).
    EXPECT_EQ(slurp(path), "{\"a\":1}\n");
    log.write("{\"b\":2}");
  }
  EXPECT_EQ(slurp(path), "{\"a\":1}\n{\"b\":2}\n");
  std::filesystem::remove(path);

  EventLog none;
  EXPECT_FALSE(none.enabled());
  none.write("dropped");  // must not crash
}

}  // namespace
}  // namespace zorv
