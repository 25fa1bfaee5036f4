// genostat-qc's command line: options, every exit code with its last stderr line, the output file
// (written whole, removed on failure), progress lines. Most cases run in process; the program
// itself is run for the codes the analysis script depends on.
#include "genostat/cli.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "engine_test_support.h"
#include "genostat/byte_source.h"
#include "genostat/csv.h"
#include "platform/test_platform.h"

namespace genostat {
namespace {

using testing::TempDir;

struct Outcome {
  int code;
  std::string out;
  std::string err;
  std::string lastErrLine() const {
    std::string trimmed = err;
    if (!trimmed.empty() && trimmed.back() == '\n') trimmed.pop_back();
    const std::size_t newline = trimmed.rfind('\n');
    return newline == std::string::npos ? trimmed : trimmed.substr(newline + 1);
  }
};

Outcome run(const std::vector<std::string>& args,
            const std::function<void(EngineOptions&)>& configure = {}) {
  std::ostringstream out;
  std::ostringstream err;
  const int code = runCli(args, out, err, configure);
  return Outcome{code, out.str(), err.str()};
}

// Runs the built program with stdout and stderr captured.
Outcome runProgram(const TempDir& scratch, const std::vector<std::string>& args) {
  const testing::ProgramOutcome outcome =
      testing::runProgram(GENOSTAT_QC_BINARY, args, scratch.folder());
  return Outcome{outcome.code, outcome.out, outcome.err};
}

using testing::exists;

// A name with letters from outside every single-byte code page.
const std::string kWorldlyName =
    "pr\xC3\xB8ve \xE6\x97\xA5\xE6\x9C\xAC \xE2\x9C\x93";

class Cli : public ::testing::Test {
 protected:
  TempDir dir;
  std::string good = dir.write("good.fastq", testing::makeFastq(50));
  std::string out = dir.file("out.csv");
};

TEST_F(Cli, WritesHeaderAndOneRowPerFile) {
  const std::string second = dir.write("x,y.fq.gz", testing::gzipMember(testing::makeFastq(7)));
  const Outcome outcome =
      run({"--adapter", "NEXTERA", "--threads", "2", "--output", out, good, second});
  ASSERT_EQ(outcome.code, kExitOk) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  const std::string csv = testing::readWholeFile(out);
  const std::string header = csvDocument(csvColumnNames(), {});
  ASSERT_EQ(csv.rfind(header, 0), 0u);
  EXPECT_NE(csv.find("\ngood,NEXTERA,50,"), std::string::npos);
  EXPECT_NE(csv.find("\n\"x,y\",NEXTERA,7,"), std::string::npos);
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 3);
  EXPECT_EQ(csv.back(), '\n');
  EXPECT_EQ(csv.find('\r'), std::string::npos);  // the same bytes on every system
}

TEST_F(Cli, ReadsAndWritesFilesNamedInAnyScript) {
  const std::string input = dir.write(kWorldlyName + ".fastq", testing::makeFastq(9));
  const std::string output = dir.file(kWorldlyName + ".csv");
  const Outcome outcome = run({"--output", output, input});
  ASSERT_EQ(outcome.code, kExitOk) << outcome.err;
  EXPECT_NE(testing::readWholeFile(output).find("\n" + kWorldlyName + ",NONE,9,"),
            std::string::npos);
}

TEST_F(Cli, OptionsInEitherFormAndAfterFiles) {
  const Outcome outcome =
      run({good, "--output=" + out, "--adapter=CUSTOM", "--custom-sequence", "acgtac"});
  ASSERT_EQ(outcome.code, kExitOk) << outcome.err;
  EXPECT_NE(testing::readWholeFile(out).find("\ngood,CUSTOM,"), std::string::npos);
  // After "--" everything is a file, even what looks like an option.
  const Outcome dashed = run({"--output", out, "--", "--not-an-option"});
  EXPECT_EQ(dashed.code, kExitNoInput);
  EXPECT_EQ(dashed.lastErrLine(), "genostat-qc: error: --not-an-option: no such file");
}

TEST_F(Cli, HelpGoesToStandardOutput) {
  const Outcome outcome = run({"--help"});
  EXPECT_EQ(outcome.code, kExitOk);
  EXPECT_NE(outcome.out.find("usage: genostat-qc"), std::string::npos);
  EXPECT_EQ(outcome.err, "");
}

struct UsageCase {
  std::vector<std::string> args;  // "OUT" and "IN" stand for the fixture's paths
  std::string lastLine;
};

TEST_F(Cli, UsageErrorsExit64NamingTheOption) {
  const std::vector<UsageCase> cases{
      {{"IN"}, "genostat-qc: error: --output: missing (where to write the CSV)"},
      {{"--output", "OUT"}, "genostat-qc: error: FILE: no input file given"},
      {{"--output", "OUT", "--bogus", "IN"}, "genostat-qc: error: --bogus: unknown option"},
      {{"IN", "--output"}, "genostat-qc: error: --output: needs a value"},
      {{"--output=", "IN"}, "genostat-qc: error: --output: needs a file name"},
      {{"--output", "OUT", "--adapter", "SMALL", "IN"},
       "genostat-qc: error: --adapter: must be NONE, ILLUMINA, NEXTERA or CUSTOM, not 'SMALL'"},
      {{"--output", "OUT", "--adapter", "illumina", "IN"},
       "genostat-qc: error: --adapter: must be NONE, ILLUMINA, NEXTERA or CUSTOM, not 'illumina'"},
      {{"--output", "OUT", "--threads", "0", "IN"},
       "genostat-qc: error: --threads: must be a whole number from 1 to 256, not '0'"},
      {{"--output", "OUT", "--threads", "257", "IN"},
       "genostat-qc: error: --threads: must be a whole number from 1 to 256, not '257'"},
      {{"--output", "OUT", "--threads", "2x", "IN"},
       "genostat-qc: error: --threads: must be a whole number from 1 to 256, not '2x'"},
      {{"--output", "OUT", "--threads", "-1", "IN"},
       "genostat-qc: error: --threads: must be a whole number from 1 to 256, not '-1'"},
      {{"--output", "OUT", "--adapter", "CUSTOM", "IN"},
       "genostat-qc: error: --custom-sequence: needed with --adapter CUSTOM"},
      {{"--output", "OUT", "--adapter", "CUSTOM", "--custom-sequence", "", "IN"},
       "genostat-qc: error: --custom-sequence: must be a non-empty sequence of A, C, G and T, not "
       "''"},
      {{"--output", "OUT", "--adapter", "CUSTOM", "--custom-sequence", "ACGTN", "IN"},
       "genostat-qc: error: --custom-sequence: must be a non-empty sequence of A, C, G and T, not "
       "'ACGTN'"},
  };
  for (const UsageCase& c : cases) {
    std::vector<std::string> args;
    for (const std::string& arg : c.args)
      args.push_back(arg == "OUT" ? out : arg == "IN" ? good : arg);
    SCOPED_TRACE(c.lastLine);
    const Outcome outcome = run(args);
    EXPECT_EQ(outcome.code, kExitUsage);
    EXPECT_EQ(outcome.lastErrLine(), c.lastLine);
    EXPECT_NE(outcome.err.find("usage: genostat-qc"), std::string::npos);
    EXPECT_FALSE(exists(out));
  }
}

TEST_F(Cli, CustomSequenceWithAnotherAdapterIsNotUsed) {
  EXPECT_EQ(run({"--output", out, "--custom-sequence", "not-dna", good}).code, kExitOk);
}

TEST_F(Cli, MalformedInputExits65WithRecordAndLineAndLeavesNoOutput) {
  const std::string bad = dir.write("bad.fastq", testing::makeFastq(2) + "@r3\nACGT\n+\nIII\n");
  const Outcome outcome = run({"--output", out, good, bad});
  EXPECT_EQ(outcome.code, kExitMalformedInput);
  EXPECT_EQ(outcome.lastErrLine(), "genostat-qc: error: " + bad +
                                       ": record 3, line 12: quality length 3 differs from "
                                       "sequence length 4");
  EXPECT_FALSE(exists(out));
}

TEST_F(Cli, DamagedGzipExits65) {
  const std::string gz = testing::gzipMember(testing::makeFastq(100));
  const std::string cut = dir.write("cut.fq.gz", gz.substr(0, gz.size() - 20));
  const Outcome outcome = run({"--output", out, cut});
  EXPECT_EQ(outcome.code, kExitMalformedInput);
  EXPECT_TRUE(std::regex_match(
      outcome.lastErrLine(), std::regex("genostat-qc: error: .*cut\\.fq\\.gz: record [0-9]+, line "
                                        "[0-9]+: truncated gzip stream: .*")))
      << outcome.lastErrLine();
}

TEST_F(Cli, MissingInputOrFolderExits66) {
  const std::string missing = dir.file("nope.fastq");
  Outcome outcome = run({"--output", out, good, missing});
  EXPECT_EQ(outcome.code, kExitNoInput);
  EXPECT_EQ(outcome.lastErrLine(), "genostat-qc: error: " + missing + ": no such file");
  outcome = run({"--output", out, dir.folder()});
  EXPECT_EQ(outcome.code, kExitNoInput);
  EXPECT_EQ(outcome.lastErrLine(),
            "genostat-qc: error: " + dir.folder() + ": is a folder, not a file");
  EXPECT_FALSE(exists(out));
}

TEST_F(Cli, Bzip2InABuildWithoutItExits65NamingTheFile) {
  if (bzip2Available()) GTEST_SKIP() << "this build reads bzip2";
  const std::string bz = dir.write("reads.fastq.bz2", testing::bzip2Magic());
  const Outcome outcome = run({"--output", out, good, bz});
  EXPECT_EQ(outcome.code, kExitMalformedInput);
  EXPECT_EQ(outcome.lastErrLine(), "genostat-qc: error: " + bz +
                                       ": is compressed with bzip2, which this build of "
                                       "genostat-qc cannot read; decompress it, or compress it "
                                       "with gzip instead");
  EXPECT_FALSE(exists(out));
}

TEST_F(Cli, InputErrorKindsMapToExitCodes) {
  EXPECT_EQ(exitCodeFor(InputErrorKind::Malformed), 65);
  EXPECT_EQ(exitCodeFor(InputErrorKind::NotFound), 66);
  EXPECT_EQ(exitCodeFor(InputErrorKind::ReadFailed), 66);
  EXPECT_EQ(exitCodeFor(InputErrorKind::PermissionDenied), 77);
  EXPECT_EQ(exitCodeFor(InputErrorKind::Unsupported), 65);
}

TEST_F(Cli, UnreadableInputExits77) {
  const std::string secret = dir.write("secret.fastq", testing::makeFastq(3));
  const auto denied = testing::makeUnreadable(secret);
  if (!denied) GTEST_SKIP() << "this process reads every file (running as root)";
  const Outcome outcome = run({"--output", out, secret});
  EXPECT_EQ(outcome.code, kExitPermission);
  EXPECT_EQ(outcome.lastErrLine(), "genostat-qc: error: " + secret + ": permission denied");
}

TEST_F(Cli, UnwritableOutputExits73) {
  const std::string noFolder = dir.file("no/such/folder/out.csv");
  Outcome outcome = run({"--output", noFolder, good});
  EXPECT_EQ(outcome.code, kExitCannotWrite);
  EXPECT_EQ(outcome.lastErrLine(),
            "genostat-qc: error: " + noFolder + ": cannot write: No such file or directory");
  // A folder in the output's place.
  outcome = run({"--output", dir.folder(), good});
  EXPECT_EQ(outcome.code, kExitCannotWrite);
  EXPECT_EQ(outcome.lastErrLine().rfind("genostat-qc: error: " + dir.folder() + ": cannot write: ",
                                        0),
            0u);
  EXPECT_TRUE(std::filesystem::is_directory(dir.path()));
}

TEST_F(Cli, OutputThatIsAnInputExits73AndKeepsTheInput) {
  const std::string before = testing::readWholeFile(good);
  // The same file under another spelling of its name is found out too.
  const std::string sameFile = dir.file("./good.fastq");
  for (const std::string& output : {good, sameFile}) {
    const Outcome outcome = run({"--output", output, good});
    EXPECT_EQ(outcome.code, kExitCannotWrite);
    EXPECT_EQ(outcome.lastErrLine(),
              "genostat-qc: error: " + output + ": is also an input file; not overwritten");
    EXPECT_EQ(testing::readWholeFile(good), before);
  }
}

TEST_F(Cli, ExistingOutputIsReplacedWhole) {
  std::ofstream(out) << std::string(100000, 'x');
  ASSERT_EQ(run({"--output", out, good}).code, kExitOk);
  const std::string csv = testing::readWholeFile(out);
  EXPECT_EQ(csv.find('x' + std::string(10, 'x')), std::string::npos);
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 2);
}

