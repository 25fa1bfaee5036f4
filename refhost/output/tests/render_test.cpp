// Renderings of a table: aligned text (multi-byte labels, ragged rows, awkward texts), HTML
// (escaping, structure, the page frame) and the one-line JSON event.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

#include "zorvhost/output.h"

namespace {

using zorvhost::OutputTable;
using Texts = std::vector<std::string>;

OutputTable summaryTable() {
  OutputTable t;
  t.procedure = "GENOSTAT";
  t.title = "Summary";
  t.rowDimensionLabel = "  ";
  t.showRowDimensionLabel = false;
  t.columnLabels = {"Count"};
  t.rowLabels = {"Samples", "Variables"};
  t.cells = {{"3"}, {"27"}};
  t.formatType = 5;
  t.formatWidth = 10;
  t.formatDecimals = 4;
  return t;
}

OutputTable detailsTable() {
  OutputTable t = summaryTable();
  t.title = "Details";
  t.columnLabels = {"", ""};
  t.rowLabels = {"Message", "Dataset"};
  t.cells = {{"Valid:3 fastQ file(s) detected."}, {"job1"}};
  return t;
}

Texts lines(const std::string& text) {
  Texts out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

std::size_t codePoints(const std::string& s) {
  std::size_t n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80;
  return n;
}

// ---- Text ---------------------------------------------------------------------------------------

TEST(TextTable, SummaryLooksAsIntended) {
  EXPECT_EQ(zorvhost::renderTableText(summaryTable()),
            "Summary\n"
            "┌───────────┬───────┐\n"
            "│           │ Count │\n"
            "├───────────┼───────┤\n"
            "│ Samples   │     3 │\n"
            "│ Variables │    27 │\n"
            "└───────────┴───────┘\n");
}

TEST(TextTable, DetailsShowsEveryGivenColumnAndNoEmptyHeader) {
  EXPECT_EQ(zorvhost::renderTableText(detailsTable(), zorvhost::TextRules::Ascii),
            "Details\n"
            "+---------+---------------------------------+--+\n"
            "| Message | Valid:3 fastQ file(s) detected. |  |\n"
            "| Dataset | job1                            |  |\n"
            "+---------+---------------------------------+--+\n");
}

TEST(TextTable, GermanLabelsAlignByCharactersNotBytes) {
  OutputTable t = summaryTable();
  t.title = "Zusammenfassung";
  t.columnLabels = {"Größe"};
  t.rowLabels = {"Proben", "Variablen", "Übrige"};
  t.cells = {{"3"}, {"27"}, {"ä"}};
  const Texts out = lines(zorvhost::renderTableText(t));
  ASSERT_EQ(out.size(), 8u);
  for (std::size_t i = 2; i < out.size(); ++i) {
    EXPECT_EQ(codePoints(out[i]), codePoints(out[1])) << out[i];
  }
  EXPECT_EQ(out[2], "│           │ Größe │");
  EXPECT_EQ(out[6], "│ Übrige    │ ä     │");
  EXPECT_NE(out[6].size(), out[5].size());  // the bytes differ, the columns do not
}

TEST(TextTable, WideAndCombiningCharactersTakeTheirDisplayWidth) {
  OutputTable t;
  t.hideTitle = true;
  t.title = "hidden";
  t.rowLabels = {"表", "ab"};
  t.cells = {{"e\xCC\x81"}, {"xy"}};
  EXPECT_EQ(zorvhost::renderTableText(t),
            "┌────┬────┐\n"
            "│ 表 │ e\xCC\x81  │\n"
            "│ ab │ xy │\n"
            "└────┴────┘\n");
}

TEST(TextTable, NumbersAlignRightAndTextsLeft) {
  OutputTable t;
  t.title = "Mixed";
  t.columnLabels = {"value"};
  t.rowLabels = {"a", "b", "c", "d", "e"};
  t.cells = {{"-1.5"}, {"2e+10"}, {"1."}, {"n/a"}, {"1e"}};
  const Texts out = lines(zorvhost::renderTableText(t, zorvhost::TextRules::Ascii));
  ASSERT_EQ(out.size(), 10u);
  EXPECT_EQ(out[2], "|   | value |");
  EXPECT_EQ(out[4], "| a |  -1.5 |");
  EXPECT_EQ(out[5], "| b | 2e+10 |");
  EXPECT_EQ(out[6], "| c |    1. |");
  EXPECT_EQ(out[7], "| d | n/a   |");
  EXPECT_EQ(out[8], "| e | 1e    |");
}

TEST(TextTable, RaggedInputShowsEveryValueAndFillsTheRest) {
  OutputTable t;
  t.title = "Ragged";
  t.rowDimensionLabel = "Rows";
  t.columnLabels = {"A"};
  t.rowLabels = {"r1", "r2", "r3"};
  t.cells = {{"x", "y", "z"}, {}};
  EXPECT_EQ(zorvhost::renderTableText(t, zorvhost::TextRules::Ascii),
            "Ragged\n"
            "+------+---+---+---+\n"
            "| Rows | A |   |   |\n"
            "+------+---+---+---+\n"
            "| r1   | x | y | z |\n"
            "| r2   |   |   |   |\n"
            "| r3   |   |   |   |\n"
            "+------+---+---+---+\n");
}

TEST(TextTable, LineBreaksMakeTallerRowsAndControlsShowAsBlanks) {
  OutputTable t;
  t.title = "Two\nlines";
  t.rowLabels = {"r"};
  t.cells = {{"first\r\nsecond\rthird"}, };
  t.cells[0].push_back("a\tb\x01");
  EXPECT_EQ(zorvhost::renderTableText(t, zorvhost::TextRules::Ascii),
            "Two\n"
            "lines\n"
            "+---+--------+------+\n"
            "| r | first  | a b  |\n"
            "|   | second |      |\n"
            "|   | third  |      |\n"
            "+---+--------+------+\n");
}

TEST(TextTable, InvalidUtf8ShowsAsReplacementAndKeepsAlignment) {
  OutputTable t;
  t.hideTitle = true;
  t.rowLabels = {"a\xFF", "\xE2\x82", "ok"};
  t.cells = {{"1"}, {"2"}, {"3"}};
  const Texts out = lines(zorvhost::renderTableText(t, zorvhost::TextRules::Ascii));
  ASSERT_EQ(out.size(), 5u);
  EXPECT_EQ(out[1], "| a\xEF\xBF\xBD | 1 |");
  EXPECT_EQ(out[2], "| \xEF\xBF\xBD\xEF\xBF\xBD | 2 |");
  EXPECT_EQ(out[3], "| ok | 3 |");
}

TEST(TextTable, AsciiRulesUseOnlyAscii) {
  const std::string out = zorvhost::renderTableText(summaryTable(), zorvhost::TextRules::Ascii);
  for (unsigned char c : out) EXPECT_LT(c, 0x80);
}

TEST(TextTable, EmptyTableStillRenders) {
  OutputTable t;
  t.title = "Nothing";
  EXPECT_EQ(zorvhost::renderTableText(t, zorvhost::TextRules::Ascii), "Nothing\n+--+\n+--+\n");
}

// ---- HTML ---------------------------------------------------------------------------------------

TEST(HtmlTable, SummaryStructure) {
  EXPECT_EQ(zorvhost::renderTableHtml(summaryTable()),
            "<div class=\"zorv-frame\"><table class=\"zorv-table\">\n"
            "<caption>Summary</caption>\n"
            "<thead><tr><th class=\"zorv-corner\"></th><th scope=\"col\">Count</th></tr></thead>\n"
            "<tbody>\n"
            "<tr><th scope=\"row\">Samples</th><td class=\"zorv-num\">3</td></tr>\n"
            "<tr><th scope=\"row\">Variables</th><td class=\"zorv-num\">27</td></tr>\n"
            "</tbody>\n"
            "</table></div>\n");
}

TEST(HtmlTable, EveryTextIsEscaped) {
  OutputTable t;
  t.title = "<b>Title</b> & \"more\"";
  t.rowDimensionLabel = "it's";
  t.columnLabels = {"a<b"};
  t.rowLabels = {"x>y"};
  t.cells = {{"<script>alert('x')</script>", "Tom & \"Jerry\""}};
  const std::string html = zorvhost::renderTableHtml(t);
  EXPECT_EQ(html.find("<script"), std::string::npos) << html;
  EXPECT_EQ(html.find("<b>"), std::string::npos) << html;
  EXPECT_NE(html.find("<caption>&lt;b&gt;Title&lt;/b&gt; &amp; &quot;more&quot;</caption>"), std::string::npos);
  EXPECT_NE(html.find(">it&#39;s<"), std::string::npos);
  EXPECT_NE(html.find(">a&lt;b<"), std::string::npos);
  EXPECT_NE(html.find(">x&gt;y<"), std::string::npos);
  EXPECT_NE(html.find("<td>&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;</td>"), std::string::npos);
  EXPECT_NE(html.find("<td>Tom &amp; &quot;Jerry&quot;</td>"), std::string::npos);
}

TEST(HtmlTable, HiddenTitleEmptyHeaderLineBreaksAndBadBytes) {
  OutputTable t = detailsTable();
  t.hideTitle = true;
  t.cells[0][0] = "one\r\ntwo\nthree\x01\xC3";
  const std::string html = zorvhost::renderTableHtml(t);
  EXPECT_EQ(html.find("<caption"), std::string::npos);
  EXPECT_EQ(html.find("<thead"), std::string::npos);
  EXPECT_NE(html.find("<td>one<br>two<br>three\xEF\xBF\xBD</td><td></td>"), std::string::npos) << html;
  EXPECT_NE(html.find("<tr><th scope=\"row\">Dataset</th><td>job1</td><td></td></tr>"), std::string::npos);
}

TEST(HtmlEscape, KeepsUtf8AndDropsControls) {
  EXPECT_EQ(zorvhost::htmlEscape("Größe\t<1>\x7F\x02"), "Größe\t&lt;1&gt;");
  EXPECT_EQ(zorvhost::htmlEscape("\xF0\x9F\x98\x80 \xED\xA0\x80"), "\xF0\x9F\x98\x80 \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(zorvhost::htmlEscape("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");  // overlong '/'
}

TEST(HtmlPage, IsSelfContainedAndEscapesItsTitle) {
  const std::string page = zorvhost::htmlPageHeader("Session <1> & \"x\"") +
                           zorvhost::renderTableHtml(summaryTable()) + zorvhost::htmlPageFooter();
  EXPECT_EQ(page.rfind("<!DOCTYPE html>", 0), 0u);
  EXPECT_NE(page.find("<meta charset=\"utf-8\">"), std::string::npos);
  EXPECT_NE(page.find("<title>Session &lt;1&gt; &amp; &quot;x&quot;</title>"), std::string::npos);
  for (const char* external : {"http:", "https:", "src=", "href=", "@import", "url("}) {
    EXPECT_EQ(page.find(external), std::string::npos) << external;
  }
  for (const char* tag : {"html", "head", "style", "body", "table", "title"}) {
    const std::string open = std::string("<") + tag;
    const std::string close = std::string("</") + tag + ">";
    std::size_t opens = 0, closes = 0;
    for (auto p = page.find(open + ">"); p != std::string::npos; p = page.find(open + ">", p + 1)) ++opens;
    for (auto p = page.find(open + " "); p != std::string::npos; p = page.find(open + " ", p + 1)) ++opens;
    for (auto p = page.find(close); p != std::string::npos; p = page.find(close, p + 1)) ++closes;
    EXPECT_EQ(opens, 1u) << tag;
    EXPECT_EQ(closes, 1u) << tag;
  }
  EXPECT_EQ(page.substr(page.size() - 8), "</html>\n");
}

// ---- JSON event ---------------------------------------------------------------------------------

TEST(TableEvent, SummaryIsExactlyTheEvent) {
  EXPECT_EQ(zorvhost::tableEventJson(summaryTable()),
            R"({"event":"table","title":"Summary","column_labels":["Count"],)"
            R"("row_labels":["Samples","Variables"],"cells":[["3"],["27"]]})");
}

TEST(TableEvent, CellsAreTheRowsAsGiven) {
  EXPECT_EQ(zorvhost::tableEventJson(detailsTable()),
            R"({"event":"table","title":"Details","column_labels":["",""],)"
            R"("row_labels":["Message","Dataset"],"cells":[["Valid:3 fastQ file(s) detected."],["job1"]]})");
  OutputTable empty;
  EXPECT_EQ(zorvhost::tableEventJson(empty),
            R"({"event":"table","title":"","column_labels":[],"row_labels":[],"cells":[]})");
}

TEST(TableEvent, EscapesQuotesBackslashesAndControlsOnOneLine) {
  OutputTable t;
  t.title = "say \"hi\"\\";
  t.columnLabels = {"tab\there", "line\nbreak"};
  t.rowLabels = {std::string("nul") + '\0' + "\x01\x1F"};
  t.cells = {{"Größe 表 \xF0\x9F\x98\x80", "bad\xFF" "byte"}};
  const std::string event = zorvhost::tableEventJson(t);
  EXPECT_EQ(event.find('\n'), std::string::npos);
  EXPECT_NE(event.find(R"("title":"say \"hi\"\\")"), std::string::npos) << event;
  EXPECT_NE(event.find(R"(["tab\there","line\nbreak"])"), std::string::npos) << event;
  EXPECT_NE(event.find(R"(["nul\u0000\u0001\u001F"])"), std::string::npos) << event;
  // UTF-8 passes through unescaped; a stray byte becomes U+FFFD.
  EXPECT_NE(event.find("\"Größe 表 \xF0\x9F\x98\x80\""), std::string::npos) << event;
  EXPECT_NE(event.find("\"bad\xEF\xBF\xBD" "byte\""), std::string::npos) << event;

  rapidjson::Document doc;
  doc.Parse<rapidjson::kParseValidateEncodingFlag>(event.data(), event.size());
  ASSERT_FALSE(doc.HasParseError());
  EXPECT_EQ(std::string(doc["title"].GetString()), t.title);
  EXPECT_EQ(std::string(doc["row_labels"][0].GetString(), doc["row_labels"][0].GetStringLength()), t.rowLabels[0]);
  EXPECT_EQ(std::string(doc["column_labels"][1].GetString()), "line\nbreak");
  ASSERT_EQ(doc.MemberCount(), 5u);
  const char* order[] = {"event", "title", "column_labels", "row_labels", "cells"};
  std::size_t i = 0;
  for (const auto& m : doc.GetObject()) EXPECT_STREQ(m.name.GetString(), order[i++]);
}

}  // namespace
