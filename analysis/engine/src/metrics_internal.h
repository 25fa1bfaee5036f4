// Building blocks of SampleMetrics that are worth testing on their own: position groups, length
// bins, number formatting, the quality histograms, the GC model, the duplicate table, the adapter
// scanner and the tile tracker. Private to the engine; the public face is genostat/metrics.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "large_memory.h"

namespace genostat::metrics_detail {

// ---------------------------------------------------------------------------------------------
// Formatting

// Fixed notation, two decimals, correctly rounded from the double's exact value (ties to even).
std::string formatTwoDecimals(double value);

// 100 * part / whole truncated (not rounded) at the second decimal, in integer arithmetic, so that
// the integer part always equals the truncated whole percentage. "0.00" when whole is 0.
std::string formatTruncatedPercent(std::uint64_t part, std::uint64_t whole);

// ---------------------------------------------------------------------------------------------
// Vector instructions of the hot loops, chosen once at run time: the best the processor has, or
// a lower level asked for (tests run every level against the byte-at-a-time reference).

enum class Simd { None = 0, Sse2 = 1, Avx2 = 2 };
// The best level this processor and build support.
Simd bestSimd();
// `wanted`, lowered to what this processor and build support.
Simd usableSimd(Simd wanted);

// ---------------------------------------------------------------------------------------------
// Per-position base classes, counted 16 or 32 positions at a time: each read adds the compare masks
// of A, C, G, T and N to 8-bit working counters ([class][position]), which are folded into 64-bit
// totals every 255 reads. The class of everything else follows from the number of reads covering
// a position, so it needs no compare of its own. A read may be counted in two steps (add, then
// extend): the positions of long reads are held back until enough reads reach them (see
// SampleMetrics).

enum BaseClass : std::uint8_t { kA = 0, kC = 1, kG = 2, kT = 3, kN = 4, kOther = 5 };
constexpr std::size_t kBaseStride = 8;  // six classes, padded

class BaseCounts {
 public:
  // Simd::None counts one base at a time (the reference the vector code is tested on).
  explicit BaseCounts(Simd simd = bestSimd());
  // Counts one read's bases; returns the number of G and C among its first `gcLength` bases
  // (gcLength <= size).
  std::size_t add(const unsigned char* bases, std::size_t size, std::size_t gcLength);
  // Counts positions [from, to) of a read whose first `from` bases were counted already;
  // `bases` holds those positions.
  void extend(const unsigned char* bases, std::size_t from, std::size_t to);
  // Totals [position * kBaseStride + class] for every position below the longest read, the other
  // class included.
  std::vector<std::uint64_t> totals();
  // Forgets every read and keeps the memory, for the next file.
  void reset();

 private:
  void fold();
  void reserve(std::size_t positions);
  std::size_t addScalar(const unsigned char* bases, std::size_t size, std::size_t gcLength);
  std::size_t addSse2(const unsigned char* bases, std::size_t size, std::size_t gcLength);
  std::size_t addAvx2(const unsigned char* bases, std::size_t size, std::size_t gcLength);
  Simd simd_;
  std::size_t capacity_ = 0;           // positions held by the working counters, a multiple of 32
  std::size_t longest_ = 0;
  unsigned sinceFold_ = 0;             // reads in the working counters
  LargeVector<std::uint8_t> recent_;   // [class * capacity_ + position], classes A..N
  LargeVector<std::uint64_t> folded_;  // [position * kBaseStride + class], classes A..N
  std::vector<std::uint64_t> lengths_;  // reads of each length
};

// ---------------------------------------------------------------------------------------------
// Per-position histograms of quality codes ('!'..'~', raw: the offset is known only at the end).
// 16-bit working counters (each read adds at most 1 to one) are folded into 64-bit totals every
// 65535 reads. The first 1024 positions are laid out position by position, so a short read's
// histogram fits the first-level cache; later positions code by code, so a long read, whose
// neighbouring positions mostly share a few codes, touches a few memory lines per 32 positions
// rather than one per position.

class QualityCounts {
 public:
  static constexpr std::size_t kCodes = 94;
  // Tests move the change of layout close to the start.
  explicit QualityCounts(std::size_t nearPositions = 1024) : nearPositions_(nearPositions) {}
  // rows_ points into the object's own table.
  QualityCounts(const QualityCounts&) = delete;
  QualityCounts& operator=(const QualityCounts&) = delete;
  // Counts quality[0, size) at positions [0, size).
  void add(const unsigned char* quality, std::size_t size);
  // Counts positions [from, to) of a read added up to `from`; `quality` holds those positions.
  void extend(const unsigned char* quality, std::size_t from, std::size_t to);
  // Positions counted so far (the longest read's, or the limit the caller keeps them to).
  std::size_t positions() const { return positions_; }
  // counts[code - 33] at position p.
  void countsAt(std::size_t p, std::array<std::uint64_t, kCodes>& counts) const;
  // Forgets every read, keeping the memory for the next file.
  void reset();

