// GENOSTAT /PRINT as the host runs it: the "Summary" and "Details" tables that reach the client's
// output, the job's message by code (a failed job's kept text first), localised labels, and what
// happens when the host cannot allocate a table.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "host/procedure.h"
#include "host/strings.h"
#include "module_test_support.h"

// ---- failing nothrow allocations on demand ------------------------------------------------------
//
// The nothrow form of operator new is replaced for the whole test binary. It does what the
// standard library's does (ask the ordinary operator new, turn its failure into null), so every
// allocation still pairs with the ordinary delete, sanitizers included. A test on this thread may
// ask for its Nth nothrow request from now on to fail, or for all of them to fail; other threads
// are never affected.
namespace output_test::nothrow {
thread_local bool g_armed = false;
thread_local long g_failFrom = 0;  // the first failing request (1-based), 0: none fails
thread_local long g_failTo = 0;    // the last failing one
thread_local long g_requests = 0;  // nothrow requests seen on this thread while armed

// Counts nothrow requests from now on; requests `first` to `last` fail.
void fail(long first, long last) {
  g_armed = true;
  g_failFrom = first;
  g_failTo = last;
  g_requests = 0;
}
// Stops failing; returns how many nothrow requests were made while armed.
long disarm() {
  g_armed = false;
  return g_requests;
}
bool shouldFail() { return g_armed && ++g_requests >= g_failFrom && g_requests <= g_failTo; }
}  // namespace output_test::nothrow

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (output_test::nothrow::shouldFail()) return nullptr;
  try {
    return ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}

// ---- tests ----------------------------------------------------------------------------------------

namespace mt {
namespace {

using zorvhost::OutputTable;

// The shape every table of /PRINT has, whatever it holds.
void expectFrame(const OutputTable& table) {
  EXPECT_EQ(table.procedure, "GENOSTAT");
  EXPECT_EQ(table.subtitle, "");
  EXPECT_FALSE(table.hideTitle);
  EXPECT_EQ(table.rowDimensionLabel, "  ");
  EXPECT_FALSE(table.showRowDimensionLabel);
  EXPECT_EQ(table.minDataColumnWidth, 100);
  EXPECT_EQ(table.maxDataColumnWidth, 700);
  EXPECT_EQ(table.formatType, 5);
  EXPECT_EQ(table.formatWidth, 10);
  EXPECT_EQ(table.formatDecimals, 4);
}

// The labels of the two tables in one language.
struct Labels {
  std::string summary = "Summary", count = "Count", samples = "Samples", variables = "Variables";
  std::string details = "Details", message = "Message", dataset = "Dataset";
};

void expectSummary(const OutputTable& table, const std::string& samples, const std::string& variables,
                   const Labels& labels = Labels()) {
  expectFrame(table);
  EXPECT_EQ(table.title, labels.summary);
  EXPECT_EQ(table.columnLabels, Texts{labels.count});
  EXPECT_EQ(table.rowLabels, (Texts{labels.samples, labels.variables}));
  EXPECT_EQ(table.cells, (std::vector<Texts>{{samples}, {variables}}));
}

void expectDetails(const OutputTable& table, const std::string& message, const std::string& dataset,
                   const Labels& labels = Labels()) {
  expectFrame(table);
  EXPECT_EQ(table.title, labels.details);
  EXPECT_EQ(table.columnLabels, (Texts{"", ""}));
  EXPECT_EQ(table.rowLabels, (Texts{labels.message, labels.dataset}));
  EXPECT_EQ(table.cells, (std::vector<Texts>{{message}, {dataset}}));
}

class OutputTablesTest : public ::testing::Test {
 protected:
  void SetUp() override { zorvhost::takeCommandErrors(); }
  void TearDown() override { zorvhost::setLanguage("en"); }

