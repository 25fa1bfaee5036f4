// SampleMetrics: one pass over a file's records fills flat per-position counters and a few small
// tables; finish() turns them into the 27 fields of the file's CSV row.
#include "genostat/metrics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <unordered_map>

#include "metrics_internal.h"

namespace genostat {

using namespace metrics_detail;

namespace {

// Quality characters are printable ASCII '!'..'~' (checked by the reader): 94 codes.
constexpr unsigned kLowestCode = 33;
constexpr std::size_t kQualCodes = 94;   // '!'..'~'
constexpr std::size_t kQualStride = 96;  // padded
constexpr std::size_t kCodeRange = 128;

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
        adapters(adapterSequences(static_cast<int>(options.adapter), options.customSequence)) {}

  AdapterSetting adapterSetting;

  std::uint64_t reads = 0;
  std::uint64_t totalBases = 0;
  std::size_t minLength = std::numeric_limits<std::size_t>::max();
  std::size_t maxLength = 0;
  std::size_t maxQualityLength = 0;
  std::vector<std::uint64_t> lengthCounts;

  BaseCounts baseCounts;
  // Per-position quality codes: 16-bit working copies keep the hot array a quarter of the size
  // (150 positions of quality codes fit the first-level cache); they are folded into the 64-bit
  // totals before any could overflow (each read adds at most 1 to a counter) and at the end.
  std::vector<std::uint16_t> qualityRecent;  // [position * kQualStride + code - 33]
  std::vector<std::uint64_t> quality;
  std::uint64_t readsSinceFold = 0;
  std::array<std::uint64_t, kCodeRange> readMeanCodes{};  // per-read (sum of codes) div length
  std::array<std::uint64_t, kCodeRange> lastTenCodes{};
  std::uint64_t lowComplexity = 0;

  std::array<double, 101> gcDistribution{};
  std::unordered_map<std::size_t, GcModel> gcModels;
  std::size_t lastGcLength = 0;
  const GcModel* lastGcModel = nullptr;

  DuplicateTable duplicates;
  AdapterScanner adapters;
  TileTracker tiles;

  void add(const FastqRecord& r);
  std::vector<std::string> finish(const std::string& sampleName);

