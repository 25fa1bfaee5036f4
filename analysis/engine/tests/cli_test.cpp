// genostat-qc's command line: options, every exit code with its last stderr line, the output file
// (written whole, removed on failure), progress lines. Most cases run in process; the program
// itself is run for the codes the analysis script depends on.
#include "genostat/cli.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "engine_test_support.h"
#include "genostat/csv.h"

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
Outcome runProgram(const std::vector<std::string>& args) {
  TempDir dir;
  const std::string outPath = dir.file("stdout");
  const std::string errPath = dir.file("stderr");
  const pid_t pid = ::fork();
  if (pid == 0) {
    const int outFd = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int errFd = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(outFd, 1);
    ::dup2(errFd, 2);
    std::vector<char*> argv;
    std::string program = GENOSTAT_QC_BINARY;
    argv.push_back(program.data());
    std::vector<std::string> copy = args;
    for (auto& arg : copy) argv.push_back(arg.data());
    argv.push_back(nullptr);
    ::execv(program.c_str(), argv.data());
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return Outcome{WIFEXITED(status) ? WEXITSTATUS(status) : -1, testing::readWholeFile(outPath),
                 testing::readWholeFile(errPath)};
}

bool exists(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0;
}

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
  outcome = run({"--output", out, dir.path().string()});
  EXPECT_EQ(outcome.code, kExitNoInput);
  EXPECT_EQ(outcome.lastErrLine(),
            "genostat-qc: error: " + dir.path().string() + ": is a folder, not a file");
  EXPECT_FALSE(exists(out));
}

TEST_F(Cli, InputErrorKindsMapToExitCodes) {
  EXPECT_EQ(exitCodeFor(InputErrorKind::Malformed), 65);
  EXPECT_EQ(exitCodeFor(InputErrorKind::NotFound), 66);
  EXPECT_EQ(exitCodeFor(InputErrorKind::ReadFailed), 66);
  EXPECT_EQ(exitCodeFor(InputErrorKind::PermissionDenied), 77);
}

TEST_F(Cli, UnreadableInputExits77) {
  if (::geteuid() == 0) GTEST_SKIP() << "running as root: file permissions do not apply";
  const std::string secret = dir.write("secret.fastq", testing::makeFastq(3));
  ASSERT_EQ(::chmod(secret.c_str(), 0), 0);
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
  outcome = run({"--output", dir.path().string(), good});
  EXPECT_EQ(outcome.code, kExitCannotWrite);
  EXPECT_EQ(outcome.lastErrLine().rfind(
                "genostat-qc: error: " + dir.path().string() + ": cannot write: ", 0),
            0u);
  EXPECT_TRUE(std::filesystem::is_directory(dir.path()));
}

TEST_F(Cli, OutputThatIsAnInputExits73AndKeepsTheInput) {
  const std::string before = testing::readWholeFile(good);
  const Outcome outcome = run({"--output", good, good});
  EXPECT_EQ(outcome.code, kExitCannotWrite);
  EXPECT_EQ(outcome.lastErrLine(),
            "genostat-qc: error: " + good + ": is also an input file; not overwritten");
  EXPECT_EQ(testing::readWholeFile(good), before);
}

TEST_F(Cli, FullDeviceExits73AndIsNotRemoved) {
  if (!exists("/dev/full")) GTEST_SKIP() << "no /dev/full on this system";
  const Outcome outcome = run({"--output", "/dev/full", good});
  EXPECT_EQ(outcome.code, kExitCannotWrite);
  EXPECT_EQ(outcome.lastErrLine(),
            "genostat-qc: error: /dev/full: cannot write: No space left on device");
  EXPECT_TRUE(exists("/dev/full"));
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
  const std::string fifo = dir.file("slow.fastq");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::string text = testing::makeFastq(1000);
  std::thread writer([&] {
    std::ofstream pipe(fifo, std::ios::binary);
    pipe << text.substr(0, 1000) << std::flush;
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    pipe << text.substr(1000);
  });
  const Outcome outcome = run({"--progress", "--threads", "1", "--output", out, good, fifo});
  writer.join();
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
  Outcome outcome = runProgram({"--output", out, good});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "");
  EXPECT_NE(testing::readWholeFile(out).find("\ns,NONE,20,"), std::string::npos);

  outcome = runProgram({"--output", out});
  EXPECT_EQ(outcome.code, 64);
  EXPECT_EQ(outcome.lastErrLine(), "genostat-qc: error: FILE: no input file given");

  const std::string bad = dir.write("bad.fq", "@r\nA C\n+\nIII\n");
  outcome = runProgram({"--output", out, bad});
  EXPECT_EQ(outcome.code, 65);
  EXPECT_EQ(outcome.lastErrLine(),
            "genostat-qc: error: " + bad +
                ": record 1, line 2: the sequence has a blank (code 32) at position 2; only "
                "printable ASCII ('!' to '~') is allowed");
  EXPECT_FALSE(exists(out));

  outcome = runProgram({"--output", out, dir.file("gone.fq")});
  EXPECT_EQ(outcome.code, 66);
  outcome = runProgram({"--output", dir.file("x/y.csv"), good});
  EXPECT_EQ(outcome.code, 73);
}

TEST(Program, IsInstalledBesideTheAnalysisScript) {
  const std::string installed = GENOSTAT_QC_INSTALLED;
  EXPECT_EQ(::access(installed.c_str(), X_OK), 0) << installed;
}

}  // namespace
}  // namespace genostat