  // The Details table's message for a /PRINT of job `name` with `code` (and a sample count of 1).
  std::string message(const std::string& name, int code) {
    const auto tables = runTables("GENOSTAT /JOB FILE='' NAME='" + name + "' /PRINT SAMPLE_COUNT=1 MESSAGE=" +
                                  std::to_string(code) + ".");
    if (tables.size() != 2 || tables[1].cells.empty() || tables[1].cells[0].size() != 1) {
      ADD_FAILURE() << "no Details table for code " << code;
      return {};
    }
    return tables[1].cells[0][0];
  }
  // Runs postOutputToDisplay directly on a record holding these values.
  std::vector<OutputTable> show(int32_t samples, int32_t variables, int32_t code, const std::string& name,
                                BpProcedure* procedure) {
    std::vector<OutputTable> tables;
    zorvhost::setOutputHandler([&tables](const OutputTable& table) { tables.push_back(table); });
    GenoJobSettings record;
    record.sampleCount = samples;
    record.variableCount = variables;
    record.messageCode = code;
    record.jobName = name;
    manager().postOutputToDisplay(&record, procedure);
    zorvhost::setOutputHandler(nullptr);
    return tables;
  }
  GenoStatAlgoManager& manager() { return instance_.manager(); }
  // The texts still kept for `name` and `code`, oldest first (taking them empties the store).
  Texts kept(const std::string& name, int32_t code) {
    Texts out;
    std::string text;
    while (Peer::takeFailureMessage(manager(), name, code, text)) out.push_back(text);
    return out;
  }