 private:
  static constexpr std::size_t kStride = 96;  // codes per near position, padded
  void reserve(std::size_t positions);
  void fold();
  std::size_t nearPositions_;
  std::size_t positions_ = 0;
  std::size_t farCapacity_ = 0;  // positions a row of farCounts_ holds
  std::uint32_t sinceFold_ = 0;
  LargeVector<std::uint16_t> nearCounts_;  // [position * kStride + code - 33]
  LargeVector<std::uint16_t> farCounts_;   // [(code - 33) * farCapacity_ + far position]
  LargeVector<std::uint64_t> totals_;      // [position * kStride + code - 33]
  std::array<std::uint16_t*, 128> rows_{};  // the farCounts_ row of each raw code
};

// Number of positions j + 1 < size where bases[j] != bases[j + 1].
std::size_t neighbourDifferences(const unsigned char* bases, std::size_t size,
                                 bool vectorised = true);
// Sum of the byte values.
std::uint64_t byteSum(const unsigned char* bytes, std::size_t size, bool vectorised = true);
// Number of G and C bytes.
std::size_t gcCount(const unsigned char* bases, std::size_t size);
// Adds the class of every base to sums[class] (other included).
void addClasses(const unsigned char* bases, std::size_t size, std::array<std::uint64_t, 6>& sums);

// ---------------------------------------------------------------------------------------------
// Position groups: positions 1..9 alone, then groups whose width grows with the read length so
// that long reads still give fewer than 75 groups.

struct PositionGroup {
  std::size_t first;  // 1-based, inclusive
  std::size_t last;   // 1-based, inclusive
  std::string label() const;
};

std::vector<PositionGroup> positionGroups(std::size_t maxLength);

// ---------------------------------------------------------------------------------------------
// Length distribution bins (padded by one value on each side, empty end bins dropped).

struct LengthBin {
  std::size_t first;
  std::size_t last;
  std::uint64_t count;
  bool single;  // bin width 1: labelled by one number
  std::string label() const;
};

// lengthCounts[L] = number of reads of length L; `longer` lists one entry per read whose length is
// beyond lengthCounts (the few longest reads, which a table by length would spend memory on).
std::vector<LengthBin> lengthBins(const std::vector<std::uint64_t>& lengthCounts,
                                  const std::vector<std::size_t>& longer = {});

struct LengthSummary {
  bool present = false;  // false when there are no reads
  double mean = 0;
  std::size_t median = 0;
};

LengthSummary summariseLengthBins(const std::vector<LengthBin>& bins);

// ---------------------------------------------------------------------------------------------
// Verdicts

enum class Verdict { Absent, Pass, Warn, Fail };
const char* verdictText(Verdict v);  // "" for Absent

// ---------------------------------------------------------------------------------------------
// Per-sequence GC: the model that spreads one read with g G/C bases out of L over percentage bins.

// Its size does not depend on the length: a count's bins are worked out per read, and only the
// weight of each bin (1 / the number of counts claiming it) is kept.
class GcModel {
 public:
  explicit GcModel(std::size_t length);
  // Adds the weights of a read with `gcCount` G/C bases to `distribution`.
  void addTo(std::size_t gcCount, std::array<double, 101>& distribution) const;
  struct Claim {
    std::size_t firstBin;
    std::vector<double> weights;  // weights[k] goes to bin firstBin + k
  };
  Claim claim(std::size_t gcCount) const;