TEST_F(Cli, WorkerFailureExits70AndOutOfMemory75) {
  Outcome outcome = run({"--output", out, good}, [](EngineOptions& options) {
    options.onFileStart = [](std::size_t) { throw std::logic_error("broken invariant"); };
  });
  EXPECT_EQ(outcome.code, kExitInternal);
  EXPECT_EQ(outcome.lastErrLine(),
            "genostat-qc: error: " + good + ": internal failure: broken invariant");
  EXPECT_FALSE(exists(out));
  outcome = run({"--output", out, good}, [](EngineOptions& options) {
    options.onFileStart = [](std::size_t) { throw std::bad_alloc(); };
  });
  EXPECT_EQ(outcome.code, kExitOutOfMemory);
  EXPECT_EQ(outcome.lastErrLine(), "genostat-qc: error: " + good + ": out of memory");
  EXPECT_FALSE(exists(out));
}

TEST_F(Cli, ThreadedProgressLinesAreMachineReadable) {
  const auto pipe = testing::slowPipe(dir.folder(), testing::makeFastq(1000), 1000,
                                      std::chrono::milliseconds(700));
  const Outcome outcome =
      run({"--progress", "--threads", "1", "--output", out, good, pipe->path()});
  ASSERT_EQ(outcome.code, kExitOk) << outcome.err;
  std::istringstream lines(outcome.err);
  std::string line;
  int count = 0;
  while (std::getline(lines, line)) {
    EXPECT_TRUE(std::regex_match(line, std::regex("progress 2 [0-9]+ 0 [0-9]+"))) << line;
    ++count;
  }
  EXPECT_GE(count, 1);
}

