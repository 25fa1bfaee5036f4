// The parameter document for the analysis script, its base64 form and the quote escaper.
#include <gtest/gtest.h>

#include <rapidjson/document.h>

#include <string>

#include "module_test_support.h"

namespace mt {
namespace {

TEST(ParameterJson, FilesWithIlluminaAdapter) {
  GenoJobSettings job;
  job.adapterType = AdapterType::ILLUMINA;
  job.csvFilePath = "/tmp/1731721138.csv";
  job.fastqFiles = {"/runs/s1.fastq", "/runs/s2.fastq"};
  job.fastqFolder = "/ignored";  // files win: the folder is not written
  EXPECT_EQ(Peer::generateParameterJSON(&job),
            "{\"fastq_data\":[{\"adapter\":\"ILLUMINA\",\"custom_sequence\":\"\","
            "\"CSV_Path\":\"/tmp/1731721138.csv\",\"files\":[\"/runs/s1.fastq\",\"/runs/s2.fastq\"]}]}");
}

TEST(ParameterJson, CustomAdapterWithWindowsPaths) {
  GenoJobSettings job;
  job.setCustomAdapterSequence("AGATCGGAAGAGC");
  job.csvFilePath = "C:\\Temp\\1731721138.csv";
  job.fastqFiles = {"C:\\runs\\s1.fastq", "C:\\runs\\s2.fastq"};
  EXPECT_EQ(Peer::generateParameterJSON(&job),
            "{\"fastq_data\":[{\"adapter\":\"CUSTOM\",\"custom_sequence\":\"AGATCGGAAGAGC\","
            "\"CSV_Path\":\"C:\\\\Temp\\\\1731721138.csv\","
            "\"files\":[\"C:\\\\runs\\\\s1.fastq\",\"C:\\\\runs\\\\s2.fastq\"]}]}");
}

TEST(ParameterJson, FolderOnlyWhenThereAreNoFilesEvenAnEmptyOne) {
  GenoJobSettings job;
  EXPECT_EQ(Peer::generateParameterJSON(&job),
            "{\"fastq_data\":[{\"adapter\":\"NONE\",\"custom_sequence\":\"\",\"CSV_Path\":\"\",\"folder\":\"\"}]}");
  job.fastqFolder = "D:\\in";
  EXPECT_EQ(Peer::generateParameterJSON(&job),
            "{\"fastq_data\":[{\"adapter\":\"NONE\",\"custom_sequence\":\"\",\"CSV_Path\":\"\","
            "\"folder\":\"D:\\\\in\"}]}");
}

TEST(ParameterJson, EveryAdapterTextAndUnknownValues) {
  const struct {
    uint32_t value;
    const char* text;
  } cases[] = {{0, "NONE"}, {1, "ILLUMINA"}, {2, "NEXTERA"}, {3, "CUSTOM"}, {4, "NONE"}, {7, "NONE"},
               {0xFFFFFFFFu, "NONE"}};
  for (const auto& c : cases) {
    GenoJobSettings job;
    job.adapterType = static_cast<AdapterType>(c.value);
    rapidjson::Document doc;
    doc.Parse(Peer::generateParameterJSON(&job).c_str());
    ASSERT_FALSE(doc.HasParseError());
    EXPECT_STREQ(doc["fastq_data"][0]["adapter"].GetString(), c.text) << c.value;
  }
}

TEST(ParameterJson, StringsAreEscapedTheJsonWay) {
  GenoJobSettings job;
  job.csvFilePath = "a\"b/c\\d";
  job.fastqFiles = {std::string("tab\there\nnl\x01\x1f", 13), "caf\xc3\xa9"};
  EXPECT_EQ(Peer::generateParameterJSON(&job),
            "{\"fastq_data\":[{\"adapter\":\"NONE\",\"custom_sequence\":\"\",\"CSV_Path\":\"a\\\"b/c\\\\d\","
            "\"files\":[\"tab\\there\\nnl\\u0001\\u001F\",\"caf\xc3\xa9\"]}]}");
}

TEST(ParameterJson, ValuesStopAtTheirFirstNulByte) {
  GenoJobSettings job;
  job.customAdapterSequence = std::string("ACGT\0TTTT", 9);
  job.fastqFiles = {std::string("a.fq\0junk", 9)};
  EXPECT_EQ(Peer::generateParameterJSON(&job),
            "{\"fastq_data\":[{\"adapter\":\"NONE\",\"custom_sequence\":\"ACGT\",\"CSV_Path\":\"\","
            "\"files\":[\"a.fq\"]}]}");
}

TEST(ParameterJson, OutputIsReplacedAndNullRecordLeavesItAlone) {
  GenoJobSettings job;
  std::string out = "old contents";
  Peer::generateParameterJSONInto(nullptr, out);
  EXPECT_EQ(out, "old contents");
  Peer::generateParameterJSONInto(&job, out);
  EXPECT_EQ(out.rfind("{\"fastq_data\":", 0), 0u) << out;
  EXPECT_EQ(out.find("old contents"), std::string::npos);
}

TEST(Base64, KnownVectorsInTheStandardAlphabet) {
  const std::pair<std::string, const char*> cases[] = {
      {"", ""},           {"f", "Zg=="},         {"fo", "Zm8="},      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"\xff\xfe", "//4="},
      {std::string("\0\0\0", 3), "AAAA"}, {"\xfb\xff", "+/8="},  // not the URL-safe alphabet
  };
  for (const auto& [bytes, encoded] : cases) EXPECT_EQ(Peer::base64_encode(bytes), encoded) << encoded;
}

TEST(Base64, LongInputIsOneLineAndRoundTrips) {
  std::string bytes;
  for (int i = 0; i < 3 * 256 + 1; ++i) bytes.push_back(static_cast<char>(i * 7 + 3));
  const std::string encoded = Peer::base64_encode(bytes);
  EXPECT_EQ(encoded.size(), (bytes.size() + 2) / 3 * 4);
  EXPECT_EQ(encoded.find('\n'), std::string::npos);
  EXPECT_EQ(encoded.find('\r'), std::string::npos);

  // Decode independently and compare.
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string decoded;
  uint32_t buffer = 0;
  int bits = 0;
  for (char c : encoded) {
    if (c == '=') break;
    const auto index = alphabet.find(c);
    ASSERT_NE(index, std::string::npos) << c;
    buffer = (buffer << 6) | static_cast<uint32_t>(index);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      decoded.push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  EXPECT_EQ(decoded, bytes);
}

TEST(Base64, ParameterDocumentTravelsIntact) {
  GenoJobSettings job;
  job.fastqFolder = "/data/run 1";
  EXPECT_EQ(Peer::base64_encode(Peer::generateParameterJSON(&job)),
            "eyJmYXN0cV9kYXRhIjpbeyJhZGFwdGVyIjoiTk9ORSIsImN1c3RvbV9zZXF1ZW5jZSI6IiIsIkNTVl9QYXRoIjoiIiwiZm9sZGVyIjoiL2RhdGEvcnVuIDEifV19");
}

TEST(EscapeJson, QuotesGetABackslashAndNothingElseChanges) {
  auto manager = Peer::make();
  EXPECT_EQ(Peer::escapeJsonForCommandLine(*manager, "{\"a\":\"b\\c\"}"), "{\\\"a\\\":\\\"b\\c\\\"}");
  EXPECT_EQ(Peer::escapeJsonForCommandLine(*manager, ""), "");
  EXPECT_EQ(Peer::escapeJsonForCommandLine(*manager, "\"\""), "\\\"\\\"");
  EXPECT_EQ(Peer::escapeJsonForCommandLine(*manager, "plain \\n 'x'"), "plain \\n 'x'");
}

}  // namespace
}  // namespace mt