 private:
  // First and last bin claimed by count h.
  long firstBin(std::size_t h) const;
  long lastBin(std::size_t h) const;
  double length_;
  std::array<double, 101> weights_{};
};

// Deviation (in %) of the distribution from its fitted normal curve; NaN flows through unguarded.
double gcDeviation(const std::array<double, 101>& distribution);
Verdict gcVerdict(double deviation);

// Number of leading bases a read of `length` is judged on.
inline std::size_t gcKeptLength(std::size_t length) {
  if (length > 1000) return (length / 1000) * 1000;
  if (length > 100) return (length / 100) * 100;
  return length;
}

// ---------------------------------------------------------------------------------------------
// Duplicate tracking: the first kDistinctLimit distinct keys (reads cut to kKeyLength), each
// counted over the whole file.

constexpr std::size_t kDistinctLimit = 100000;
constexpr std::size_t kKeyLength = 50;

class DuplicateTable {
 public:
  DuplicateTable();
  // Counts one read. `key` is at most kKeyLength bytes.
  void add(std::string_view key) { add(key, hash(key)); }
  // The same in two steps: hash and prefetch the slot early, count once the line has arrived.
  static std::uint64_t hash(std::string_view key);
  void prefetch(std::uint64_t keyHash) const;
  void add(std::string_view key, std::uint64_t keyHash);

  std::uint64_t totalReads() const { return total_; }
  // Read number at which the table froze, or the total when it never did.
  std::uint64_t countAtLimit() const { return frozen_ ? countAtLimit_ : total_; }
  bool frozen() const { return frozen_; }
  std::size_t distinct() const { return entries_.size(); }
  // level -> number of keys with that count
  std::map<std::uint64_t, std::uint64_t> levels() const;
  std::vector<std::uint64_t> counts() const;
  // Forgets every key. Only the slots in use are cleared: a small file does not pay for the
  // whole table.
  void reset();

 private:
  struct Entry {
    std::uint64_t count;
    std::uint32_t offset;
    std::uint32_t length;
  };
  LargeVector<std::uint64_t> slots_;  // (hash high 32 bits << 32) | (entry index + 1); 0 = empty
  std::vector<std::uint32_t> usedSlots_;
  std::vector<Entry> entries_;
  std::string arena_;
  std::uint64_t total_ = 0;
  std::uint64_t countAtLimit_ = 0;
  bool frozen_ = false;
};

// Deduplicated percentage from the table's levels, with the correction for keys missed after
// the freeze. 100 when there are no reads.
double deduplicatedPercentage(const std::map<std::uint64_t, std::uint64_t>& levels,
                              std::uint64_t countAtLimit, std::uint64_t total);

struct Overrepresented {
  std::uint64_t count = 0;  // keys above 0.1 % of all reads
  Verdict verdict = Verdict::Pass;
};
Overrepresented overrepresented(const std::vector<std::uint64_t>& counts, std::uint64_t total);

// ---------------------------------------------------------------------------------------------
// The part of a long read beyond the positions the per-position tables hold: SampleMetrics keeps
// those of at most the 100 longest reads and moves them into the tables as more reads reach
// their positions.

struct ReadTail {
  static constexpr std::size_t kNoTile = SIZE_MAX;
  std::size_t start = 0;   // the read's position (0-based) of bases[0] and quality[0]
  std::size_t from = 0;    // positions below are in the tables already
  std::size_t length = 0;  // the whole read's
  std::size_t tile = kNoTile;  // the TileTracker slot that counted the read, if one did
  LargeVector<unsigned char> bases;
  LargeVector<unsigned char> quality;
};

// ---------------------------------------------------------------------------------------------
// Adapter content: first exact occurrence of each adapter, cumulative along the read.

class AdapterScanner {
 public:
  // All adapters must be non-empty, made of A/C/G/T only, at most 12 bases and of one length.
  // Simd::None searches with std::string_view::find (the reference the vector search is tested
  // on).
  explicit AdapterScanner(std::vector<std::string> adapters, Simd simd = bestSimd());
  void add(std::string_view sequence);
  // Start positions from `positions` on are listed per hit instead of counted in the tables
  // (only a few long reads reach them); the limit only grows.
  void setDenseLimit(std::size_t positions);
  // Forgets every read, for the next file.
  void reset();
  Verdict verdict() const;
  // Group values (percent) per adapter, for inspection; empty when no read was long enough.
  std::vector<std::vector<double>> groupValues() const;
  std::size_t adapterLength() const { return length_; }

