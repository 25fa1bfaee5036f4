// The host commands of a job's syntax as zorv runs them: grammar first, then the command; each
// failure reported under the command's name, and the settings that the import reads.
#include "hostcommands.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "zorvhost/client.h"

namespace zorv {
namespace {

class HostCommandsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zorvhost::closeAllDatasets();
    zorvhost::takeCommandErrors();
    dir_ = std::filesystem::temp_directory_path() / ("zorv-hostcmd-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override {
    zorvhost::closeAllDatasets();
    std::filesystem::remove_all(dir_);
  }

  // Runs one command; the errors it reported, as "COMMAND: text".
  std::vector<std::string> run(const std::string& text) {
    std::string name = text.substr(0, text.find(' '));
    if (name == "GET" || name == "DATASET" || name == "NONPAR" || name == "SAVE" || name == "DISPLAY") {
      size_t second = text.find(' ', name.size() + 1);
      name = text.substr(0, second);
    }
    commands_.run(name, text);
    std::vector<std::string> out;
    for (auto& e : zorvhost::takeCommandErrors()) out.push_back(e.command + ": " + e.text);
    return out;
  }

  std::string csv(const std::string& text) {
    std::string path = (dir_ / "d.csv").string();
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  std::ostringstream human_, errors_;
  EventLog events_;
  OutputSink sink_{human_, errors_, events_};
  HostCommands commands_{sink_};
  std::filesystem::path dir_;
};

TEST_F(HostCommandsTest, TheImportReadsTheFileAsTheCommandDescribesIt) {
  std::string path = csv("x;y\n'a;b';1,5\n");
  EXPECT_TRUE(run("SET DECIMAL=COMMA").empty());
  EXPECT_TRUE(run("GET DATA /TYPE=TXT /FILE='" + path +
                  "' /DELIMITERS=';' /QUALIFIER=\"'\" /FIRSTCASE=2 /VARIABLES=x AUTO y AUTO")
                  .empty());
  zorvhost::DatasetData data;
  ASSERT_TRUE(zorvhost::activeDatasetData(data));
  EXPECT_EQ(data.variables[0].strings[0], "a;b");
  EXPECT_EQ(data.variables[1].numbers[0], 1.5);
  EXPECT_EQ(human_.str(), "Active dataset (unnamed): 1 case, 2 variables.\n");
}

TEST_F(HostCommandsTest, PreserveAndRestoreKeepTheDecimalMark) {
  EXPECT_TRUE(run("PRESERVE").empty());
  EXPECT_TRUE(run("SET DECIMAL DOT").empty());
  EXPECT_EQ(commands_.decimal(), '.');
  EXPECT_TRUE(run("PRESERVE").empty());
  EXPECT_TRUE(run("SET DECIMAL COMMA").empty());
  EXPECT_EQ(commands_.decimal(), ',');
  EXPECT_TRUE(run("RESTORE").empty());
  EXPECT_EQ(commands_.decimal(), '.');
  EXPECT_TRUE(run("RESTORE").empty());
  EXPECT_EQ(run("RESTORE"),
            std::vector<std::string>{"RESTORE: there are no preserved settings to restore (no PRESERVE before it)"});
  EXPECT_TRUE(run("CACHE").empty());
  EXPECT_TRUE(run("EXECUTE").empty());
}

TEST_F(HostCommandsTest, StatisticsRunOnTheActiveDatasetWhichTheyNeed) {
  EXPECT_EQ(run("DESCRIPTIVES VARIABLES=GC"),
            std::vector<std::string>{
                "DESCRIPTIVES: there is no active dataset to analyse (GET DATA or a job's import makes one)"});
  const std::string path = csv("GC,qc_score,verdict\n40,80,pass\n50,90,warn\n60,85,pass\n45,70,fail\n");
  ASSERT_TRUE(run("GET DATA /TYPE=TXT /FILE='" + path + "' /FIRSTCASE=2").empty());
  for (const char* text : {"DESCRIPTIVES VARIABLES=GC /STATISTICS=MEAN", "FREQUENCIES VARIABLES=verdict /HISTOGRAM",
                           "CORRELATIONS /VARIABLES=GC qc_score", "NONPAR CORR /VARIABLES=GC qc_score",
                           "REGRESSION /DEPENDENT GC /METHOD=ENTER qc_score"}) {
    EXPECT_TRUE(run(text).empty()) << text;
  }
  for (const char* title : {"Descriptive Statistics\n", "verdict\n", "Correlations\n", "Correlations: Spearman's rho\n",
                            "Coefficients\n"}) {
    EXPECT_NE(human_.str().find(title), std::string::npos) << title;
  }
  // A malformed one is still a fault of the command, and an unknown variable one of the procedure.
  EXPECT_EQ(run("DESCRIPTIVES /STATISTICS=MEAN"),
            std::vector<std::string>{"DESCRIPTIVES: Line 1, column 30, at end of command: subcommand /VARIABLES is required."});
  EXPECT_EQ(run("DESCRIPTIVES VARIABLES=nosuch"),
            std::vector<std::string>{"DESCRIPTIVES: variable nosuch is not in the active dataset"});
}

TEST_F(HostCommandsTest, ADatasetIsListedDescribedAndKeptAsCsvThatReadsBackTheSame) {
  for (const char* command : {"LIST", "DISPLAY DICTIONARY", "SAVE TRANSLATE OUTFILE='x.csv'"}) {
    EXPECT_EQ(run(command).size(), 1u) << command << ": no active dataset";
  }
  const std::string original = "Sample,GC,verdict\n\"a,1\",41.5,pass\nb,,fail\nc,50,\"say \"\"hi\"\"\"\n";
  const std::string path = csv(original);
  const std::string import = "GET DATA /TYPE=TXT /FILE='" + path + "' /FIRSTCASE=2 /QUALIFIER='\"'";
  ASSERT_TRUE(run(import).empty());
  ASSERT_TRUE(run("LIST VARIABLES=gc TO verdict /CASES FROM=2 TO=2").empty());
  EXPECT_NE(human_.str().find("│ 2 │ .  │ fail    │"), std::string::npos) << human_.str();
  ASSERT_TRUE(run("DISPLAY DICTIONARY").empty());
  EXPECT_NE(human_.str().find("share of G and C among the A, C, G and T bases"), std::string::npos);

  const std::filesystem::path kept = dir_ / std::filesystem::u8path("kept-\xC3\xBC.csv");  // a letter beyond ASCII
  const std::string saved = kept.u8string();
  const std::string save = "SAVE TRANSLATE OUTFILE='" + saved + "' /TYPE=CSV /FIELDNAMES";
  ASSERT_TRUE(run(save).empty());
  {
    std::ifstream in(kept, std::ios::binary);  // closed again before the file is replaced
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), original);
  }
  const std::vector<std::pair<std::string, std::string>> refused = {
      {save, "SAVE TRANSLATE: " + saved + " exists already; add /REPLACE to overwrite it"},
      {"SAVE TRANSLATE OUTFILE='" + (dir_ / "no" / "x.csv").string() + "'",
       "SAVE TRANSLATE: cannot write " + (dir_ / "no" / "x.csv").string() + " (its folder is missing or not writable)"},
      {"LIST /CASES FROM=3 TO=2", "LIST: /CASES FROM=3 TO=2 names no case; cases are counted from 1"},
      {"LIST VARIABLES=nosuch", "LIST: variable nosuch is not in the active dataset"}};
  for (const auto& [command, error] : refused) EXPECT_EQ(run(command), std::vector<std::string>{error});
  EXPECT_TRUE(run(save + " /REPLACE").empty());
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::u8path(saved + ".part")));
}