  Client client_;
  ManagerScope instance_;
};

// ---- the two tables ------------------------------------------------------------------------------

TEST_F(OutputTablesTest, PrintShowsSummaryThenDetailsAndNothingElse) {
  const auto tables =
      runTables("GENOSTAT /JOB FILE='' NAME='x' ADAPTERS=NONE /PRINT SAMPLE_COUNT=3 VARIABLE_COUNT=25 MESSAGE=100.");
  ASSERT_EQ(tables.size(), 2u);
  expectSummary(tables[0], "3", "25");
  expectDetails(tables[1], "Valid:3 fastQ file(s) detected.", "x");
  // A /PRINT is no job: nothing queued, no client message.
  EXPECT_TRUE(Peer::queuedJobs(manager()).empty());
  EXPECT_TRUE(client_.messages().empty());
}

TEST_F(OutputTablesTest, CountsAsPlainDecimalsAndTheDatasetOnlyWithSamples) {
  struct Case {
    int32_t samples, variables;
    const char* name;
    const char* dataset;
  };
  // One sample is enough for the dataset to carry the job's name, as written in the command.
  for (const Case& c : {Case{-1, -27, "neg", "None"}, Case{0, 0, "zero", "None"}, Case{1, 1000000, "a_b c", "a_b c"},
                        Case{INT32_MIN, INT32_MAX, "big", "None"}}) {
    const std::string samples = std::to_string(c.samples);
    const auto tables = c.samples == INT32_MIN
                            ? show(c.samples, c.variables, 100, c.name, nullptr)
                            : runTables("GENOSTAT /JOB FILE='' NAME='" + std::string(c.name) + "' /PRINT SAMPLE_COUNT=" +
                                        samples + " VARIABLE_COUNT=" + std::to_string(c.variables) + " MESSAGE=100.");
    ASSERT_EQ(tables.size(), 2u) << c.name;
    expectSummary(tables[0], samples, std::to_string(c.variables));
    expectDetails(tables[1], "Valid:" + samples + " fastQ file(s) detected.", c.dataset);
  }
}

TEST_F(OutputTablesTest, WithoutAJobNameThePrintStillShowsBothTables) {
  const auto tables = runTables("GENOSTAT /PRINT.");
  ASSERT_EQ(tables.size(), 2u);
  expectSummary(tables[0], "0", "0");
  // Code 0 is no outcome of a job run: 0 - 200 is a negative exit code, which reads as unknown.
  expectDetails(tables[1], "Unknown error occurred", "None");
}

TEST_F(OutputTablesTest, NullRecordShowsNothingAndNullProcedureStillShows) {
  BpProcedure procedure("GENOSTAT", 10);
  std::vector<OutputTable> tables;
  zorvhost::setOutputHandler([&tables](const OutputTable& table) { tables.push_back(table); });
  manager().postOutputToDisplay(nullptr, &procedure);
  zorvhost::setOutputHandler(nullptr);
  EXPECT_TRUE(tables.empty());

  tables = show(2, 5, 101, "p", nullptr);
  ASSERT_EQ(tables.size(), 2u);
  expectSummary(tables[0], "2", "5");
  expectDetails(tables[1], "Error:Generic Error.", "p");
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty());
}

// ---- the message by code ---------------------------------------------------------------------------

TEST_F(OutputTablesTest, MessageByCodeWithoutKeptTexts) {
  EXPECT_EQ(message("x", 101), "Error:Generic Error.");
  EXPECT_EQ(message("x", 200), "");  // exit code 0 has no text
  EXPECT_EQ(message("x", 201), "General error:{{ERROR_MESSAGE}}");
  EXPECT_EQ(message("x", 202), "File not found:{{FILE_PATH}}");
  EXPECT_EQ(message("x", 203), "Invalid JSON configuration");
  EXPECT_EQ(message("x", 208), "No FASTQ files found to process in{{FOLDER_PATH}}");
  EXPECT_EQ(message("x", 213), "Invalid command line arguments");
  EXPECT_EQ(message("x", 214), "Unknown error occurred");
  EXPECT_EQ(message("x", 455), "Unknown error occurred");  // exit code 255
  EXPECT_EQ(message("x", 199), "Unknown error occurred");  // exit code -1
  EXPECT_EQ(message("x", -5), "Unknown error occurred");
}

TEST_F(OutputTablesTest, MessageCodeAtTheBottomOfTheRangeReadsUnknown) {
  // 200 below the smallest code would overflow a signed subtraction.
  const auto tables = show(0, 0, INT32_MIN, "low", nullptr);
  ASSERT_EQ(tables.size(), 2u);
  expectDetails(tables[1], "Unknown error occurred", "None");
}

TEST_F(OutputTablesTest, KeptFailureTextsAreShownOnceOldestFirstThenTheTemplate) {
  Peer::storeFailureMessage(manager(), "x", 202, "File not found:/data/in.fq");
  Peer::storeFailureMessage(manager(), "x", 202, "File not found:/second");
  const auto tables = runTables("GENOSTAT /JOB FILE='' NAME='x' /PRINT SAMPLE_COUNT=0 VARIABLE_COUNT=0 MESSAGE=202.");
  ASSERT_EQ(tables.size(), 2u);
  expectSummary(tables[0], "0", "0");
  expectDetails(tables[1], "File not found:/data/in.fq", "None");
  EXPECT_EQ(message("x", 202), "File not found:/second");
  EXPECT_EQ(message("x", 202), "File not found:{{FILE_PATH}}");
  EXPECT_EQ(kept("x", 202), Texts{});
}

TEST_F(OutputTablesTest, KeptTextBelongsToOneExactNameAndFailureCode) {
  Peer::storeFailureMessage(manager(), "x", 203, "other code");
  Peer::storeFailureMessage(manager(), "X", 202, "other case");
  Peer::storeFailureMessage(manager(), "x_", 202, "longer name");
  Peer::storeFailureMessage(manager(), "my_run", 202, "underscored name");
  Peer::storeFailureMessage(manager(), "x", 100, "kept for 100");
  Peer::storeFailureMessage(manager(), "x", 101, "kept for 101");
  EXPECT_EQ(message("x", 202), "File not found:{{FILE_PATH}}");
  // The name is the one the /PRINT command carries; blanks are not turned into '_' on the way back.
  EXPECT_EQ(message("my run", 202), "File not found:{{FILE_PATH}}");
  EXPECT_EQ(message("my_run", 202), "underscored name");
  // Result codes never take a kept text.
  EXPECT_EQ(message("x", 100), "Valid:1 fastQ file(s) detected.");
  EXPECT_EQ(message("x", 101), "Error:Generic Error.");
  // The others are untouched.
  EXPECT_EQ(kept("x", 203), Texts{"other code"});
  EXPECT_EQ(kept("X", 202), Texts{"other case"});
  EXPECT_EQ(kept("x_", 202), Texts{"longer name"});
  EXPECT_EQ(kept("x", 100), Texts{"kept for 100"});
  EXPECT_EQ(kept("x", 101), Texts{"kept for 101"});
}

TEST_F(OutputTablesTest, FailureSyntaxOfAJobPrintsItsKeptText) {
  // A failed job named with a blank: its failure syntax carries the name with '_', and the text
  // kept under that name is what its /PRINT shows.
  GenoJobSettings job;
  job.jobName = "bad job";
  job.sampleCount = 0;
  job.variableCount = 0;
  job.messageCode = 202;
  const std::string syntax = Peer::preparePostJobSyntax(&job, true);
  ASSERT_NE(syntax.find("bad_job"), std::string::npos) << syntax;
  Peer::storeFailureMessage(manager(), "bad_job", 202, "File not found:/in/a.fq");

  auto tables = runTables(syntax);
  ASSERT_EQ(tables.size(), 2u);
  expectSummary(tables[0], "0", "0");
  expectDetails(tables[1], "File not found:/in/a.fq", "None");
  tables = runTables(syntax);
  ASSERT_EQ(tables.size(), 2u);
  expectDetails(tables[1], "File not found:{{FILE_PATH}}", "None");
}

// ---- localised labels ------------------------------------------------------------------------------

class LocalisedOutputTest : public OutputTablesTest {
 protected:
  void SetUp() override {
    OutputTablesTest::SetUp();
    std::filesystem::create_directories(folder_.path() + "/strings/de");
    folder_.write("strings/de/GENOSTAT.txt",
                  "# GENOSTAT, Deutsch\n"
                  "Summary\tZusammenfassung\n"
                  "Count\tAnzahl\n"
                  "Samples\tProben\n"
                  "Variables\tVariablen\n"
                  "Details\tEinzelheiten\n"
                  "Message\tMeldung\n"
                  "Dataset\tDatensatz\n"
                  "None\tKeiner\n"
                  "Valid:\tGültig: \n"
                  "fastQ file(s) detected.\tFASTQ-Datei(en) erkannt.\n"
                  "File not found:\tDatei nicht gefunden: \n"
                  "Unknown error occurred\tUnbekannter Fehler\n"
                  // Only the whole message is translated, not its two parts.
                  "Error:Generic Error.\tFehler: allgemein.\n");
    zorvhost::setLanguage("de");
    auto* table = new FacSTDictionary(folder_.path());
    table->SetProcedure("GENOSTAT");
    delete Peer::setStringTable(manager(), table);
  }