 private:
  // Bit a set: adapter a found; first[a] its 0-based start.
  unsigned findSse2(const unsigned char* s, std::size_t len, std::array<std::size_t, 8>& first) const;
  unsigned findAvx2(const unsigned char* s, std::size_t len, std::array<std::size_t, 8>& first) const;
  unsigned findScalar(std::string_view sequence, std::array<std::size_t, 8>& first) const;
  std::vector<std::string> adapters_;
  Simd simd_;
  // 32 copies of every adapter's first four bases packed 2 bits each (bits 1-2 of the
  // letter, which tell A/C/G/T apart), of its next four bases, and of the masks of the bits its
  // length covers: a start is compared in full only when its packed bases match, which random
  // sequence does once in 65536 starts (a rare branch stays predictable).
  struct alignas(32) Probe {
    std::array<std::uint8_t, 32> code;
    std::array<std::uint8_t, 32> mask;
    std::array<std::uint8_t, 32> nextCode;
    std::array<std::uint8_t, 32> nextMask;
    // Adapters of 8 bases or more: their first and last eight bases as words, so a candidate is
    // confirmed with two loads and compares.
    std::uint64_t head = 0;
    std::uint64_t tail = 0;
  };
  bool matches(const unsigned char* window, std::size_t a) const;
  std::vector<Probe> probes_;
  std::size_t length_ = 0;
  std::size_t longest_ = 0;  // R: longest read so far that was longer than the adapters
  std::uint64_t total_ = 0;
  std::size_t denseLimit_ = SIZE_MAX;
  // hits_[a][j]: reads whose first occurrence of adapter a starts at 0-based j (counted only once
  // some read was longer than the adapters), for j below the dense limit; farHits_[a] the starts
  // at or beyond it, one entry per read.
  std::vector<std::vector<std::uint64_t>> hits_;
  std::vector<std::vector<std::size_t>> farHits_;
};

std::vector<std::string> adapterSequences(int setting, const std::string& custom);

// ---------------------------------------------------------------------------------------------
// Per-tile quality.

class TileTracker {
 public:
  static constexpr std::size_t kNotCounted = SIZE_MAX;
  // Simd::None adds the codes one at a time (the reference the vector code is tested on).
  explicit TileTracker(Simd simd = bestSimd()) : simd_(usableSimd(simd)) {}
  // Returns the slot of the tile the read was counted in, or kNotCounted.
  std::size_t add(std::string_view header, std::string_view quality);
  // Positions from `positions` on are left out of the tables (the caller keeps them as read
  // tails); the limit only grows.
  void setDenseLimit(std::size_t positions) { denseLimit_ = positions; }
  // Counts positions [from, to) of a read counted in `tile` up to `from`.
  void extend(std::size_t tile, const unsigned char* quality, std::size_t from, std::size_t to);
  bool abandoned() const { return abandoned_; }
  // `tails` hold the positions beyond the tables.
  Verdict verdict(const std::vector<ReadTail>& tails = {}) const;
  // Largest absolute deviation of a tile's group mean from the group average (NaN-free only when
  // the module is present).
  double maxDeviation(const std::vector<ReadTail>& tails = {}) const;
  std::size_t tileCount() const { return tiles_.size(); }
  // Forgets every read, for the next file.
  void reset();

 private:
  // Raw quality codes per position: 32-bit working sums (four times fewer bytes to add than
  // 64-bit ones; 2^24 reads of at most 126 stay below 2^31) folded into the 64-bit totals.
  static constexpr std::uint32_t kFoldEvery = std::uint32_t{1} << 24;
  struct Tile {
    std::vector<std::uint32_t> recent;
    std::vector<std::uint64_t> sums;
    std::vector<std::uint64_t> lengths;  // reads per length: a read observes positions < length
    std::uint32_t sinceFold = 0;
  };
  static void fold(Tile& tile);
  static bool parseTile(std::string_view field, std::int32_t& tile);
  bool chooseField(std::string_view header);
  Simd simd_;
  std::uint64_t numbered_ = 0;
  std::uint64_t used_ = 0;
  std::size_t fieldIndex_ = 0;
  bool fieldChosen_ = false;
  bool abandoned_ = false;
  unsigned minCode_ = 255;
  std::size_t longest_ = 0;
  std::size_t denseLimit_ = SIZE_MAX;
  std::unordered_map<std::int32_t, std::size_t> index_;
  std::vector<Tile> tiles_;
  std::int32_t lastTile_ = 0;
  std::size_t lastIndex_ = SIZE_MAX;
};

constexpr std::size_t kMaxTiles = 2500;

// ---------------------------------------------------------------------------------------------
// Quality helpers

// Phred offset from the lowest quality character code of the file.
inline unsigned phredOffset(unsigned minCode) { return minCode < 64 ? 33 : 64; }

// Median of a histogram over raw codes (index = code), in Phred values; the mean of the two middle
// values for an even pool.
double histogramMedian(const std::vector<std::uint64_t>& codeCounts, unsigned offset);

}  // namespace genostat::metrics_detail
