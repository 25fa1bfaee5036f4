#include "fqgen.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace genostat::fqgen {
namespace {

struct Record {
  std::string header, sequence, separator, quality;
};

std::string generate(const Options& options) {
  Generator generator(options);
  std::string out;
  while (generator.next(out)) {
  }
  return out;
}

std::vector<Record> records(const std::string& text) {
  std::vector<Record> result;
  std::istringstream in(text);
  Record r;
  while (std::getline(in, r.header)) {
    std::getline(in, r.sequence);
    std::getline(in, r.separator);
    if (!std::getline(in, r.quality)) ADD_FAILURE() << "file ends inside a record";
    result.push_back(r);
  }
  return result;
}

bool parse(std::vector<const char*> args, Options& options, std::string& error) {
  args.insert(args.begin(), "genostat-fqgen");
  return parseOptions(static_cast<int>(args.size()), args.data(), options, error);
}

TEST(FqgenOptions, ReadsEveryOption) {
  Options o;
  std::string error;
  ASSERT_TRUE(parse({"--seed", "42", "--reads", "7", "--length", "35-151", "--quality", "decay",
                     "--adapter-rate", "0.25", "--adapter", "CTGTCTCTTATA", "--duplicate-rate",
                     "1", "--n-rate", "0.01", "--tiles", "12", "--gzip=3", "--output", "x.fq.gz"},
                    o, error))
      << error;
  EXPECT_EQ(o.seed, 42u);
  EXPECT_EQ(o.reads, 7u);
  EXPECT_EQ(o.minLength, 35u);
  EXPECT_EQ(o.maxLength, 151u);
  EXPECT_EQ(o.quality, QualityProfile::Decay);
  EXPECT_DOUBLE_EQ(o.adapterRate, 0.25);
  EXPECT_EQ(o.adapter, "CTGTCTCTTATA");
  EXPECT_DOUBLE_EQ(o.duplicateRate, 1.0);
  EXPECT_DOUBLE_EQ(o.nRate, 0.01);
  EXPECT_EQ(o.tiles, 12u);
  EXPECT_EQ(o.gzipLevel, 3);
  EXPECT_EQ(o.output, "x.fq.gz");

  Options single;
  ASSERT_TRUE(parse({"--length", "76", "--gzip"}, single, error));
  EXPECT_EQ(single.minLength, 76u);
  EXPECT_EQ(single.maxLength, 76u);
  EXPECT_EQ(single.gzipLevel, 6);
}

TEST(FqgenOptions, RefusesBadValuesWithTheirName) {
  const std::vector<std::pair<std::vector<const char*>, std::string>> cases = {
      {{"--reads"}, "missing value after --reads"},
      {{"--frobnicate"}, "unknown option: --frobnicate"},
      {{"reads", "5"}, "unknown option: reads"},
      {{"--reads", "-5"}, "invalid value for --reads: -5"},
      {{"--reads", "12x"}, "invalid value for --reads: 12x"},
      {{"--seed", ""}, "invalid value for --seed: "},
      {{"--length", "0"}, "invalid value for --length: 0"},
      {{"--length", "151-35"}, "invalid value for --length: 151-35"},
      {{"--length", "35-"}, "invalid value for --length: 35-"},
      {{"--quality", "great"}, "invalid value for --quality: great"},
      {{"--adapter-rate", "1.5"}, "invalid value for --adapter-rate: 1.5"},
      {{"--duplicate-rate", "-0.1"}, "invalid value for --duplicate-rate: -0.1"},
      {{"--n-rate", "0.1x"}, "invalid value for --n-rate: 0.1x"},
      {{"--adapter", "ACGN"}, "invalid value for --adapter: ACGN"},
      {{"--adapter", ""}, "invalid value for --adapter: "},
      {{"--tiles", "10001"}, "invalid value for --tiles: 10001"},
      {{"--gzip=0"}, "gzip level must be 1..9: --gzip=0"},
      {{"--gzip=10"}, "gzip level must be 1..9: --gzip=10"},
  };
  for (const auto& [args, message] : cases) {
    Options o;
    std::string error;
    EXPECT_FALSE(parse(args, o, error)) << message;
    EXPECT_EQ(error, message);
  }
}

TEST(FqgenOutput, SameSeedSameBytesOtherSeedOtherBytes) {
  Options o;
  o.reads = 300;
  o.minLength = 20;
  o.maxLength = 180;
  o.adapterRate = 0.3;
  o.duplicateRate = 0.3;
  o.nRate = 0.01;
  o.tiles = 4;
  const std::string first = generate(o);
  EXPECT_EQ(first, generate(o));
  o.seed = 2;
  EXPECT_NE(first, generate(o));
}

TEST(FqgenOutput, RecordsAreWellFormedAndLengthsCoverTheRange) {
  Options o;
  o.reads = 2000;
  o.minLength = 1;
  o.maxLength = 40;
  o.nRate = 0.05;
  o.quality = QualityProfile::Low;
  const auto rs = records(generate(o));
  ASSERT_EQ(rs.size(), 2000u);
  std::set<std::size_t> lengths;
  for (std::size_t i = 0; i < rs.size(); ++i) {
    const Record& r = rs[i];
    EXPECT_EQ(r.header, "@read" + std::to_string(i + 1));
    EXPECT_EQ(r.separator, "+");
    ASSERT_EQ(r.sequence.size(), r.quality.size());
    EXPECT_EQ(r.sequence.find_first_not_of("ACGTN"), std::string::npos) << r.sequence;
    for (std::size_t k = 0; k < r.quality.size(); ++k) {
      ASSERT_GE(r.quality[k], '#');
      ASSERT_LE(r.quality[k], 'J');
      if (r.sequence[k] == 'N') {
        EXPECT_EQ(r.quality[k], '#');
      }
    }
    lengths.insert(r.sequence.size());
  }
  EXPECT_EQ(lengths.size(), 40u);
  EXPECT_EQ(*lengths.begin(), 1u);
  EXPECT_EQ(*lengths.rbegin(), 40u);
}

// Share of reads for which `predicate` holds.
template <typename Predicate>
double share(const std::vector<Record>& rs, Predicate predicate) {
  std::size_t n = 0;
  for (const auto& r : rs) n += predicate(r) ? 1 : 0;
  return static_cast<double>(n) / static_cast<double>(rs.size());
}

TEST(FqgenOutput, RatesAreHonoured) {
  Options o;
  o.reads = 4000;
  const auto hasAdapter = [](const Record& r) {
    return r.sequence.find("AGATCGGAAGAG") != std::string::npos;
  };
  EXPECT_EQ(share(records(generate(o)), hasAdapter), 0.0);
  o.adapterRate = 0.3;
  EXPECT_NEAR(share(records(generate(o)), hasAdapter), 0.3, 0.03);

  o.adapterRate = 0;
  o.nRate = 0.02;
  std::size_t bases = 0, ns = 0;
  for (const auto& r : records(generate(o))) {
    bases += r.sequence.size();
    for (char c : r.sequence) ns += c == 'N';
  }
  EXPECT_NEAR(static_cast<double>(ns) / static_cast<double>(bases), 0.02, 0.002);

  o.nRate = 0;
  o.duplicateRate = 0.4;
  const auto rs = records(generate(o));
  std::set<std::string> distinct;
  for (const auto& r : rs) distinct.insert(r.sequence);
  EXPECT_NEAR(static_cast<double>(distinct.size()) / static_cast<double>(rs.size()), 0.6, 0.03);
}

TEST(FqgenOutput, TileHeadersCarryANumericTileInTheFifthField) {
  Options o;
  o.reads = 500;
  o.tiles = 3;
  std::set<std::string> tiles;
  for (const auto& r : records(generate(o))) {
    const std::string id = r.header.substr(0, r.header.find(' '));
    std::vector<std::string> fields;
    std::istringstream in(id);
    for (std::string f; std::getline(in, f, ':');) fields.push_back(f);
    ASSERT_EQ(fields.size(), 7u) << r.header;
    tiles.insert(fields[4]);
  }
  EXPECT_EQ(tiles, (std::set<std::string>{"1101", "1102", "1103"}));
}

double meanQualityOfLastTenth(QualityProfile profile) {
  Options o;
  o.reads = 500;
  o.quality = profile;
  double sum = 0;
  std::size_t n = 0;
  for (const auto& r : records(generate(o))) {
    for (std::size_t k = r.quality.size() * 9 / 10; k < r.quality.size(); ++k, ++n) {
      sum += r.quality[k] - 33;
    }
  }
  return sum / static_cast<double>(n);
}

TEST(FqgenOutput, ProfilesDifferAndStayPhred33) {
  EXPECT_GT(meanQualityOfLastTenth(QualityProfile::High), 33.0);
  EXPECT_LT(meanQualityOfLastTenth(QualityProfile::Decay), 12.0);
  EXPECT_GT(meanQualityOfLastTenth(QualityProfile::Medium),
            meanQualityOfLastTenth(QualityProfile::Low));
  // Even the clean profile dips below '@', so Phred+33 is detected as such.
  Options o;
  o.reads = 100;
  const std::string text = generate(o);
  char lowest = '~';
  for (const auto& r : records(text)) {
    for (char c : r.quality) lowest = std::min(lowest, c);
  }
  EXPECT_LT(lowest, '@');
}

}  // namespace
}  // namespace genostat::fqgen
