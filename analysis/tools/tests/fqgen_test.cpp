// The generator: its options, and output that is deterministic, well formed and honours its rates.
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

std::vector<Record> generate(const Options& options, std::string* text = nullptr) {
  Generator generator(options);
  std::string out;
  while (generator.next(out)) {
  }
  if (text != nullptr) *text = out;
  std::vector<Record> result;
  std::istringstream in(out);
  for (Record r; std::getline(in, r.header) && std::getline(in, r.sequence) &&
                 std::getline(in, r.separator) && std::getline(in, r.quality);) {
    result.push_back(r);
  }
  EXPECT_EQ(result.size(), options.reads);
  return result;
}

std::string parse(std::vector<const char*> args, Options& options) {
  args.insert(args.begin(), "genostat-fqgen");
  std::string error;
  return parseOptions(static_cast<int>(args.size()), args.data(), options, error) ? "" : error;
}

TEST(FqgenOptions, EveryOptionAndEveryRefusal) {
  Options o;
  ASSERT_EQ(parse({"--seed", "42", "--reads", "7", "--length", "35-151", "--quality", "decay",
                   "--adapter-rate", "0.25", "--adapter", "CTGTCTCTTATA", "--duplicate-rate", "1",
                   "--n-rate", "0.01", "--gc", "0.6", "--tiles", "12", "--gzip=3", "--output", "x.gz"},
                  o),
            "");
  EXPECT_EQ(std::make_tuple(o.seed, o.reads, o.minLength, o.maxLength, o.quality, o.adapter, o.tiles,
                            o.gzipLevel, o.output),
            std::make_tuple(42u, 7u, 35u, 151u, QualityProfile::Decay, std::string("CTGTCTCTTATA"), 12u,
                            3, std::string("x.gz")));
  EXPECT_EQ(std::make_tuple(o.adapterRate, o.duplicateRate, o.nRate, o.gc), std::make_tuple(0.25, 1.0, 0.01, 0.6));
  ASSERT_EQ(parse({"--length", "76", "--gzip"}, o), "");
  EXPECT_EQ(std::make_tuple(o.minLength, o.maxLength, o.gzipLevel), std::make_tuple(76u, 76u, 6));
  // A value refused is named with its option.
  const std::vector<std::vector<const char*>> badValues = {
      {"--reads", "-5"}, {"--reads", "12x"}, {"--seed", ""}, {"--length", "0"}, {"--length", "151-35"},
      {"--length", "35-"}, {"--quality", "great"}, {"--adapter-rate", "1.5"}, {"--duplicate-rate", "-0.1"},
      {"--n-rate", "0.1x"}, {"--gc", "2"}, {"--adapter", "ACGN"}, {"--adapter", ""}, {"--tiles", "10001"}};
  for (const auto& args : badValues) {
    EXPECT_EQ(parse(args, o), std::string("invalid value for ") + args[0] + ": " + args[1]);
  }
  EXPECT_EQ(parse({"--reads"}, o), "missing value after --reads");
  EXPECT_EQ(parse({"--frobnicate"}, o), "unknown option: --frobnicate");
  EXPECT_EQ(parse({"reads", "5"}, o), "unknown option: reads");
  EXPECT_EQ(parse({"--gzip=0"}, o), "gzip level must be 1..9: --gzip=0");
  EXPECT_EQ(parse({"--gzip=10"}, o), "gzip level must be 1..9: --gzip=10");
}

TEST(FqgenOutput, DeterministicWellFormedAndCoveringTheLengths) {
  Options o;
  o.reads = 2000;
  o.minLength = 1;
  o.maxLength = 40;
  o.nRate = 0.05;
  o.quality = QualityProfile::Low;
  std::string first, again, other;
  const auto rs = generate(o, &first);
  generate(o, &again);
  o.seed = 2;
  generate(o, &other);
  EXPECT_EQ(first, again);
  EXPECT_NE(first, other);
  std::set<std::size_t> lengths;
  for (std::size_t i = 0; i < rs.size(); ++i) {
    const Record& r = rs[i];
    EXPECT_EQ(r.header + r.separator, "@read" + std::to_string(i + 1) + "+");
    ASSERT_EQ(r.sequence.size(), r.quality.size());
    EXPECT_EQ(r.sequence.find_first_not_of("ACGTN"), std::string::npos) << r.sequence;
    for (std::size_t k = 0; k < r.quality.size(); ++k) {
      EXPECT_TRUE(r.sequence[k] == 'N' ? r.quality[k] == '#' : r.quality[k] > '#' && r.quality[k] <= 'J');
    }
    lengths.insert(r.sequence.size());
  }
  EXPECT_EQ(lengths.size(), 40u);
}

TEST(FqgenOutput, RatesTilesAndProfilesAreHonoured) {
  Options o;
  o.reads = 4000;
  o.adapterRate = 0.3;
  std::size_t adapters = 0;
  for (const auto& r : generate(o)) adapters += r.sequence.find("AGATCGGAAGAG") != std::string::npos;
  EXPECT_NEAR(adapters / 4000.0, 0.3, 0.03);
  o = Options{};
  o.reads = 4000;
  o.nRate = 0.02;
  o.duplicateRate = 0.4;
  o.gc = 0.7;
  o.tiles = 3;
  std::size_t bases = 0, ns = 0, gc = 0;
  std::set<std::string> distinct, tiles;
  for (const auto& r : generate(o)) {
    distinct.insert(r.sequence);
    bases += r.sequence.size();
    for (char c : r.sequence) ns += c == 'N', gc += c == 'G' || c == 'C';
    tiles.insert(r.header.substr(0, r.header.find(':', 19)));  // seven fields, the tile fifth
  }
  EXPECT_EQ(tiles, (std::set<std::string>{"@GSIM01:7:FC0001:1:1101", "@GSIM01:7:FC0001:1:1102",
                                          "@GSIM01:7:FC0001:1:1103"}));
  EXPECT_NEAR(static_cast<double>(ns) / bases, 0.02, 0.002);
  EXPECT_NEAR(static_cast<double>(gc) / (bases - ns), 0.7, 0.01);
  EXPECT_NEAR(distinct.size() / 4000.0, 0.6, 0.03);
  // Mean quality of the last tenth of the reads; every profile dips below '@' (Phred+33 is told).
  auto tail = [](QualityProfile profile, char* lowest) {
    Options p;
    p.reads = 500;
    p.quality = profile;
    double sum = 0, n = 0;
    for (const auto& r : generate(p)) {
      for (std::size_t k = 0; k < r.quality.size(); ++k) {
        *lowest = std::min(*lowest, r.quality[k]);
        if (k >= r.quality.size() * 9 / 10) sum += r.quality[k] - 33, n += 1;
      }
    }
    return sum / n;
  };
  char lowest = '~';
  EXPECT_GT(tail(QualityProfile::High, &lowest), 33.0);
  EXPECT_LT(lowest, '@');
  EXPECT_LT(tail(QualityProfile::Decay, &lowest), 12.0);
  EXPECT_GT(tail(QualityProfile::Medium, &lowest), tail(QualityProfile::Low, &lowest));
}

}  // namespace
}  // namespace genostat::fqgen
