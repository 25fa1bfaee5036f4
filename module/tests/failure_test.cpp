// A failed analysis: every exit code of the table, the details that fill its message, the message
// kept for the job's /PRINT, and what the failure removes.
#include <climits>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "module_test_support.h"

namespace mt {
namespace {

class FailureTest : public RunTest {};

TEST_F(FailureTest, EveryExitCodeOfTheTable) {
  struct Case {
    const char* plan;
    int32_t messageCode;
    const char* text;  // as the /PRINT gets it when the script left no details
  };
  std::vector<Case> cases = {
      {R"({"exit":1})", 201, "General error:{{ERROR_MESSAGE}}"},
      {R"({"exit":2})", 202, "File not found:{{FILE_PATH}}"},
      {R"({"exit":3})", 203, "Invalid JSON configuration"},
      {R"({"exit":4})", 204, "Invalid configuration"},
      {R"({"exit":5})", 205, "Error processing FASTQ file{{FILE_NAME}}"},
      {R"({"exit":6})", 206, "Missing Python dependencies:{{DEPENDENCIES}}"},
      {R"({"exit":7})", 207, "Permission denied accessing{{RESOURCE_PATH}}"},
      {R"({"exit":8})", 208, "No FASTQ files found to process in{{FOLDER_PATH}}"},
      {R"({"exit":9})", 209, "Error writing output to{{OUTPUT_PATH}}"},
      {R"({"exit":10})", 210, "Invalid adapter sequence:{{ADAPTER_SEQUENCE}}"},
      {R"({"exit":11})", 211, "Error in parallel processing"},
      {R"({"exit":12})", 212, "Insufficient memory while processing{{RESOURCE_NAME}}"},
      {R"({"exit":13})", 213, "Invalid command line arguments"},
      {R"({"exit":14})", 214, "Unknown error occurred"},
      {R"({"exit":255})", 455, "Unknown error occurred"},
  };
  // An end by a signal reaches the module as 128 plus its number.
  if (kStandInEndsBySignal) cases.push_back({R"({"signal":15})", 200 + 128 + 15, "Unknown error occurred"});
  // Every failing run wrote a partial CSV first; all of them are queued at once.
  for (std::size_t i = 0; i < cases.size(); ++i) {
    std::string plan = cases[i].plan;
    plan.insert(1, R"("rows":2,)");
    submit("code " + std::to_string(i), plan);
  }
  submit("success", R"({})");
  ASSERT_TRUE(client_.waitForEnds(cases.size() + 1, 30.0));

  const std::vector<Recorded> ends = client_.ends();
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const std::string& syntax = ends[i].message;
    EXPECT_EQ(ends[i].jobName, "code " + std::to_string(i));
    const std::string print = "/PRINT SAMPLE_COUNT=0 VARIABLE_COUNT=0 MESSAGE=" +
                              std::to_string(cases[i].messageCode) + ".";
    EXPECT_NE(syntax.find(print), std::string::npos) << cases[i].plan << "\n" << syntax;
    EXPECT_EQ(syntax.find("GET DATA"), std::string::npos) << "failure form: the /PRINT only";
    EXPECT_EQ(taken("code_" + std::to_string(i), cases[i].messageCode), cases[i].text) << cases[i].plan;
  }
  // Code 0 is a success: nothing kept, and it tells of no CSV (code 101).
  EXPECT_NE(ends.back().message.find("MESSAGE=101."), std::string::npos);
  EXPECT_EQ(taken("success", 200), "<none>");
  EXPECT_TRUE(tempFiles().empty()) << "failed jobs leave no CSV behind";
}

TEST_F(FailureTest, DetailsFillTheMessageAndAreRemoved) {
  submit("with details", R"({"rows":1,"exit":5,"details":{"FILE_NAME":" bad.fq","OTHER":"x","N":3}})");
  ASSERT_TRUE(client_.waitForEnds(1));
  EXPECT_EQ(taken("with_details", 205), "Error processing FASTQ file bad.fq");
  EXPECT_TRUE(tempFiles().empty()) << "neither the CSV nor the details file stays";
}

TEST_F(FailureTest, MissingInputIsFileNotFoundWithItsPathShownByThePrintOnce) {
  // The stand-in answers an unreadable input as the analysis does: code 2 and the path.
  const std::string missing = scratch_.file("gone/reads.fq");
  queue(job("missing input", missing));
  ASSERT_TRUE(client_.waitForEnds(1));
  const std::string syntax = client_.ends()[0].message;
  EXPECT_NE(syntax.find("MESSAGE=202."), std::string::npos) << syntax;
  // The client runs the job's syntax: its one command is the /PRINT.
  auto detailsCell = [&] {
    for (const auto& table : runTables(syntax)) {
      for (const auto& row : table.cells) {
        for (const std::string& cell : row) {
          if (cell.rfind("File not found:", 0) == 0) return cell;
        }
      }
    }
    return std::string("<no message>");
  };
  EXPECT_EQ(detailsCell(), "File not found:" + missing);
  EXPECT_EQ(detailsCell(), "File not found:{{FILE_PATH}}") << "a second /PRINT gets the bare template";
}

TEST_F(FailureTest, KeptTextsAreTakenOnceByExactNameAndCodeFirstInFirstOut) {
  submit("one run", R"({"exit":1,"details":{"ERROR_MESSAGE":"first"}})");
  submit("one run", R"({"exit":1,"details":{"ERROR_MESSAGE":"second"}})");
  ASSERT_TRUE(client_.waitForEnds(2));
  EXPECT_EQ(taken("one run", 201), "<none>") << "the key is the name as /PRINT spells it";
  EXPECT_EQ(taken("one_run", 202), "<none>");
  EXPECT_EQ(taken("One_run", 201), "<none>");
  EXPECT_EQ(taken("one_run", 201), "General error:first");
  EXPECT_EQ(taken("one_run", 201), "General error:second");
  EXPECT_EQ(taken("one_run", 201), "<none>") << "forgotten once taken";
}

TEST_F(FailureTest, TemplateComesFromTheStringTableTheWorkerLoads) {
  std::filesystem::create_directories(installDir_ + "/strings/en");
  std::ofstream(installDir_ + "/strings/en/GENOSTAT.txt") << "File not found:\tDatei fehlt:\n";
  submit("localised", R"({"exit":2,"details":{"FILE_PATH":"/x.fq"}})");
  ASSERT_TRUE(client_.waitForEnds(1));
  EXPECT_TRUE(Peer::hasStringTable(*manager_));
  EXPECT_EQ(taken("localised", 202), "Datei fehlt:/x.fq");
}

// ---- the failure handler on its own ----------------------------------------------------------

TEST_F(FailureTest, ExitCodeZeroChangesNothing) {
  GenoJobSettings record;
  record.jobName = "fine";
  record.csvFilePath = scratch_.write("fine.csv", "Sample\n");
  record.jobStatus.store(JobStatus::Running);
  EXPECT_FALSE(Peer::handlePythonError(*manager_, 0, &record));
  EXPECT_EQ(record.jobStatus.load(), JobStatus::Running);
  EXPECT_EQ(record.messageCode, 0);
  EXPECT_EQ(record.sampleCount, -1);
  EXPECT_TRUE(exists(record.csvFilePath));
  EXPECT_TRUE(client_.messages().empty());
  EXPECT_FALSE(Peer::handlePythonError(*manager_, 3, nullptr));
}

TEST_F(FailureTest, NonZeroCodeMarksFailedRemovesTheCsvAndSendsThePrint) {
  GenoJobSettings record;
  record.jobName = "broken job";
  record.csvFilePath = scratch_.write("broken.csv", "Sample,Adapter_Type\ns,NONE\n");
  record.sampleCount = 5;
  record.variableCount = 5;
  testing::internal::CaptureStdout();  // the missing details file is reported there
  EXPECT_TRUE(Peer::handlePythonError(*manager_, -1, &record));
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Error file not found"), std::string::npos);
  EXPECT_EQ(record.jobStatus.load(), JobStatus::Failed);
  EXPECT_EQ(record.sampleCount, 0);
  EXPECT_EQ(record.variableCount, 0);
  EXPECT_EQ(record.messageCode, 199);
  EXPECT_FALSE(exists(record.csvFilePath));
  const std::vector<Recorded> ends = client_.ends();
  ASSERT_EQ(ends.size(), 1u);
  EXPECT_NE(ends[0].message.find("NAME='broken_job'"), std::string::npos);
  EXPECT_NE(ends[0].message.find("MESSAGE=199."), std::string::npos);
  EXPECT_EQ(taken("broken_job", 199), "Unknown error occurred");
}

TEST_F(FailureTest, LargestExitCodeDoesNotOverflowTheMessageCode) {
  GenoJobSettings record;
  record.jobName = "huge";
  EXPECT_TRUE(Peer::handlePythonError(*manager_, INT32_MAX, &record));
  EXPECT_EQ(record.messageCode, INT32_MIN + 199);
}

TEST(FailureMessages, StoredPerNameAndCodeInOrder) {
  auto manager = Peer::make();
  Peer::storeFailureMessage(*manager, "a", 201, "a1");
  Peer::storeFailureMessage(*manager, "a", 202, "a2");
  Peer::storeFailureMessage(*manager, "b", 201, "b1");
  Peer::storeFailureMessage(*manager, "a", 201, "a1 again");
  std::string text = "untouched";
  EXPECT_FALSE(Peer::takeFailureMessage(*manager, "c", 201, text));
  EXPECT_EQ(text, "untouched") << "a miss leaves the caller's text alone";
  EXPECT_TRUE(Peer::takeFailureMessage(*manager, "a", 201, text));
  EXPECT_EQ(text, "a1");
  EXPECT_TRUE(Peer::takeFailureMessage(*manager, "b", 201, text));
  EXPECT_EQ(text, "b1");
  EXPECT_TRUE(Peer::takeFailureMessage(*manager, "a", 201, text));
  EXPECT_EQ(text, "a1 again");
  EXPECT_FALSE(Peer::takeFailureMessage(*manager, "a", 201, text));
  EXPECT_TRUE(Peer::takeFailureMessage(*manager, "a", 202, text));
  EXPECT_EQ(text, "a2");
}

}  // namespace
}  // namespace mt