  void fold() {
    quality.resize(qualityRecent.size(), 0);
    for (std::size_t i = 0; i < qualityRecent.size(); ++i) quality[i] += qualityRecent[i];
    std::fill(qualityRecent.begin(), qualityRecent.end(), std::uint16_t{0});
    readsSinceFold = 0;
  }

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

void SampleMetrics::Impl::add(const FastqRecord& r) {
  if (++readsSinceFold == std::numeric_limits<std::uint16_t>::max()) fold();
  ++reads;
  const std::size_t ls = r.sequence.size();
  const std::size_t lq = r.quality.size();
  const auto* s = reinterpret_cast<const unsigned char*>(r.sequence.data());
  const auto* q = reinterpret_cast<const unsigned char*>(r.quality.data());

  // The duplicate table is larger than the caches: ask for its slot now, use it last.
  const std::string_view key = r.sequence.substr(0, std::min(ls, kKeyLength));
  const std::uint64_t keyHash = DuplicateTable::hash(key);
  duplicates.prefetch(keyHash);

  totalBases += ls;
  minLength = std::min(minLength, ls);
  if (ls > maxLength) maxLength = ls;
  if (ls >= lengthCounts.size()) lengthCounts.resize(ls + 1, 0);
  ++lengthCounts[ls];

  // Per-position classes, and the G/C count over the part the GC module judges.
  const std::size_t kept = gcKeptLength(ls);
  const std::size_t gc = baseCounts.add(s, ls, kept);
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
    if (lq > maxQualityLength) {
      maxQualityLength = lq;
      qualityRecent.resize(lq * kQualStride, 0);
    }
    std::uint16_t* h = qualityRecent.data();
    auto slot = [](unsigned char code) { return std::size_t{code} - kLowestCode; };
    std::size_t p = 0;
    for (; p + 4 <= lq; p += 4, h += 4 * kQualStride) {
      ++h[slot(q[p])];
      ++h[kQualStride + slot(q[p + 1])];
      ++h[2 * kQualStride + slot(q[p + 2])];
      ++h[3 * kQualStride + slot(q[p + 3])];
    }
    for (; p < lq; ++p, h += kQualStride) ++h[slot(q[p])];
    ++readMeanCodes[byteSum(q, lq) / lq];
    for (std::size_t j = lq > 10 ? lq - 10 : 0; j < lq; ++j) ++lastTenCodes[q[j]];
  }
  tiles.add(r.header, r.quality);
  duplicates.add(key, keyHash);
}

std::vector<std::string> SampleMetrics::Impl::finish(const std::string& sampleName) {
  fold();
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

  // Base classes over all positions.
  std::array<std::uint64_t, 6> classTotals{};
  for (std::size_t p = 0; p < maxLength; ++p) {
    for (std::size_t k = 0; k < 6; ++k) classTotals[k] += bases[p * kBaseStride + k];
  }
  const std::uint64_t acgt = classTotals[kA] + classTotals[kC] + classTotals[kG] + classTotals[kT];
  row[5] = formatTruncatedPercent(classTotals[kC] + classTotals[kG], acgt);

  // Duplication and overrepresented sequences share the tracked table.
  const double dedup =
      deduplicatedPercentage(duplicates.levels(), duplicates.countAtLimit(), duplicates.totalReads());
  row[6] = formatTwoDecimals(dedup);
  const Overrepresented over = overrepresented(duplicates.counts(), duplicates.totalReads());

  const LengthSummary lengths = summariseLengthBins(lengthBins(lengthCounts));
  if (lengths.present) {
    row[7] = formatTwoDecimals(lengths.mean);
    row[8] = std::to_string(lengths.median);
  }

  // Quality: all accumulators hold raw codes; the offset is known only now.
  std::vector<std::uint64_t> allCodes(kCodeRange, 0);
  std::vector<std::uint64_t> firstTen(kCodeRange, 0);
  for (std::size_t p = 0; p < maxQualityLength; ++p) {
    for (std::size_t c = 0; c < kQualCodes; ++c) {
      const std::uint64_t n = quality[p * kQualStride + c];
      allCodes[c + kLowestCode] += n;
      if (p < 10) firstTen[c + kLowestCode] += n;
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
  // positions seen more than 100 times.
  if (haveQuality) {
    Verdict v = Verdict::Pass;
    for (const PositionGroup& g : positionGroups(maxQualityLength)) {
      std::uint64_t lqSum = 0;
      std::uint64_t medSum = 0;
      std::size_t counted = 0;
      for (std::size_t pos = g.first; pos <= g.last; ++pos) {
        const std::uint64_t* h = &quality[(pos - 1) * kQualStride];
        std::uint64_t n = 0;
        for (std::size_t c = 0; c < kQualCodes; ++c) n += h[c];
        if (n <= 100) continue;
        const std::uint64_t t25 = n * 25 / 100;
        const std::uint64_t t50 = n * 50 / 100;
        std::uint64_t running = 0;
        bool have25 = false;
        for (std::size_t code = offset; code < kCodeRange; ++code) {
          if (code >= kLowestCode && code - kLowestCode < kQualCodes) running += h[code - kLowestCode];
          if (!have25 && running >= t25) {
            lqSum += code - offset;
            have25 = true;
          }
          if (running >= t50) {
            medSum += code - offset;
            break;
          }
        }
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
    for (const PositionGroup& g : positionGroups(maxLength)) {
      std::array<std::uint64_t, 6> sum{};
      for (std::size_t pos = g.first; pos <= g.last; ++pos) {
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
  verdicts[10] = tiles.verdict();

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

}  // namespace genostat
