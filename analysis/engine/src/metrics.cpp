// SampleMetrics: one pass over a file's records fills flat per-position counters and a few small
// tables; finish() turns them into the 27 fields of the file's CSV row.
//
// The per-position counters (up to 1.3 KB a position, mostly the quality histogram's 64-bit
// totals, which are only made when 65535 reads have been counted) hold the
// first MetricsOptions::densePositions positions, and beyond them only the positions that at least
// 101 reads reach. Per-base quality uses a position's percentiles only where more than 100 reads
// cover it, and coverage never grows along a read, so beyond that point at most 100 reads remain:
// their tails (bases and qualities) are kept as they are, moved into the counters when more reads
// reach their positions, and counted from the text at the end. Memory then follows the
// 101st-longest read, not the longest.
#include "genostat/metrics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <queue>
#include <unordered_map>

#include "metrics_internal.h"

namespace genostat {

using namespace metrics_detail;

namespace {

// Quality characters are printable ASCII '!'..'~' (checked by the reader): 94 codes.
constexpr unsigned kLowestCode = 33;
constexpr std::size_t kQualCodes = QualityCounts::kCodes;  // '!'..'~'
constexpr std::size_t kCodeRange = 128;

// Per-base quality needs a position's histogram only where more than 100 reads cover it: the
// counters reach as far as the 101st-longest read.
constexpr std::size_t kCoveringReads = 101;

const unsigned char* bytes(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

const char* adapterKeyword(AdapterSetting s) {
  switch (s) {
    case AdapterSetting::Illumina: return "ILLUMINA";
    case AdapterSetting::Nextera: return "NEXTERA";
    case AdapterSetting::Custom: return "CUSTOM";
    case AdapterSetting::None: break;
  }
  return "NONE";
}

Verdict worse(Verdict a, Verdict b) { return static_cast<int>(a) > static_cast<int>(b) ? a : b; }

}  // namespace

const std::vector<std::string>& csvColumnNames() {
  static const std::vector<std::string> names = {
      "Sample",
      "Adapter_Type",
      "Total_Sequences",
      "Total_Bases",
      "Sequence_length",
      "GC",
      "total_deduplicated_percentage",
      "avg_sequence_length",
      "median_sequence_length",
      "basic_statistics",
      "per_base_sequence_quality",
      "per_sequence_quality_scores",
      "per_base_sequence_content",
      "per_sequence_gc_content",
      "per_base_n_content",
      "sequence_length_distribution",
      "sequence_duplication_levels",
      "overrepresented_sequences",
      "adapter_content",
      "per_tile_sequence_quality",
      "qc_score",
      "median_phred_first_10bp",
      "median_phred_last_10bp",
      "mean_phred_all_reads",
      "low_complexity_percentage",
      "unexpected_bases_percentage",
      "overrepresented_seq_count",
  };
  return names;
}

struct SampleMetrics::Impl {
  explicit Impl(const MetricsOptions& options)
      : adapterSetting(options.adapter),
        // Ten at least: the first-ten pool is read from the counters.
        minDense(std::max<std::size_t>(options.densePositions, 10)),
        adapters(adapterSequences(static_cast<int>(options.adapter), options.customSequence)) {
    adapters.setDenseLimit(denseLimit);
    tiles.setDenseLimit(denseLimit);
  }

  AdapterSetting adapterSetting;
  std::size_t minDense;

  std::uint64_t reads = 0;
  std::uint64_t totalBases = 0;
  std::size_t minLength = std::numeric_limits<std::size_t>::max();
  std::size_t maxLength = 0;
  std::size_t maxQualityLength = 0;
  std::vector<std::uint64_t> lengthCounts;  // reads up to denseLimit long; the tails hold the rest

  // Positions [0, denseLimit) are counted per position; longer reads keep their tails.
  std::size_t denseLimit = minDense;
  // Lengths of the (at most 101) longest reads beyond minDense; when there are 101, the shortest
  // of them is the dense limit.
  std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<>> longest;
  std::vector<ReadTail> tails;

  BaseCounts baseCounts;
  QualityCounts qualityCounts;  // positions up to the dense limit
  std::array<std::uint64_t, kCodeRange> readMeanCodes{};  // per-read (sum of codes) div length
  std::array<std::uint64_t, kCodeRange> lastTenCodes{};
  std::uint64_t lowComplexity = 0;

