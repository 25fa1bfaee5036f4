// String tables: the table format, FacSTDictionary's lookup order and fallback, the language
// setting, and the tables shipped for GENOSTAT.
#include "host/strings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "entry/Texts.h"
#include "zorvhost/client.h"

namespace fs = std::filesystem;

namespace {

using Table = std::map<std::string, std::string>;

struct Parsed {
  Table table;
  std::vector<zorvhost::StringTableIssue> issues;
  bool clean;
};

Parsed parse(const std::string& text) {
  Parsed p;
  p.clean = zorvhost::parseStringTable(text, p.table, p.issues);
  return p;
}

TEST(StringTableFormat, EntriesCommentsAndEscapes) {
  auto p = parse(
      "# comment line\n"
      "\n"
      "Summary\tZusammenfassung\n"
      "Valid:\tG\xC3\xBCltig:\n"                   // key with punctuation, UTF-8 text
      "fastQ file(s) detected.\tfound\tfiles\n"  // only the first TAB separates
      "Two\\nlines\ta\\nb\\tc\\\\d\n"            // escapes in key and text
      "Empty text\t\n");
  EXPECT_TRUE(p.clean);
  EXPECT_TRUE(p.issues.empty());
  EXPECT_EQ(p.table, (Table{{"Summary", "Zusammenfassung"},
                            {"Valid:", "G\xC3\xBCltig:"},
                            {"fastQ file(s) detected.", "found\tfiles"},
                            {"Two\nlines", "a\nb\tc\\d"},
                            {"Empty text", ""}}));
}

TEST(StringTableFormat, ByteOrderMarkCarriageReturnsAndMissingFinalNewline) {
  auto p = parse("\xEF\xBB\xBFSummary\tA\r\nCount\tB\r\nNone\tC");
  EXPECT_TRUE(p.clean);
  EXPECT_EQ(p.table, (Table{{"Summary", "A"}, {"Count", "B"}, {"None", "C"}}));
}

TEST(StringTableFormat, MalformedLinesAreLeftOutAndNamedTheRestLoads) {
  auto p = parse(
      "Summary\tA\n"             // 1 ok
      "Count = B\n"              // 2 no tab
      "\tno key\n"               // 3 empty key
      "Bad\\q\tC\n"              // 4 unknown escape in key
      "Trailing\tD\\\n"          // 5 lone backslash at the end
      "Latin1\t\xFC" "ber\n"      // 6 not UTF-8
      "Overlong\t\xC0\xAF\n"     // 7 overlong form
      "Summary\tsecond\n"        // 8 duplicate: the first stays
      "Dataset\tE\n");           // 9 ok
  EXPECT_FALSE(p.clean);
  EXPECT_EQ(p.table, (Table{{"Summary", "A"}, {"Dataset", "E"}}));
  ASSERT_EQ(p.issues.size(), 7u);
  std::vector<int> lines;
  for (auto& i : p.issues) lines.push_back(i.line);
  EXPECT_EQ(lines, (std::vector<int>{2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(p.issues[0].problem, "no tab between key and text");
  EXPECT_EQ(p.issues[1].problem, "empty key");
  EXPECT_EQ(p.issues[2].problem, "unknown escape (only \\n, \\t and \\\\ are known)");
  EXPECT_EQ(p.issues[3].problem, p.issues[2].problem);
  EXPECT_EQ(p.issues[4].problem, "not valid UTF-8");
  EXPECT_EQ(p.issues[5].problem, "not valid UTF-8");
  EXPECT_EQ(p.issues[6].problem, "key already defined above");
}

TEST(StringTableFormat, LineNumbersCountCommentsAndBlankLines) {
  auto p = parse("# c\n\n\nbroken\n");
  ASSERT_EQ(p.issues.size(), 1u);
  EXPECT_EQ(p.issues[0].line, 4);
}

// A throw-away installation folder with string tables in it. Its name is not ASCII: installation
// folders are named by users, and the name reaches the tables as UTF-8 on every system.
class DictionaryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = (fs::temp_directory_path() /
             fs::u8path("zorvhost-strings-\xC3\xA4\xE2\x9C\x93-" + std::to_string(std::random_device{}())))
                .u8string();
    ASSERT_TRUE(fs::create_directories(fs::u8path(root_)));
    zorvhost::setLanguage("en");
  }
  void TearDown() override {
    zorvhost::setLanguage("en");
    fs::remove_all(fs::u8path(root_));
  }
  void write(const std::string& relative, const std::string& text) {
    fs::path p = fs::u8path(root_) / relative;
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
  }
  std::string root_;
};

TEST_F(DictionaryTest, ProcedureTableThenGlobalTableThenTheKey) {
  write("strings/en/GENOSTAT.txt", "Summary\tJob summary\nNone\tnothing\n");
  write("strings/en/global.txt", "None\tglobal none\nOK\tfine\n");
  FacSTDictionary dict(root_ + "/");
  dict.SetProcedure("GENOSTAT");
  dict.SetGlobalStringTable(root_ + "/");
  EXPECT_EQ(dict.LookUp("Summary"), "Job summary");
  EXPECT_EQ(dict.LookUp("None"), "nothing");  // the procedure's table wins
  EXPECT_EQ(dict.LookUp("OK"), "fine");
  EXPECT_EQ(dict.LookUp("Unknown key"), "Unknown key");
  EXPECT_EQ(dict.LookUp(""), "");
}

TEST_F(DictionaryTest, NoTablesLoadedGivesTheKey) {
  FacSTDictionary dict(root_);
  EXPECT_EQ(dict.LookUp("Summary"), "Summary");
  dict.SetProcedure("GENOSTAT");  // files absent: still the key, no failure
  dict.SetGlobalStringTable(root_);
  EXPECT_EQ(dict.LookUp("Summary"), "Summary");
}

TEST_F(DictionaryTest, FolderWithoutTrailingSeparatorAndProcedureSwitch) {
  write("strings/en/GENOSTAT.txt", "Summary\tG\n");
  write("strings/en/OTHER.txt", "Count\tO\n");
  FacSTDictionary dict(root_);  // no trailing '/'
  dict.SetProcedure("GENOSTAT");
  EXPECT_EQ(dict.LookUp("Summary"), "G");
  dict.SetProcedure("OTHER");  // replaces, not merges
  EXPECT_EQ(dict.LookUp("Summary"), "Summary");
  EXPECT_EQ(dict.LookUp("Count"), "O");
  dict.SetProcedure("");
  EXPECT_EQ(dict.LookUp("Count"), "Count");
  dict.SetProcedure(nullptr);
  EXPECT_EQ(dict.LookUp("Count"), "Count");
}

TEST_F(DictionaryTest, LanguageSelectsTheFolderAtLoadTime) {
  write("strings/en/GENOSTAT.txt", "Summary\tSummary\n");
  write("strings/de/GENOSTAT.txt", "Summary\tZusammenfassung\n");
  zorvhost::setLanguage("de");
  EXPECT_EQ(zorvhost::language(), "de");
  FacSTDictionary dict(root_);
  dict.SetProcedure("GENOSTAT");
  EXPECT_EQ(dict.LookUp("Summary"), "Zusammenfassung");
  zorvhost::setLanguage("en");  // a loaded table keeps its language
  EXPECT_EQ(dict.LookUp("Summary"), "Zusammenfassung");

  zorvhost::setLanguage("fr");  // no tables for it: keys
  FacSTDictionary french(root_);
  french.SetProcedure("GENOSTAT");
  EXPECT_EQ(french.LookUp("Summary"), "Summary");

  zorvhost::setLanguage("");
  EXPECT_EQ(zorvhost::language(), "en");
}

TEST_F(DictionaryTest, TablesWithCrLfLinesReadAsWithLf) {
  write("strings/en/GENOSTAT.txt", "# edited on Windows\r\nSummary\tS\r\n\r\nCount\tC\r\n");
  FacSTDictionary dict(root_);
  ::testing::internal::CaptureStderr();
  dict.SetProcedure("GENOSTAT");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(dict.LookUp("Summary"), "S");
  EXPECT_EQ(dict.LookUp("Count"), "C");
}

// The installation folder the build produces: the console's default, on every system.
TEST(InstalledTables, TheBuildsInstallationFolderGivesTheGermanTexts) {
  zorvhost::setLanguage("de");
  FacSTDictionary dict(ZORVHOST_INSTALL_DIR);
  dict.SetProcedure("GENOSTAT");
  zorvhost::setLanguage("en");
  EXPECT_EQ(dict.LookUp("Summary"), "Zusammenfassung");
  EXPECT_EQ(dict.LookUp("Unknown error occurred"), "Unbekannter Fehler aufgetreten");
}

TEST_F(DictionaryTest, MalformedLinesAreReportedWithFileAndLine) {
  write("strings/en/GENOSTAT.txt", "Summary\tS\nCount = C\nNone\tN\n");
  FacSTDictionary dict(root_);
  ::testing::internal::CaptureStderr();
  dict.SetProcedure("GENOSTAT");
  std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "zorvhost: " + root_ + "/strings/en/GENOSTAT.txt:2: no tab between key and text; "
                 "line ignored\n");
  EXPECT_EQ(dict.LookUp("Summary"), "S");
  EXPECT_EQ(dict.LookUp("None"), "N");
  EXPECT_EQ(dict.LookUp("Count = C"), "Count = C");
}

// ---- the tables shipped for GENOSTAT ----

Table loadShipped(const std::string& language) {
  std::ifstream in(std::string(ZORVHOST_STRINGS_SOURCE_DIR) + "/" + language + "/GENOSTAT.txt",
                   std::ios::binary);
  EXPECT_TRUE(in) << "missing table for " << language;
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto p = parse(text);
  for (auto& i : p.issues) ADD_FAILURE() << language << " line " << i.line << ": " << i.problem;
  return p.table;
}

// The job-side texts of the module: the keys it looks up.
const std::vector<std::string>& moduleKeys() {
  static const std::vector<std::string> keys = {
      texts::kGenomicAnalysisJob, texts::kSummary, texts::kCount, texts::kSamples,
      texts::kVariables, texts::kDetails, texts::kMessage, texts::kDataset, texts::kNone,
      texts::kValid, texts::kFastqFilesDetected, texts::kError, texts::kGenericError,
      texts::kGeneralError, texts::kFileNotFound, texts::kInvalidJsonConfiguration,
      texts::kInvalidConfiguration, texts::kErrorProcessingFastq,
      texts::kMissingPythonDependencies, texts::kPermissionDenied, texts::kNoFastqFilesFound,
      texts::kErrorWritingOutput, texts::kInvalidAdapterSequence,
      texts::kErrorInParallelProcessing, texts::kInsufficientMemory,
      texts::kInvalidCommandLineArguments, texts::kUnknownErrorOccurred};
  return keys;
}

TEST(ShippedTables, EnglishHasEveryModuleKeyAsItsOwnText) {
  Table en = loadShipped("en");
  for (const auto& key : moduleKeys()) {
    auto it = en.find(key);
    ASSERT_NE(it, en.end()) << "missing key: " << key;
    EXPECT_EQ(it->second, key);
  }
  EXPECT_EQ(en.size(), moduleKeys().size()) << "the English table holds keys the module never uses";
}

TEST(ShippedTables, GermanTranslatesEveryEnglishKey) {
  Table en = loadShipped("en");
  Table de = loadShipped("de");
  for (const auto& entry : en) {
    auto it = de.find(entry.first);
    ASSERT_NE(it, de.end()) << "German table lacks: " << entry.first;
    EXPECT_FALSE(it->second.empty()) << entry.first;
  }
  for (const auto& entry : de) EXPECT_TRUE(en.count(entry.first)) << "extra key: " << entry.first;
  // Translated, not copied (a few words such as "Details" are the same in both languages).
  EXPECT_NE(de.at("Summary"), "Summary");
  EXPECT_NE(de.at("Unknown error occurred"), "Unknown error occurred");
  // The automatic job name becomes a dataset name: keep it to letters, digits and '_'.
  for (char c : de.at("Genomic_analysis_job")) {
    EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(c)) || c == '_') << c;
  }
}

}  // namespace