TEST_F(HostCommandsTest, EveryFailureOfTheDataCommandsIsReported) {
  std::string path = csv("a\n1\n");
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"GET DATA /TYPE=TXT /FILE=''", "GET DATA: /FILE names no file"},
      {"GET DATA /TYPE=TXT /FILE='" + path + "' /ARRANGEMENT=FIXED",
       "GET DATA: ARRANGEMENT=FIXED is not supported; this console reads delimited text"},
      {"GET DATA /TYPE=TXT /FILE='" + path + "' /ENCODING='UTF16'",
       "GET DATA: " + path + ": encoding 'UTF16' is not supported; the import reads UTF8"},
      {"GET DATA /TYPE=TXT /FILE='" + path + "' /VARIABLES=a DATE",
       "GET DATA: " + path + ": variable a: format 'DATE' is not known (AUTO, A<width>, F<width>.<decimals>)"},
      {"DATASET NAME x", "DATASET NAME: there is no active dataset to name"},
      {"DATASET ACTIVATE x", "DATASET ACTIVATE: no open dataset is named 'x'"},
      {"PRESERVE now", "PRESERVE: Line 1, column 10, at now: a subcommand starting with '/' is expected."},
      {"SET DECIMAL=SEMICOLON", "SET: Line 1, column 13, at SEMICOLON: DECIMAL accepts only DOT, COMMA."},
  };
  for (const auto& c : cases) {
    auto errors = run(c.first);
    ASSERT_EQ(errors.size(), 1u) << c.first;
    EXPECT_EQ(errors[0], c.second);
  }
  EXPECT_TRUE(zorvhost::datasets().empty());
  EXPECT_EQ(human_.str(), "");
}

