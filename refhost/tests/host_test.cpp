// The host's data roads end to end: host.txt holds delimited text imports, string tables and
// scripts of dataset commands, each followed by what it gives (see golden.h). Then what needs files:
// imports from disk, and string tables in an installation folder.
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "entry/Texts.h"
#include "golden.h"
#include "host/datasets.h"
#include "host/strings.h"
#include "zorvhost/client.h"

namespace fs = std::filesystem;

namespace {

std::string show(const std::string& s) { return "`" + golden::escape(s) + "`"; }
std::string show(double x) {
  std::ostringstream out;
  out << x;
  return std::isnan(x) ? "." : out.str();
}

// "@import key=value ...": the settings of the module's import syntax (comma, double quote, cases
// from line 2), changed by names=a,b:F8.2 (a format after ':'), delimiters=, qualifier=,
// firstcase=, percentage=, decimal= and encoding=.
zorvhost::TextImportSettings settingsOf(const std::string& directive) {
  zorvhost::TextImportSettings s;
  s.qualifier = "\"";
  s.firstCase = 2;
  std::istringstream words(directive.substr(7));
  for (std::string word; words >> word;) {
    const std::string key = word.substr(0, word.find('=')), value = golden::unescape(word.substr(key.size() + 1));
    std::istringstream names(value);
    for (std::string n; key == "names" && std::getline(names, n, ',');) {
      const size_t colon = n.find(':');
      s.variables.push_back({n.substr(0, colon), colon == std::string::npos ? "AUTO" : n.substr(colon + 1)});
    }
    if (key == "names" && !value.empty() && value.back() == ',') s.variables.push_back({"", "AUTO"});
    if (key == "delimiters") s.delimiters = value;
    if (key == "qualifier") s.qualifier = value;
    if (key == "firstcase") s.firstCase = std::stoi(value);
    if (key == "percentage") s.typeMinPercentage = std::stod(value);
    if (key == "decimal") s.decimal = value.at(0);
    if (key == "encoding") s.encoding = value;
  }
  return s;
}

std::string dataOf(const zorvhost::DatasetData& d) {
  std::ostringstream out;
  out << d.cases << " cases\n";
  for (const auto& v : d.variables) {
    const bool numeric = v.type == zorvhost::Variable::Type::Numeric;
    out << v.name << (numeric ? " numeric:" : " string:");
    for (double x : v.numbers) out << " " << show(x);
    for (const auto& s : v.strings) out << " " << show(s);
    out << "\n";
  }
  return out.str();
}

std::string import(const std::string& directive, const std::string& text) {
  zorvhost::DatasetData data;
  data.cases = 42;
  std::vector<std::string> notes;
  std::string error;
  if (!zorvhost::importDelimitedText(text, settingsOf(directive), data, notes, error)) {
    return "error: " + error + (data.cases == 42 && data.variables.empty() ? "" : " (the data changed)");
  }
  std::string out = dataOf(data);
  for (const auto& n : notes) out += "note: " + n + "\n";
  return out;
}

std::string stringTable(const std::string& text) {
  std::map<std::string, std::string> table;
  std::vector<zorvhost::StringTableIssue> issues;
  std::string out = zorvhost::parseStringTable(text, table, issues) ? "clean\n" : "not clean\n";
  for (const auto& [key, value] : table) out += show(key) + " = " + show(value) + "\n";
  for (const auto& i : issues) out += "line " + std::to_string(i.line) + ": " + i.problem + "\n";
  return out;
}

// The registry after a step: every dataset (name/cases, * when active), and what the module sees.
std::string registry() {
  std::string out;
  for (const auto& d : zorvhost::datasets()) {
    out += " " + (d.name.empty() ? "(unnamed)" : d.name) + "/" + std::to_string(d.cases) + (d.active ? "*" : "");
  }
  std::vector<SvrDMDataset*> list{nullptr};  // GetAllDatasets replaces the list
  ServerDataManager::GetInstance()->GetAllDatasets(list);
  std::vector<std::string> seen;
  for (auto* d : list) d->GetHandle(seen.emplace_back());
  out += " | module:";
  for (const auto& name : seen) out += " " + name;
  return out + (seen == zorvhost::datasetNames() ? "" : " (datasetNames differs)");
}

// One step of "@datasets": open, import <cases> <first variable>, name, activate, close, close-all,
// data <name>, active.
std::string datasetStep(const std::string& step) {
  std::istringstream words(step);
  std::string op, arg, error = "ok";
  words >> op;
  std::getline(words >> std::ws, arg);
  zorvhost::DatasetData d;
  zorvhost::DatasetInfo info;
  if (op == "open") zorvhost::openDataset(arg);
  if (op == "import") {
    d.cases = std::stoul(arg);
    d.variables.push_back({arg.substr(arg.find(' ') + 1), zorvhost::Variable::Type::Numeric,
                           std::vector<double>(d.cases, 1.0), {}});
    zorvhost::addImportedDataset(d);
  }
  if (op == "name" && !zorvhost::nameActiveDataset(arg, error)) error = "refused: " + error;
  if (op == "activate" && !zorvhost::activateDataset(arg, error)) error = "refused: " + error;
  if (op == "close") error = zorvhost::closeDataset(arg) ? "closed" : "none closed";
  if (op == "close-all") zorvhost::closeAllDatasets();
  if (op == "data") error = zorvhost::datasetData(arg, d) ? d.variables.at(0).name : "not found";
  if (op == "active") {
    error = zorvhost::activeDataset(info) ? show(info.name) + " " + std::to_string(info.cases) + " cases, " +
                                                std::to_string(info.variables) + " variables"
                                          : "none";
    if (zorvhost::activeDatasetData(d) != (error != "none") || d.cases != info.cases) error += " (its data differ)";
  }
  return step + ": " + error + " |" + registry() + "\n";
}

TEST(Host, EveryCaseGivesItsExpectedResult) {
  golden::check(REFHOST_TESTS_DIR "/host.txt", [](const std::string& directive, const std::string* text) {
    if (!text) return std::string();
    if (directive.rfind("@import", 0) == 0) return import(directive, *text);
    if (directive == "@string-table") return stringTable(*text);
    std::string out;
    zorvhost::closeAllDatasets();
    for (const auto& step : golden::lines(*text)) out += datasetStep(step);
    zorvhost::closeAllDatasets();
    return out;
  });
}

// A folder of its own, named in UTF-8 (users name folders; the name arrives as UTF-8 everywhere).
class Folder : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = (fs::temp_directory_path() /
             fs::u8path("zorv-host-\xC3\xA4\xE6\x97\xA5-" + std::to_string(std::random_device{}())))
                .u8string();
    ASSERT_TRUE(fs::create_directories(fs::u8path(root_)));
    zorvhost::setLanguage("en");
  }
  void TearDown() override {
    zorvhost::setLanguage("en");
    fs::remove_all(fs::u8path(root_));
  }
  std::string write(const std::string& relative, const std::string& text) {
    const fs::path p = fs::u8path(root_) / fs::u8path(relative);
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
    return p.u8string();
  }
  std::string root_;
};

