// The golden tables (tests/golden/): genostat-qc's command line run on every case of runs.txt, its CSV
// compared with the golden CSV or its last error line with the expected one; and every text of
// reader.txt parsed whole and one byte at a time, to its records or its exact refusal.
// GENOSTAT_UPDATE_GOLDEN=1 rewrites the golden CSVs from the engine's output: check every
// changed value against the metrics' definitions before committing it (README.md there).
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "engine_test_support.h"
#include "genostat/input_error.h"

namespace genostat {
namespace {

using Row = std::vector<std::string>;

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string lastLine(std::string text) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text.substr(text.rfind('\n') + 1);
}

std::string caseName(const ::testing::TestParamInfo<Row>& info) { return info.param[0]; }

// runs.txt: name, exit code, expected (a golden CSV or the last stderr line), arguments.
class Runs : public ::testing::TestWithParam<Row> {};

TEST_P(Runs, MatchGolden) {
  const Row& c = GetParam();
  ASSERT_EQ(c.size(), 4u) << c[0];
  testing::TempDir scratch;
  const std::string golden = GENOSTAT_GOLDEN_DIR;
  auto expand = [&](const std::string& text) {
    return replaceAll(replaceAll(text, "{G}", golden), "{T}", scratch.folder());
  };
  std::vector<std::string> args;
  std::istringstream words(c[3]);
  for (std::string word; words >> word;) args.push_back(expand(word));
  const std::string out = scratch.file("out.csv");
  const bool success = c[2].size() > 4 && c[2].compare(c[2].size() - 4, 4, ".csv") == 0;
  if (success) scratch.write("out.csv", std::string(100000, 'x'));  // replaced whole
  scratch.write("in.fastq", "@r\nACGT\n+\nIIII\n");                  // an input it may write to
  const auto [code, err] = testing::runCommand(args);
  ASSERT_EQ(code, std::stoi(c[1])) << err;
  if (!success) {
    const std::string expected = expand(c[2]), line = lastLine(err);
    const bool prefix = expected.back() == '*';  // the system's own words follow
    EXPECT_EQ(prefix ? line.substr(0, expected.size() - 1) + "*" : line, expected);
    EXPECT_EQ(err.rfind("usage: genostat-qc ", 0) == 0, code == 64) << err;
    EXPECT_FALSE(testing::exists(out)) << "a failed run left its output";
    return;
  }
  const std::string errFile = golden + "/" + c[2].substr(0, c[2].size() - 4) + ".err";
  EXPECT_EQ(err, testing::exists(errFile) ? expand(testing::readWholeFile(errFile)) : "");
  const std::string csv = testing::readWholeFile(out);
  if (std::getenv("GENOSTAT_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(golden + "/" + c[2], std::ios::binary) << csv;
    return;
  }
  EXPECT_EQ(csv, testing::readWholeFile(golden + "/" + c[2]));  // shown as a diff of lines
}

INSTANTIATE_TEST_SUITE_P(Golden, Runs, ::testing::ValuesIn(testing::readTable("runs.txt")),
                         caseName);

// reader.txt: name, text (\n \r \t \\ \xHH escapes), then the records as header|sequence|quality
// separated by " ; " ("=" alone for none) or the refusal's message.
std::string unescape(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    const char c = text[++i];
    if (c == 'x') {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      out += c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
    }
  }
  return out;
}

std::string parseOutcome(const std::string& text, std::size_t chunk) {
  testing::ChunkedSource source(text, chunk);
  testing::KeepingSink sink;
  try {
    readFastq(source, "in.fastq", sink);
  } catch (const InputError& error) {
    EXPECT_EQ(error.kind(), InputErrorKind::Malformed);
    EXPECT_EQ(std::string(error.what()), "in.fastq: " + error.message());
    return error.message();
  }
  std::string records = "=";
  for (const auto& r : sink.records) records += (records.size() > 1 ? " ; " : "") + r;
  return records;
}

class Reader : public ::testing::TestWithParam<Row> {};

TEST_P(Reader, RecordsOrRefusal) {
  const Row& c = GetParam();
  ASSERT_EQ(c.size(), 3u) << c[0];
  const std::string text = unescape(c[1]);
  EXPECT_EQ(parseOutcome(text, 1 << 20), c[2]);
  EXPECT_EQ(parseOutcome(text, 1), c[2]) << "delivered one byte at a time";
}

INSTANTIATE_TEST_SUITE_P(Golden, Reader, ::testing::ValuesIn(testing::readTable("reader.txt")),
                         caseName);

}  // namespace
}  // namespace genostat
