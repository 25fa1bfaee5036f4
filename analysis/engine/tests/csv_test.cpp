// What file names on every system cannot spell: either slash in a path, and quotes, CR and LF in
// a field. (Names and quoting end to end: golden/runs.txt "names".)
#include "genostat/csv.h"

#include <gtest/gtest.h>

namespace genostat {
namespace {

TEST(Csv, NamesFromEitherSlashAndQuotingOfQuotesCrLf) {
  EXPECT_EQ(sampleNameFromPath("C:\\data\\S3.fq.gz"), "S3");
  EXPECT_EQ(sampleNameFromPath("mixed/dir\\S4.fq"), "S4");
  EXPECT_EQ(csvDocument({"a", "b", "c"}, {{"say \"hi\"", "cr\r", "l\nf"}, {"semi;colon'quote", ""}}),
            "a,b,c\n\"say \"\"hi\"\"\",\"cr\r\",\"l\nf\"\nsemi;colon'quote,\n");
}

}  // namespace
}  // namespace genostat