  std::array<double, 101> gcDistribution{};
  std::unordered_map<std::size_t, GcModel> gcModels;  // kept from file to file
  std::size_t lastGcLength = 0;
  const GcModel* lastGcModel = nullptr;

  DuplicateTable duplicates;
  AdapterScanner adapters;
  TileTracker tiles;

  void add(const FastqRecord& r);
  std::vector<std::string> finish(const std::string& sampleName);
  void reset();

  void noteLongRead(std::size_t length) {
    longest.push(length);
    if (longest.size() > kCoveringReads) longest.pop();
    if (longest.size() == kCoveringReads && longest.top() > denseLimit) {
      raiseDenseLimit(longest.top());
    }
  }

  void raiseDenseLimit(std::size_t limit);

  const GcModel& gcModel(std::size_t length) {
    if (lastGcModel == nullptr || lastGcLength != length) {
      auto it = gcModels.find(length);
      if (it == gcModels.end()) it = gcModels.emplace(length, GcModel(length)).first;
      lastGcModel = &it->second;
      lastGcLength = length;
    }
    return *lastGcModel;
  }
};

// More reads reach the tails' next positions now: those move into the counters, and the reads
// that end there leave the tails.
void SampleMetrics::Impl::raiseDenseLimit(std::size_t limit) {
  for (ReadTail& tail : tails) {
    const std::size_t to = std::min(tail.length, limit);
    const unsigned char* b = tail.bases.data() + (tail.from - tail.start);
    const unsigned char* q = tail.quality.data() + (tail.from - tail.start);
    baseCounts.extend(b, tail.from, to);
    qualityCounts.extend(q, tail.from, to);
    if (tail.tile != ReadTail::kNoTile) tiles.extend(tail.tile, q, tail.from, to);
    tail.from = to;
    if (tail.length == to) {
      if (to >= lengthCounts.size()) lengthCounts.resize(to + 1, 0);
      ++lengthCounts[to];
    }
  }
  tails.erase(std::remove_if(tails.begin(), tails.end(),
                             [limit](const ReadTail& t) { return t.length <= limit; }),
              tails.end());
  denseLimit = limit;
  adapters.setDenseLimit(limit);
  tiles.setDenseLimit(limit);
}

void SampleMetrics::Impl::reset() {
  reads = 0;
  totalBases = 0;
  minLength = std::numeric_limits<std::size_t>::max();
  maxLength = 0;
  maxQualityLength = 0;
  lengthCounts.clear();
  denseLimit = minDense;
  longest = {};
  tails.clear();
  baseCounts.reset();
  qualityCounts.reset();
  readMeanCodes.fill(0);
  lastTenCodes.fill(0);
  lowComplexity = 0;
  gcDistribution.fill(0);
  duplicates.reset();
  adapters.reset();
  tiles.reset();
  adapters.setDenseLimit(denseLimit);
  tiles.setDenseLimit(denseLimit);
}

void SampleMetrics::Impl::add(const FastqRecord& r) {
  ++reads;
  const std::size_t ls = r.sequence.size();
  const std::size_t lq = r.quality.size();
  const auto* s = bytes(r.sequence);
  const auto* q = bytes(r.quality);

  // The duplicate table is larger than the caches: ask for its slot now, use it last.
  const std::string_view key = r.sequence.substr(0, std::min(ls, kKeyLength));
  const std::uint64_t keyHash = DuplicateTable::hash(key);
  duplicates.prefetch(keyHash);

  if (ls > denseLimit) noteLongRead(ls);
  const bool hasTail = ls > denseLimit;
  const std::size_t dense = hasTail ? denseLimit : ls;
  totalBases += ls;
  minLength = std::min(minLength, ls);
  if (ls > maxLength) maxLength = ls;
  if (!hasTail) {
    if (ls >= lengthCounts.size()) lengthCounts.resize(ls + 1, 0);
    ++lengthCounts[ls];
  }

  // Per-position classes, and the G/C count over the part the GC module judges.
  const std::size_t kept = gcKeptLength(ls);
  std::size_t gc = baseCounts.add(s, dense, std::min(kept, dense));
  if (kept > dense) gc += gcCount(s + dense, kept - dense);
  if (kept > 0) gcModel(kept).addTo(gc, gcDistribution);

  // Low complexity: fewer than 30 % of neighbouring base pairs differ.
  if (ls <= 1) {
    ++lowComplexity;
  } else {
    const std::size_t diff = neighbourDifferences(s, ls);
    if (10 * diff < 3 * (ls - 1)) ++lowComplexity;
  }

  adapters.add(r.sequence);

  if (lq > 0) {
    if (lq > maxQualityLength) maxQualityLength = lq;
    qualityCounts.add(q, std::min(lq, denseLimit));
    ++readMeanCodes[byteSum(q, lq) / lq];
    for (std::size_t j = lq > 10 ? lq - 10 : 0; j < lq; ++j) ++lastTenCodes[q[j]];
  }
  const std::size_t tile = tiles.add(r.header, r.quality);
  if (hasTail) {
    ReadTail tail;
    tail.start = tail.from = dense;
    tail.length = ls;
    tail.tile = tile;
    tail.bases.assign(s + dense, s + ls);
    tail.quality.assign(q + std::min(dense, lq), q + lq);
    tails.push_back(std::move(tail));
  }
  duplicates.add(key, keyHash);
}

std::vector<std::string> SampleMetrics::Impl::finish(const std::string& sampleName) {
  const std::vector<std::uint64_t> bases = baseCounts.totals();
  std::vector<std::string> row(27);
  row[0] = sampleName;
  row[1] = adapterKeyword(adapterSetting);
  row[2] = std::to_string(reads);
  row[3] = std::to_string(totalBases);
  if (reads == 0 || minLength == maxLength) {
    row[4] = std::to_string(maxLength);
  } else {
    row[4] = std::to_string(minLength) + "-" + std::to_string(maxLength);
  }

  // Base classes over all positions: the counters', then the tails' per sequence group.
  const std::size_t basePositions = bases.size() / kBaseStride;
  const std::vector<PositionGroup> sequenceGroups = positionGroups(maxLength);
  std::vector<std::array<std::uint64_t, 6>> tailClasses(sequenceGroups.size());
  for (const ReadTail& tail : tails) {
    for (std::size_t g = 0; g < sequenceGroups.size(); ++g) {
      const std::size_t first = std::max(sequenceGroups[g].first - 1, tail.from);
      const std::size_t end = std::min(sequenceGroups[g].last, tail.length);
      if (first < end) {
        addClasses(tail.bases.data() + (first - tail.start), end - first, tailClasses[g]);
      }
    }
  }
  std::array<std::uint64_t, 6> classTotals{};
  for (std::size_t p = 0; p < basePositions; ++p) {
    for (std::size_t k = 0; k < 6; ++k) classTotals[k] += bases[p * kBaseStride + k];
  }
  for (const auto& sums : tailClasses) {
    for (std::size_t k = 0; k < 6; ++k) classTotals[k] += sums[k];
  }
  const std::uint64_t acgt = classTotals[kA] + classTotals[kC] + classTotals[kG] + classTotals[kT];
  row[5] = formatTruncatedPercent(classTotals[kC] + classTotals[kG], acgt);

  // Duplication and overrepresented sequences share the tracked table.
  const double dedup =
      deduplicatedPercentage(duplicates.levels(), duplicates.countAtLimit(), duplicates.totalReads());
  row[6] = formatTwoDecimals(dedup);
  const Overrepresented over = overrepresented(duplicates.counts(), duplicates.totalReads());

  std::vector<std::size_t> tailLengths;
  for (const ReadTail& tail : tails) tailLengths.push_back(tail.length);
  const LengthSummary lengths = summariseLengthBins(lengthBins(lengthCounts, tailLengths));
  if (lengths.present) {
    row[7] = formatTwoDecimals(lengths.mean);
    row[8] = std::to_string(lengths.median);
  }

  // Quality: all accumulators hold raw codes; the offset is known only now. One pass over the
  // positions (the working counters added in as they are read) keeps each position's lower
  // quartile and median as raw codes: codes below the offset are never seen, so walking from the
  // lowest code finds the same values as walking from the offset.
  struct Percentiles {
    bool counted;  // more than 100 observations
    unsigned lowerQuartile;
    unsigned median;
  };
  const std::size_t qualityPositions = qualityCounts.positions();
  std::vector<Percentiles> percentiles(qualityPositions);
  std::array<std::uint64_t, kCodeRange> allCodes{};
  std::vector<std::uint64_t> firstTen(kCodeRange, 0);
  for (std::size_t p = 0; p < qualityPositions; ++p) {
    std::array<std::uint64_t, kQualCodes> h;
    qualityCounts.countsAt(p, h);
    std::uint64_t n = 0;
    for (std::size_t c = 0; c < kQualCodes; ++c) {
      n += h[c];
      allCodes[c + kLowestCode] += h[c];
    }
    if (p < 10) {
      for (std::size_t c = 0; c < kQualCodes; ++c) firstTen[c + kLowestCode] += h[c];
    }
    Percentiles& at = percentiles[p];
    at.counted = n > 100;
    if (!at.counted) continue;
    const std::uint64_t t25 = n * 25 / 100;
    const std::uint64_t t50 = n * 50 / 100;
    std::uint64_t running = 0;
    bool have25 = false;
    for (std::size_t c = 0; c < kQualCodes; ++c) {
      running += h[c];
      if (!have25 && running >= t25) {
        at.lowerQuartile = static_cast<unsigned>(c + kLowestCode);
        have25 = true;
      }
      if (running >= t50) {
        at.median = static_cast<unsigned>(c + kLowestCode);
        break;
      }
    }
  }
  for (const ReadTail& tail : tails) {
    for (std::size_t j = tail.from - tail.start; j < tail.quality.size(); ++j) {
      ++allCodes[tail.quality[j]];
    }
  }
  unsigned minCode = 0;
  std::uint64_t qualityChars = 0;
  std::uint64_t codeSum = 0;
  for (std::size_t c = 0; c < kCodeRange; ++c) {
    if (allCodes[c] == 0) continue;
    if (qualityChars == 0) minCode = static_cast<unsigned>(c);
    qualityChars += allCodes[c];
    codeSum += allCodes[c] * c;
  }
  const unsigned offset = phredOffset(minCode);
  const bool haveQuality = qualityChars > 0;

  std::array<Verdict, 11> verdicts{};
  verdicts[0] = Verdict::Pass;  // basic statistics never warns

  // Per-base quality: lower quartile and median per position, averaged per group over the
  // positions seen more than 100 times (all of them in the counters).
  if (haveQuality) {
    Verdict v = Verdict::Pass;
    for (const PositionGroup& g : positionGroups(maxQualityLength)) {
      std::uint64_t lqSum = 0;
      std::uint64_t medSum = 0;
      std::size_t counted = 0;
      for (std::size_t pos = g.first; pos <= g.last && pos <= qualityPositions; ++pos) {
        const Percentiles& at = percentiles[pos - 1];
        if (!at.counted) continue;
        lqSum += at.lowerQuartile - offset;
        medSum += at.median - offset;
        ++counted;
      }
      if (counted == 0) continue;
      const double lower = static_cast<double>(lqSum) / static_cast<double>(counted);
      const double median = static_cast<double>(medSum) / static_cast<double>(counted);
      if (lower < 5 || median < 20) {
        v = Verdict::Fail;
      } else if (lower < 10 || median < 25) {
        v = worse(v, Verdict::Warn);
      }
    }
    verdicts[1] = v;

    // Per-sequence quality: the lowest most common floored read mean.
    std::size_t mode = 0;
    for (std::size_t c = 1; c < kCodeRange; ++c) {
      if (readMeanCodes[c] > readMeanCodes[mode]) mode = c;
    }
    const long modePhred = static_cast<long>(mode) - static_cast<long>(offset);
    verdicts[2] = modePhred <= 20 ? Verdict::Fail : modePhred <= 27 ? Verdict::Warn : Verdict::Pass;
  }

  // Per-base content and N content, on the same groups of sequence positions.
  {
    Verdict content = Verdict::Pass;
    Verdict nContent = Verdict::Pass;
    for (std::size_t gi = 0; gi < sequenceGroups.size(); ++gi) {
      const PositionGroup& g = sequenceGroups[gi];
      std::array<std::uint64_t, 6> sum = tailClasses[gi];
      for (std::size_t pos = g.first; pos <= g.last && pos <= basePositions; ++pos) {
        for (std::size_t k = 0; k < 6; ++k) sum[k] += bases[(pos - 1) * kBaseStride + k];
      }
      const double known = static_cast<double>(sum[kA] + sum[kC] + sum[kG] + sum[kT]);
      const double pa = (static_cast<double>(sum[kA]) / known) * 100;
      const double pc = (static_cast<double>(sum[kC]) / known) * 100;
      const double pg = (static_cast<double>(sum[kG]) / known) * 100;
      const double pt = (static_cast<double>(sum[kT]) / known) * 100;
      const double gcDiff = std::fabs(pg - pc);
      const double atDiff = std::fabs(pa - pt);
      if (gcDiff > 20 || atDiff > 20) {
        content = Verdict::Fail;
      } else if (gcDiff > 10 || atDiff > 10) {
        content = worse(content, Verdict::Warn);
      }
      std::uint64_t all = 0;
      for (std::uint64_t x : sum) all += x;
      const double pn = (static_cast<double>(sum[kN]) / static_cast<double>(all)) * 100;
      if (pn > 20) {
        nContent = Verdict::Fail;
      } else if (pn > 5) {
        nContent = worse(nContent, Verdict::Warn);
      }
    }
    verdicts[3] = content;
    verdicts[5] = nContent;
  }

  verdicts[4] = gcVerdict(gcDeviation(gcDistribution));

  if (reads > 0 && minLength == 0) {
    verdicts[6] = Verdict::Fail;
  } else if (reads > 0 && minLength != maxLength) {
    verdicts[6] = Verdict::Warn;
  } else {
    verdicts[6] = Verdict::Pass;
  }

  verdicts[7] = dedup < 50 ? Verdict::Fail : dedup < 70 ? Verdict::Warn : Verdict::Pass;
  verdicts[8] = over.verdict;
  verdicts[9] = adapters.verdict();
  verdicts[10] = tiles.verdict(tails);

  double points = 0;
  int present = 0;
  for (std::size_t m = 0; m < verdicts.size(); ++m) {
    row[9 + m] = verdictText(verdicts[m]);
    if (verdicts[m] == Verdict::Absent) continue;
    ++present;
    points += verdicts[m] == Verdict::Pass ? 1.0 : verdicts[m] == Verdict::Warn ? 0.5 : 0.0;
  }
  row[20] = formatTwoDecimals((100.0 * points) / present);

  if (haveQuality) {
    row[21] = formatTwoDecimals(histogramMedian(firstTen, offset));
    std::vector<std::uint64_t> lastTen(lastTenCodes.begin(), lastTenCodes.end());
    row[22] = formatTwoDecimals(histogramMedian(lastTen, offset));
    const std::uint64_t phredSum = codeSum - qualityChars * offset;
    row[23] = formatTwoDecimals(static_cast<double>(phredSum) / static_cast<double>(qualityChars));
  }
  if (reads > 0) {
    row[24] = formatTwoDecimals((100.0 * static_cast<double>(lowComplexity)) / static_cast<double>(reads));
  }
  if (totalBases > 0) {
    row[25] = formatTwoDecimals((100.0 * static_cast<double>(classTotals[kOther])) /
                                static_cast<double>(totalBases));
  }
  row[26] = std::to_string(over.count);
  return row;
}

SampleMetrics::SampleMetrics(const MetricsOptions& options) : impl_(std::make_unique<Impl>(options)) {}
SampleMetrics::~SampleMetrics() = default;
SampleMetrics::SampleMetrics(SampleMetrics&&) noexcept = default;
SampleMetrics& SampleMetrics::operator=(SampleMetrics&&) noexcept = default;

void SampleMetrics::add(const FastqRecord& record) { impl_->add(record); }

std::vector<std::string> SampleMetrics::finish(const std::string& sampleName) {
  return impl_->finish(sampleName);
}

void SampleMetrics::reset() { impl_->reset(); }

}  // namespace genostat
