// genostat-fqgen: a deterministic FASTQ generator for tests, benchmarks and sample data.
//
// The same options and seed give the same bytes on every machine: the generator uses its own
// pseudo-random number generator (xoshiro256**, seeded through splitmix64) and integer arithmetic
// only, never the standard library's distributions, whose output differs between implementations.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace genostat::fqgen {

// How base qualities are drawn (Phred+33). Every profile yields some qualities below Q31, so that
// a reader that detects the encoding from the lowest character sees Phred+33.
enum class QualityProfile {
  High,    // about Q37, a few dips: a clean modern run
  Medium,  // Q30 falling to Q24 along the read
  Low,     // Q18 falling to Q10
  Decay,   // Q36 at the start falling to Q6 at the end: a degraded run
};

struct Options {
  std::uint64_t seed = 1;
  std::uint64_t reads = 1000;
  std::uint32_t minLength = 150;  // read lengths are drawn uniformly from [minLength, maxLength]
  std::uint32_t maxLength = 150;
  QualityProfile quality = QualityProfile::High;
  double adapterRate = 0.0;    // share of fresh reads whose insert ends inside the read
  double duplicateRate = 0.0;  // share of reads that copy the sequence of an earlier read
  double nRate = 0.0;          // chance of each base being N
  double gc = 0.5;             // share of G and C among the drawn bases
  std::uint32_t tiles = 0;     // 0: headers "@read<n>"; else instrument headers over this many tiles
  std::string adapter = "AGATCGGAAGAGCACACGTCTGAACTCCAGTCAC";  // read into after a short insert
  std::string output;          // empty or "-": standard output
  int gzipLevel = 0;           // 0: plain text; 1..9: gzip at that level
};

// Reads the options from argv[1..argc-1]. On a bad option returns false and sets `error`.
bool parseOptions(int argc, const char* const* argv, Options& options, std::string& error);

// The option summary printed with usage errors.
const char* usageText();

// Produces the records one by one.
class Generator {
 public:
  explicit Generator(const Options& options);

  // Appends the next record (four lines, LF-terminated) to `out`; false once all are made.
  bool next(std::string& out);

 private:
  std::uint64_t random();
  // True with probability `rate`, decided in 32-bit fixed point.
  bool chance(std::uint32_t threshold);
  void makeSequence(std::uint32_t length);
  void makeQualities();
  void appendHeader(std::string& out);

  Options options_;
  std::uint64_t state_[4];
  std::uint64_t made_ = 0;
  std::uint32_t adapterThreshold_;
  std::uint32_t duplicateThreshold_;
  std::uint32_t nThreshold_;
  std::uint32_t gcThreshold_;
  std::string sequence_;
  std::string quality_;
  std::vector<std::string> pool_;  // earlier sequences that duplicates copy
};

// Writes the whole file described by `options`; false with `error` set when output fails.
bool writeFastq(const Options& options, std::string& error);

}  // namespace genostat::fqgen