// The program itself, for the codes and texts the analysis script reads.
TEST(Program, ExitCodesAndLastErrorLine) {
  TempDir dir;
  const std::string good = dir.write("s.fastq", testing::makeFastq(20));
  const std::string out = dir.file("o.csv");
  Outcome outcome = runProgram(dir, {"--output", out, good});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "");
  EXPECT_NE(testing::readWholeFile(out).find("\ns,NONE,20,"), std::string::npos);

  outcome = runProgram(dir, {"--output", out});
  EXPECT_EQ(outcome.code, 64);
  EXPECT_EQ(outcome.lastErrLine(), "genostat-qc: error: FILE: no input file given");
  EXPECT_EQ(outcome.err.find('\r'), std::string::npos);  // lines end in "\n" everywhere

  const std::string bad = dir.write("bad.fq", "@r\nA C\n+\nIII\n");
  outcome = runProgram(dir, {"--output", out, bad});
  EXPECT_EQ(outcome.code, 65);
  EXPECT_EQ(outcome.lastErrLine(),
            "genostat-qc: error: " + bad +
                ": record 1, line 2: the sequence has a blank (code 32) at position 2; only "
                "printable ASCII ('!' to '~') is allowed");
  EXPECT_FALSE(exists(out));

  outcome = runProgram(dir, {"--output", out, dir.file("gone.fq")});
  EXPECT_EQ(outcome.code, 66);
  outcome = runProgram(dir, {"--output", dir.file("x/y.csv"), good});
  EXPECT_EQ(outcome.code, 73);

  if (!bzip2Available()) {
    const std::string bz = dir.write("r.fq.bz2", testing::bzip2Magic());
    outcome = runProgram(dir, {"--output", out, bz});
    EXPECT_EQ(outcome.code, 65);
    EXPECT_EQ(outcome.lastErrLine().rfind("genostat-qc: error: " + bz + ": is compressed with bzip2", 0), 0u);
  }
}

// The command line reaches the program in UTF-8 whatever the system hands over, and the CSV it
// writes holds exactly the bytes the engine made.
TEST(Program, NamesInAnyScriptAndTheCsvByteForByte) {
  TempDir dir;
  const std::string first = dir.write(kWorldlyName + ".fastq", testing::makeFastq(40, 20, 90, 7));
  const std::string second = dir.write("second.fq.gz", testing::gzipMember(testing::makeFastq(25)));
  const std::string out = dir.file(kWorldlyName + " result.csv");
  const Outcome outcome = runProgram(dir, {"--adapter", "ILLUMINA", "--output", out, first, second});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EngineOptions options;
  options.metrics.adapter = AdapterSetting::Illumina;
  EXPECT_EQ(testing::readWholeFile(out),
            csvDocument(csvColumnNames(), runEngine({first, second}, options)));
  EXPECT_NE(testing::readWholeFile(out).find("\n" + kWorldlyName + ",ILLUMINA,40,"),
            std::string::npos);
}

TEST(Program, IsInstalledBesideTheAnalysisScript) {
  const std::string installed = GENOSTAT_QC_INSTALLED;
  EXPECT_TRUE(testing::isRunnableFile(installed)) << installed;
}

}  // namespace
}  // namespace genostat