  static Labels german() {
    return Labels{"Zusammenfassung", "Anzahl", "Proben", "Variablen", "Einzelheiten", "Meldung", "Datensatz"};
  }

  ScratchFolder folder_;
};

TEST_F(LocalisedOutputTest, LabelsAndMessagesComeFromTheStringTable) {
  auto tables = runTables("GENOSTAT /JOB FILE='' NAME='x' ADAPTERS=NONE /PRINT SAMPLE_COUNT=3 VARIABLE_COUNT=25 MESSAGE=100.");
  ASSERT_EQ(tables.size(), 2u);
  expectSummary(tables[0], "3", "25", german());
  expectDetails(tables[1], "Gültig: 3 FASTQ-Datei(en) erkannt.", "x", german());

  tables = runTables("GENOSTAT /JOB FILE='' NAME='x' /PRINT SAMPLE_COUNT=0 MESSAGE=202.");
  ASSERT_EQ(tables.size(), 2u);
  expectDetails(tables[1], "Datei nicht gefunden: {{FILE_PATH}}", "Keiner", german());

  EXPECT_EQ(message("x", 214), "Unbekannter Fehler");
  // Texts the table does not hold stay in English.
  EXPECT_EQ(message("x", 203), "Invalid JSON configuration");
}

TEST_F(LocalisedOutputTest, TheFinishedMessageIsLookedUpOnceMore) {
  // "Error:" and "Generic Error." have no entry; the message they make does.
  EXPECT_EQ(message("x", 101), "Fehler: allgemein.");
  // A kept failure text is looked up as a whole too (and stays as it is when it is no key).
  Peer::storeFailureMessage(manager(), "x", 214, "Error:Generic Error.");
  Peer::storeFailureMessage(manager(), "x", 202, "File not found:/in/a.fq");
  EXPECT_EQ(message("x", 214), "Fehler: allgemein.");
  EXPECT_EQ(message("x", 202), "File not found:/in/a.fq");
}

TEST_F(LocalisedOutputTest, WithoutATableTheLabelsAreTheEnglishKeys) {
  delete Peer::setStringTable(manager(), nullptr);
  const auto tables = runTables("GENOSTAT /JOB FILE='' NAME='x' /PRINT SAMPLE_COUNT=0 VARIABLE_COUNT=2 MESSAGE=101.");
  ASSERT_EQ(tables.size(), 2u);
  expectSummary(tables[0], "0", "2");
  expectDetails(tables[1], "Error:Generic Error.", "None");
}

// ---- allocation failures ----------------------------------------------------------------------------

namespace nothrow = output_test::nothrow;

TEST_F(OutputTablesTest, ATableThatCannotBeAllocatedIsLeftOutSilently) {
  BpProcedure procedure("GENOSTAT", 10);
  // Each table asks for four objects (the table, its row and column categories, its cells),
  // Summary first; failing any one of them loses that table only.
  for (long nth = 1; nth <= 8; ++nth) {
    SCOPED_TRACE("failing nothrow request " + std::to_string(nth));
    nothrow::fail(nth, nth);
    const auto tables = show(3, 25, 100, "x", &procedure);
    nothrow::disarm();
    ASSERT_EQ(tables.size(), 1u);
    if (nth <= 4) {
      expectDetails(tables[0], "Valid:3 fastQ file(s) detected.", "x");
    } else {
      expectSummary(tables[0], "3", "25");
    }
  }
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty());

  // With every request granted both tables show, and exactly those eight requests were made.
  nothrow::fail(0, 0);
  const auto tables = show(3, 25, 100, "x", &procedure);
  EXPECT_EQ(nothrow::disarm(), 8);
  ASSERT_EQ(tables.size(), 2u);
  expectSummary(tables[0], "3", "25");
}

TEST_F(OutputTablesTest, NoMemoryForAnyTableShowsNothingButStillUsesTheKeptText) {
  BpProcedure procedure("GENOSTAT", 10);
  Peer::storeFailureMessage(manager(), "x", 202, "File not found:/in/a.fq");
  nothrow::fail(1, LONG_MAX);
  const auto tables = show(0, 0, 202, "x", &procedure);
  nothrow::disarm();
  EXPECT_TRUE(tables.empty());
  EXPECT_TRUE(zorvhost::takeCommandErrors().empty());
  // The message was made (and its kept text used) even though no table could show it.
  EXPECT_EQ(kept("x", 202), Texts{});
  // The next /PRINT works normally.
  EXPECT_EQ(show(1, 1, 100, "x", &procedure).size(), 2u);
}

}  // namespace
}  // namespace mt
