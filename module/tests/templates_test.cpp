// The syntax templates, their fill and the tidy step.
#include <gtest/gtest.h>

#include "results/SyntaxTemplates.h"

namespace {

using namespace genostat::results;

std::string pad(std::size_t n) { return std::string(n, ' '); }

TEST(Fnv1aTest, KnownVectors) {
  EXPECT_EQ(Fnv1aHash::hash64(""), 0xcbf29ce484222325ull);
  EXPECT_EQ(Fnv1aHash::hash64("a"), 0xaf63dc4c8601ec8cull);
  EXPECT_EQ(Fnv1aHash::hash64("foobar"), 0x85944171f73967e8ull);
  EXPECT_EQ(Fnv1aHash{}("foobar"), static_cast<std::size_t>(0x85944171f73967e8ull));
}

TEST(TemplateTableTest, HoldsTheEightTemplates) {
  const TemplateTable t = buildTemplateTable();
  EXPECT_EQ(t.size(), 8u);
  for (const char* name : {kGenostatOutput, kGenostatDelete, kImportCsv, kDescriptives, kFrequency,
                           kCorrelationPearson, kCorrelationSpKen, kRegression}) {
    ASSERT_EQ(t.count(name), 1u) << name;
    EXPECT_NE(t.at(name).back(), '\n') << name;  // no template ends in a line feed
  }
}

// The command templates' bytes are pinned through their filled forms in postjob_test.cpp.

TEST(TemplateTableTest, ImportTemplateLineByLine) {
  const std::string text = buildTemplateTable().at(kImportCsv);
  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
    lines.push_back(text.substr(begin, end - begin));
  lines.push_back(text.substr(begin));
  ASSERT_EQ(lines.size(), 46u);
  EXPECT_EQ(lines[0], "");
  EXPECT_EQ(lines[1], pad(16) + "PRESERVE.");
  EXPECT_EQ(lines[2], pad(16) + "SET DECIMAL DOT.");
  EXPECT_EQ(lines[3], "");
  EXPECT_EQ(lines[4], pad(16) + "GET DATA  /TYPE=TXT");
  EXPECT_EQ(lines[5], pad(16) + "/FILE=\"{{CSVPATH}}\"");
  EXPECT_EQ(lines[6], pad(16) + "/ENCODING='UTF8'");
  EXPECT_EQ(lines[7], pad(16) + "/DELIMITERS=\",\"");
  EXPECT_EQ(lines[8], pad(16) + "/QUALIFIER='\"'");
  EXPECT_EQ(lines[9], pad(16) + "/ARRANGEMENT=DELIMITED");
  EXPECT_EQ(lines[10], pad(16) + "/FIRSTCASE=2");
  EXPECT_EQ(lines[11], pad(16) + "/DATATYPEMIN PERCENTAGE=95.0");
  EXPECT_EQ(lines[12], pad(16) + "/VARIABLES=");
  EXPECT_EQ(lines[13], pad(16) + "Sample AUTO");
  EXPECT_EQ(lines[14], pad(16) + "Adapter_Type AUTO");
  EXPECT_EQ(lines[18], pad(16) + "GC AUTO");
  EXPECT_EQ(lines[32], pad(16) + "per_tile_sequence_quality AUTO");
  EXPECT_EQ(lines[33], pad(16) + "qc_score AUTO");
  EXPECT_EQ(lines[39], pad(16) + "overrepresented_seq_count AUTO");
  for (int i = 13; i <= 39; ++i) {
    const std::string& l = lines[static_cast<std::size_t>(i)];
    EXPECT_EQ(l.substr(l.size() - 5), " AUTO") << i;
  }
  EXPECT_EQ(lines[40], pad(16) + "/MAP.");
  EXPECT_EQ(lines[41], pad(16) + "RESTORE.");
  EXPECT_EQ(lines[42], pad(16) + "CACHE.");
  EXPECT_EQ(lines[43], pad(16) + "EXECUTE.");
  EXPECT_EQ(lines[44], pad(16) + "DATASET NAME {{JOBNAME}}.");
  EXPECT_EQ(lines[45], pad(16) + "DATASET ACTIVATE {{JOBNAME}}.");
}

TEST(FillTest, UnknownTemplateGivesEmptyText) {
  EXPECT_EQ(fillTemplate(buildTemplateTable(), "NO_SUCH", {{"SC", "1"}}), "");
  EXPECT_EQ(fillTemplate(buildTemplateTable(), "genostat_output", {}), "");  // names are exact
}

TEST(FillTest, ReplacesEveryOccurrenceAndKeepsUnknownOrMalformedPlaceholders) {
  TemplateTable t;
  t["T"] = "{{A}}-{{A}} {{B}} {{a b}} {{}} {{A-1}} {{ä}} {{_x9}}";
  EXPECT_EQ(fillTemplate(t, "T", {{"A", "1"}, {"_x9", "ok"}, {"a b", "no"}, {"", "no"}, {"A-1", "no"}}),
            "1-1 {{B}} {{a b}} {{}} {{A-1}} {{ä}} ok");
}

TEST(FillTest, ValuesAreNotScannedAgainNorEscaped) {
  TemplateTable t;
  t["T"] = "x={{A}};y={{B}}";
  EXPECT_EQ(fillTemplate(t, "T", {{"A", "{{B}}"}, {"B", "it's \"q\""}}), "x={{B}};y=it's \"q\"");
}

TEST(FillTest, UnclosedBracesRepeatTheRest) {
  TemplateTable t;
  t["T"] = "a{{A}}b{{c";
  // After "a1", the scan stands at "b{{c": the rest from "{{" then the whole rest once more.
  EXPECT_EQ(fillTemplate(t, "T", {{"A", "1"}}), "a1b{{cb{{c");
  t["U"] = "{{open";
  EXPECT_EQ(fillTemplate(t, "U", {}), "{{open{{open");
  t["V"] = "p}}q{{A}}";
  EXPECT_EQ(fillTemplate(t, "V", {{"A", "z"}}), "p}}qz");
}

TEST(FillTest, TidyDropsBlankLinesAndKeepsIndentation) {
  TemplateTable t;
  t["T"] = "\n\nfirst {{A}}\n    {{B}}\n \t\r\n    second\n{{C}}\n";
  EXPECT_EQ(fillTemplate(t, "T", {{"A", ""}, {"B", ""}, {"C", "\nthird"}}), "first \n    second\nthird");
  EXPECT_EQ(dropBlankLines("\n \n\t\n"), "");
  EXPECT_EQ(dropBlankLines("a\r\nb"), "a\r\nb");  // a line ending in CR is kept whole
  EXPECT_EQ(dropBlankLines("  a  "), "  a  ");
}

TEST(FillTest, FilledImportStartsWithPreserve) {
  const std::string text =
      fillTemplate(buildTemplateTable(), kImportCsv, {{"CSVPATH", "/tmp/1.csv"}, {"JOBNAME", "run_1"}});
  EXPECT_EQ(text.rfind(pad(16) + "PRESERVE.\n" + pad(16) + "SET DECIMAL DOT.\n" + pad(16) + "GET DATA", 0), 0u);
  EXPECT_NE(text.find("/FILE=\"/tmp/1.csv\""), std::string::npos);
  EXPECT_NE(text.find("DATASET ACTIVATE run_1."), std::string::npos);
  EXPECT_EQ(text.find("{{"), std::string::npos);
}

}  // namespace