TEST_F(Folder, ImportsReadFilesWholeAndNameTheUnreadable) {
  zorvhost::TextImportSettings settings = settingsOf("@import names=a,b");
  // Bytes as written, CRLF line ends included: nothing may translate them on the way in.
  const std::string path = write("r\xC3\xBC.csv", "a,b\r\n1,\"x\r\ny\"\r\n2,z\r\n");
  zorvhost::DatasetData data;
  std::vector<std::string> notes;
  std::string error;
  ASSERT_TRUE(zorvhost::importDelimitedFile(path, settings, data, notes, error)) << error;
  EXPECT_EQ(dataOf(data), "2 cases\na numeric: 1 2\nb string: `x{CR}{LF}y` `z`\n");
  const std::string none = root_ + "/none.csv";
  EXPECT_FALSE(zorvhost::importDelimitedFile(none, settings, data, notes, error));
  EXPECT_EQ(error, "cannot open " + none + ": No such file or directory");
  EXPECT_FALSE(zorvhost::importDelimitedFile(root_, settings, data, notes, error));
  EXPECT_EQ(error, "cannot open " + root_ + ": Is a directory");
  write("r\xC3\xBC.csv", "a\n1,2,3\n");
  EXPECT_FALSE(zorvhost::importDelimitedFile(path, settings, data, notes, error));
  EXPECT_EQ(error, path + ": line 2 holds 3 values, more than the 2 variables");
  EXPECT_EQ(data.cases, 2u) << "a refusal leaves the data alone";
}

