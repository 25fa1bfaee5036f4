// Sample names from file names (suffixes, empty results, case-insensitive de-duplication) and the
// CSV text (quoting, header, LF).
#include "genostat/csv.h"

#include <gtest/gtest.h>

namespace genostat {
namespace {

TEST(SampleName, StripsCompressionThenFastqSuffix) {
  EXPECT_EQ(sampleNameFromPath("S1_R1.fastq.gz"), "S1_R1");
  EXPECT_EQ(sampleNameFromPath("x.FQ"), "x");
  EXPECT_EQ(sampleNameFromPath("a.fq.GZ"), "a");
  EXPECT_EQ(sampleNameFromPath("b.fastq.bz2"), "b");
  EXPECT_EQ(sampleNameFromPath("c.Fastq.Bz2"), "c");
  EXPECT_EQ(sampleNameFromPath("reads.txt"), "reads.txt");
  // Only one compression suffix and one FASTQ suffix, in that order.
  EXPECT_EQ(sampleNameFromPath("d.gz.gz"), "d.gz");
  EXPECT_EQ(sampleNameFromPath("e.fq.fastq"), "e.fq");
  EXPECT_EQ(sampleNameFromPath("f.gz.fastq"), "f.gz");
  EXPECT_EQ(sampleNameFromPath("example.fastq.bgz"), "example.fastq.bgz");
}

TEST(SampleName, TakesTheLastPathComponentOfEitherSlash) {
  EXPECT_EQ(sampleNameFromPath("/data/run 1/S2.fastq"), "S2");
  EXPECT_EQ(sampleNameFromPath("C:\\data\\S3.fq.gz"), "S3");
  EXPECT_EQ(sampleNameFromPath("mixed/dir\\S4.fq"), "S4");
}

TEST(SampleName, KeepsTheComponentWhenNothingWouldBeLeft) {
  EXPECT_EQ(sampleNameFromPath("dir/.fastq.gz"), ".fastq.gz");
  EXPECT_EQ(sampleNameFromPath(".fq"), ".fq");
  EXPECT_EQ(sampleNameFromPath(".gz"), ".gz");
}

TEST(SampleName, DuplicatesGetTheSmallestFreeNumber) {
  EXPECT_EQ(uniqueSampleNames({"run/S1.fastq", "other/S1.fq.gz"}),
            (std::vector<std::string>{"S1", "S1_2"}));
  // Case-insensitive; the first spelling is kept, later ones are numbered.
  EXPECT_EQ(uniqueSampleNames({"a/s1.fq", "b/S1.fq", "c/s1.FASTQ"}),
            (std::vector<std::string>{"s1", "S1_2", "s1_3"}));
  // A number already taken by a real file name is skipped.
  EXPECT_EQ(uniqueSampleNames({"x.fq", "x_2.fq", "y/x.fq"}),
            (std::vector<std::string>{"x", "x_2", "x_3"}));
  // A later file whose own name equals an earlier numbered name is numbered in turn.
  EXPECT_EQ(uniqueSampleNames({"x.fq", "y/x.fq", "x_2.fq"}),
            (std::vector<std::string>{"x", "x_2", "x_2_2"}));
  EXPECT_TRUE(uniqueSampleNames({}).empty());
}

TEST(CsvField, QuotesOnlyWhenNeeded) {
  EXPECT_EQ(csvField("plain name"), "plain name");
  EXPECT_EQ(csvField(""), "");
  EXPECT_EQ(csvField("a,b"), "\"a,b\"");
  EXPECT_EQ(csvField("say \"hi\""), "\"say \"\"hi\"\"\"");
  EXPECT_EQ(csvField("line\nbreak"), "\"line\nbreak\"");
  EXPECT_EQ(csvField("cr\r"), "\"cr\r\"");
  EXPECT_EQ(csvField("semi;colon'quote"), "semi;colon'quote");
}

TEST(CsvDocument, HeaderAlwaysThenRowsEachEndingInLf) {
  const std::vector<std::string> columns{"Sample", "Total"};
  EXPECT_EQ(csvDocument(columns, {}), "Sample,Total\n");
  EXPECT_EQ(csvDocument(columns, {{"a,1", "3"}, {"b", ""}}), "Sample,Total\n\"a,1\",3\nb,\n");
}

}  // namespace
}  // namespace genostat