TEST_F(HostCommandsTest, ANameOutsideItsListIsRefused) {
  commands_.run("FROB", "FROB x");
  commands_.run("GENOSTAT", "GENOSTAT /PRINT");  // the module's, not the host's
  auto errors = zorvhost::takeCommandErrors();
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[0].command + ": " + errors[0].text, "FROB: not a command this console runs");
  EXPECT_EQ(errors[1].command + ": " + errors[1].text, "GENOSTAT: not a command this console runs");
  EXPECT_FALSE(HostCommands::knows("GENOSTAT"));
  EXPECT_TRUE(HostCommands::knows("NONPAR CORR"));
}

TEST_F(HostCommandsTest, DatasetCommandsReportTheActiveDataset) {
  std::string path = csv("a,b\n1,x\n2,y\n");
  ASSERT_TRUE(run("GET DATA /TYPE=TXT /FILE='" + path + "' /FIRSTCASE=2 /VARIABLES=a AUTO b AUTO").empty());
  ASSERT_TRUE(run("DATASET NAME my_run_1").empty());
  ASSERT_TRUE(run("GET DATA /TYPE=TXT /FILE='" + path + "' /FIRSTCASE=1").empty());
  ASSERT_TRUE(run("DATASET ACTIVATE MY_RUN_1").empty());
  EXPECT_EQ(human_.str(),
            "Active dataset (unnamed): 2 cases, 2 variables.\n"
            "Active dataset my_run_1: 2 cases, 2 variables.\n"
            "Active dataset (unnamed): 3 cases, 2 variables.\n"
            "Active dataset my_run_1: 2 cases, 2 variables.\n");
  EXPECT_EQ(zorvhost::datasetNames(), std::vector<std::string>{"my_run_1"});
}

TEST_F(HostCommandsTest, ValuesThatAreNotNumbersAreNoted) {
  std::string path = csv("v\n1\n2\nx\n");
  std::string command = "GET DATA /TYPE=TXT /FILE='" + path + "' /FIRSTCASE=2 /DATATYPEMIN PERCENTAGE=60";
  ASSERT_TRUE(run(command).empty());
  EXPECT_EQ(human_.str(),
            "GET DATA: variable v: 1 value is not a number and read as missing (first on line 4: 'x')\n"
            "Active dataset (unnamed): 3 cases, 1 variable.\n");
}

}  // namespace
}  // namespace zorv