TEST_F(Folder, LookUpTriesTheProceduresTableThenTheGlobalOneThenGivesTheKey) {
  write("strings/en/GENOSTAT.txt", "# edited on Windows\r\nSummary\tJob summary\r\nNone\tnothing\r\n");
  write("strings/en/OTHER.txt", "Count\tO\n");
  write("strings/en/global.txt", "None\tglobal none\nOK\tfine\n");
  write("strings/de/GENOSTAT.txt", "Summary\tZusammenfassung\nCount = C\n");
  FacSTDictionary dict(root_);  // no trailing separator
  EXPECT_EQ(dict.LookUp("Summary"), "Summary") << "no table loaded yet";
  dict.SetProcedure("GENOSTAT");
  dict.SetGlobalStringTable(root_ + "/");
  EXPECT_EQ(dict.LookUp("Summary") + "|" + dict.LookUp("None") + "|" + dict.LookUp("OK") + "|" + dict.LookUp("?"),
            "Job summary|nothing|fine|?");
  dict.SetProcedure("OTHER");  // replaces, does not merge
  EXPECT_EQ(dict.LookUp("Summary") + "|" + dict.LookUp("Count"), "Summary|O");
  dict.SetProcedure(nullptr);
  EXPECT_EQ(dict.LookUp("Count"), "Count");

  // The language picks the folder when a table loads; a malformed line is named and left out.
  zorvhost::setLanguage("de");
  EXPECT_EQ(zorvhost::language(), "de");
  ::testing::internal::CaptureStderr();
  dict.SetProcedure("GENOSTAT");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "zorvhost: " + root_ + "/strings/de/GENOSTAT.txt:2: no tab between key and text; line ignored\n");
  zorvhost::setLanguage("fr");
  EXPECT_EQ(dict.LookUp("Summary"), "Zusammenfassung");
  dict.SetProcedure("GENOSTAT");  // no tables in French: keys
  EXPECT_EQ(dict.LookUp("Summary"), "Summary");
  zorvhost::setLanguage("");
  EXPECT_EQ(zorvhost::language(), "en");
}

// The tables the build installs, and those shipped for GENOSTAT: every key the module looks up, in
// English as itself, in German translated.
TEST(StringTables, TheShippedTablesHoldEveryKeyOfTheModule) {
  zorvhost::setLanguage("de");
  FacSTDictionary installed(ZORVHOST_INSTALL_DIR);
  installed.SetProcedure("GENOSTAT");
  zorvhost::setLanguage("en");
  EXPECT_EQ(installed.LookUp("Unknown error occurred"), "Unbekannter Fehler aufgetreten");

  std::map<std::string, std::string> en, de;
  std::vector<zorvhost::StringTableIssue> issues;
  EXPECT_TRUE(zorvhost::parseStringTable(golden::readFile(ZORVHOST_STRINGS_SOURCE_DIR "/en/GENOSTAT.txt"), en, issues));
  EXPECT_TRUE(zorvhost::parseStringTable(golden::readFile(ZORVHOST_STRINGS_SOURCE_DIR "/de/GENOSTAT.txt"), de, issues));
  std::map<std::string, std::string> keys;
  for (const char* key :
       {texts::kGenomicAnalysisJob, texts::kSummary, texts::kCount, texts::kSamples, texts::kVariables,
        texts::kDetails, texts::kMessage, texts::kDataset, texts::kNone, texts::kValid, texts::kFastqFilesDetected,
        texts::kError, texts::kGenericError, texts::kGeneralError, texts::kFileNotFound,
        texts::kInvalidJsonConfiguration, texts::kInvalidConfiguration, texts::kErrorProcessingFastq,
        texts::kMissingPythonDependencies, texts::kPermissionDenied, texts::kNoFastqFilesFound,
        texts::kErrorWritingOutput, texts::kInvalidAdapterSequence, texts::kErrorInParallelProcessing,
        texts::kInsufficientMemory, texts::kInvalidCommandLineArguments, texts::kUnknownErrorOccurred}) {
    keys[key] = key;
    EXPECT_FALSE(de[key].empty()) << "German lacks " << key;
  }
  EXPECT_EQ(en, keys) << "English: each of the module's keys as its own text, and no other";
  EXPECT_EQ(de.size(), keys.size()) << "German: no key the module does not use";
  EXPECT_NE(de["Summary"], "Summary") << "translated, not copied";
  // The automatic job name becomes a dataset name: letters, digits and '_' only.
  for (char c : de[texts::kGenomicAnalysisJob]) {
    EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(c)) || c == '_') << c;
  }
}

}  // namespace
