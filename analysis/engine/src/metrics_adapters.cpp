// Adapter content: where along the reads each adapter first appears.
#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "metrics_internal.h"
#include "simd.h"

namespace genostat::metrics_detail {

namespace {

// A/C/G/T -> 0..3, everything else 4 (not allowed in an adapter).
struct BaseCodes {
  std::array<std::uint8_t, 256> code{};
  BaseCodes() {
    code.fill(4);
    code['A'] = 0;
    code['C'] = 1;
    code['G'] = 2;
    code['T'] = 3;
  }
};
const BaseCodes kBases;

}  // namespace

std::vector<std::string> adapterSequences(int setting, const std::string& custom) {
  switch (setting) {
    case 1: return {"AGATCGGAAGAG"};
    case 2: return {"CTGTCTCTTATA"};
    case 3: return {custom.substr(0, 12)};
    default:
      return {"AGATCGGAAGAG", "TGGAATTCTCGG", "GATCGTCGGACT",
              "CTGTCTCTTATA", "AAAAAAAAAAAA", "GGGGGGGGGGGG"};
  }
}

AdapterScanner::AdapterScanner(std::vector<std::string> adapters, Simd simd)
    : adapters_(std::move(adapters)),
      simd_(usableSimd(simd)),
      hits_(adapters_.size()),
      farHits_(adapters_.size()) {
  if (adapters_.empty() || adapters_.size() > 8) throw std::invalid_argument("adapter list size");
  length_ = adapters_.front().size();
  if (length_ == 0 || length_ > 12) throw std::invalid_argument("adapter length");
  for (std::size_t a = 0; a < adapters_.size(); ++a) {
    const std::string& s = adapters_[a];
    if (s.size() != length_) throw std::invalid_argument("adapters of different lengths");
    for (char c : s) {
      if (kBases.code[static_cast<unsigned char>(c)] > 3) throw std::invalid_argument("adapter base");
    }
    unsigned code[2] = {0, 0};
    unsigned mask[2] = {0, 0};
    for (std::size_t k = 0; k < 8 && k < length_; ++k) {
      code[k / 4] |= ((static_cast<unsigned char>(s[k]) >> 1) & 3u) << (2 * (k % 4));
      mask[k / 4] |= 3u << (2 * (k % 4));
    }
    Probe probe;
    probe.code.fill(static_cast<std::uint8_t>(code[0]));
    probe.mask.fill(static_cast<std::uint8_t>(mask[0]));
    probe.nextCode.fill(static_cast<std::uint8_t>(code[1]));
    probe.nextMask.fill(static_cast<std::uint8_t>(mask[1]));
    if (length_ >= 8) {
      std::memcpy(&probe.head, s.data(), 8);
      std::memcpy(&probe.tail, s.data() + length_ - 8, 8);
    }
    probes_.push_back(probe);
    hits_[a].assign(1, 0);
  }
}

inline bool AdapterScanner::matches(const unsigned char* window, std::size_t a) const {
  if (length_ < 8) return std::memcmp(window, adapters_[a].data(), length_) == 0;
  std::uint64_t head;
  std::uint64_t tail;
  std::memcpy(&head, window, 8);
  std::memcpy(&tail, window + length_ - 8, 8);
  return head == probes_[a].head && tail == probes_[a].tail;
}

unsigned AdapterScanner::findScalar(std::string_view sequence,
                                    std::array<std::size_t, 8>& first) const {
  unsigned found = 0;
  for (std::size_t a = 0; a < adapters_.size(); ++a) {
    const std::size_t at = sequence.find(adapters_[a]);
    if (at != std::string_view::npos) {
      found |= 1u << a;
      first[a] = at;
    }
  }
  return found;
}

#ifdef GENOSTAT_SSE2
unsigned AdapterScanner::findSse2(const unsigned char* s, std::size_t len,
                                    std::array<std::size_t, 8>& first) const {
  const std::size_t count = adapters_.size();
  const unsigned all = (1u << count) - 1;
  const std::size_t lastStart = len - length_;
  // Bytes a block reads past its first start: the packed codes look at eight bases.
  const std::size_t span = length_ > 8 ? length_ : 8;
  const __m128i three = _mm_set1_epi8(3);
  const __m128i twelve = _mm_set1_epi8(12);
  const __m128i fortyEight = _mm_set1_epi8(48);
  const __m128i top = _mm_set1_epi8(static_cast<char>(192));
  unsigned found = 0;
  // Starts [start, start + 16) from `text`, which holds the read from `start` on; lowest start
  // first, so an adapter's first hit is its first occurrence. The 16-bit shifts move no set bit
  // across a byte that the masks keep.
  auto scan = [&](const unsigned char* text, std::size_t start) {
    const auto pack = [&](const unsigned char* from) {
      const auto at = [from](std::size_t k) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + k));
      };
      return _mm_or_si128(_mm_or_si128(_mm_and_si128(_mm_srli_epi16(at(0), 1), three),
                                       _mm_and_si128(_mm_slli_epi16(at(1), 1), twelve)),
                          _mm_or_si128(_mm_and_si128(_mm_slli_epi16(at(2), 3), fortyEight),
                                       _mm_and_si128(_mm_slli_epi16(at(3), 5), top)));
    };
    const __m128i packed = pack(text);
    const __m128i packedNext = pack(text + 4);
    // Starts past the last one (padding reads as A) are dropped before any compare.
    const std::size_t starts = lastStart - start + 1;
    const unsigned valid = starts >= 16 ? 0xffffu : (1u << starts) - 1;
    std::array<unsigned, 8> candidates;
    unsigned any = 0;
    for (std::size_t a = 0; a < count; ++a) {
      const Probe& p = probes_[a];
      const auto probe = [](const std::array<std::uint8_t, 32>& bytes) {
        return _mm_load_si128(reinterpret_cast<const __m128i*>(bytes.data()));
      };
      const __m128i hit =
          _mm_and_si128(_mm_cmpeq_epi8(_mm_and_si128(packed, probe(p.mask)), probe(p.code)),
                        _mm_cmpeq_epi8(_mm_and_si128(packedNext, probe(p.nextMask)),
                                       probe(p.nextCode)));
      candidates[a] = valid & static_cast<unsigned>(_mm_movemask_epi8(hit));
      any |= candidates[a];
    }
    if (any == 0) return;
    for (std::size_t a = 0; a < count; ++a) {
      if (found & (1u << a)) continue;
      for (unsigned c = candidates[a]; c != 0; c &= c - 1) {
        const unsigned b = static_cast<unsigned>(__builtin_ctz(c));
        if (matches(text + b, a)) {
          found |= 1u << a;
          first[a] = start + b;
          break;
        }
      }
    }
  };
  std::size_t i = 0;
  // Every byte a block reads (up to i + 15 + span - 1) must lie inside the read.
  for (; i + 15 + span <= len && found != all; i += 16) scan(s + i, i);
  // The remaining starts (more than 16 when the adapters are shorter than eight bases), on a copy
  // padded with zero bytes: no adapter holds one, so windows reaching past the read's end never
  // match.
  for (; i <= lastStart && found != all; i += 16) {
    alignas(16) unsigned char tail[48] = {};
    std::memcpy(tail, s + i, len - i);
    scan(tail, i);
  }
  return found;
}
#else
unsigned AdapterScanner::findSse2(const unsigned char* s, std::size_t len,
                                  std::array<std::size_t, 8>& first) const {
  return findScalar(std::string_view(reinterpret_cast<const char*>(s), len), first);
}
#endif

#ifdef GENOSTAT_AVX2
// The SSE2 search at twice the width; no lambdas, which would not inherit the target.
__attribute__((target("avx2"))) unsigned AdapterScanner::findAvx2(
    const unsigned char* s, std::size_t len, std::array<std::size_t, 8>& first) const {
  const std::size_t count = adapters_.size();
  const unsigned all = (1u << count) - 1;
  const std::size_t lastStart = len - length_;
  const std::size_t span = length_ > 8 ? length_ : 8;
  const __m256i three = _mm256_set1_epi8(3);
  const __m256i twelve = _mm256_set1_epi8(12);
  const __m256i fortyEight = _mm256_set1_epi8(48);
  const __m256i top = _mm256_set1_epi8(static_cast<char>(192));
  unsigned found = 0;
  alignas(32) unsigned char tail[96];
  for (std::size_t i = 0; i <= lastStart && found != all; i += 32) {
    // Block of starts [base, base + 32) read from `text`; `valid` keeps the starts from i on that
    // are not past the last one.
    std::size_t base = i;
    const unsigned char* text = s + i;
    unsigned valid = ~0u;
    if (i + 31 + span > len) {
      if (span == length_ && len >= 31 + span) {
        // The last block read in place, ending at the last start and overlapping the one before
        // (i - base <= 31); starts before i were seen.
        base = len - 31 - span;
        text = s + base;
        valid = ~0u << (i - base);
      } else {
        // A short read, or adapters shorter than the eight bases packed: a copy padded with zero
        // bytes, which read as A; starts past the last one are dropped.
        std::memset(tail, 0, sizeof tail);
        std::memcpy(tail, s + i, len - i);
        text = tail;
        const std::size_t starts = lastStart - i + 1;
        valid = starts >= 32 ? ~0u : (1u << starts) - 1;
      }
    }
    __m256i packedAt[2];
    for (std::size_t half = 0; half < 2; ++half) {
      const unsigned char* from = text + 4 * half;
      packedAt[half] = _mm256_or_si256(
          _mm256_or_si256(
              _mm256_and_si256(
                  _mm256_srli_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)), 1),
                  three),
              _mm256_and_si256(
                  _mm256_slli_epi16(
                      _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + 1)), 1),
                  twelve)),
          _mm256_or_si256(
              _mm256_and_si256(
                  _mm256_slli_epi16(
                      _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + 2)), 3),
                  fortyEight),
              _mm256_and_si256(
                  _mm256_slli_epi16(
                      _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + 3)), 5),
                  top)));
    }
    std::array<unsigned, 8> candidates;
    unsigned any = 0;
    for (std::size_t a = 0; a < count; ++a) {
      const Probe& p = probes_[a];
      const __m256i mask = _mm256_load_si256(reinterpret_cast<const __m256i*>(p.mask.data()));
      const __m256i code = _mm256_load_si256(reinterpret_cast<const __m256i*>(p.code.data()));
      const __m256i nextMask =
          _mm256_load_si256(reinterpret_cast<const __m256i*>(p.nextMask.data()));
      const __m256i nextCode =
          _mm256_load_si256(reinterpret_cast<const __m256i*>(p.nextCode.data()));
      const __m256i hit = _mm256_and_si256(
          _mm256_cmpeq_epi8(_mm256_and_si256(packedAt[0], mask), code),
          _mm256_cmpeq_epi8(_mm256_and_si256(packedAt[1], nextMask), nextCode));
      candidates[a] = valid & static_cast<unsigned>(_mm256_movemask_epi8(hit));
      any |= candidates[a];
    }
    if (any == 0) continue;
    for (std::size_t a = 0; a < count; ++a) {
      if (found & (1u << a)) continue;
      for (unsigned c = candidates[a]; c != 0; c &= c - 1) {
        const unsigned b = static_cast<unsigned>(__builtin_ctz(c));
        if (matches(text + b, a)) {
          found |= 1u << a;
          first[a] = base + b;
          break;
        }
      }
    }
  }
  return found;
}
#else
unsigned AdapterScanner::findAvx2(const unsigned char* s, std::size_t len,
                                  std::array<std::size_t, 8>& first) const {
  return findSse2(s, len, first);
}
#endif

void AdapterScanner::add(std::string_view sequence) {
  ++total_;
  const std::size_t len = sequence.size();
  if (len > longest_ && len > length_) {
    longest_ = len;
    for (auto& h : hits_) h.resize(std::min(longest_ - length_ + 1, denseLimit_), 0);
  }
  if (longest_ == 0 || len < length_) return;  // nothing is counted until some read is long enough
  std::array<std::size_t, 8> first{};
  const auto* s = reinterpret_cast<const unsigned char*>(sequence.data());
  unsigned found = 0;
  switch (simd_) {
    case Simd::Avx2: found = findAvx2(s, len, first); break;
    case Simd::Sse2: found = findSse2(s, len, first); break;
    case Simd::None: found = findScalar(sequence, first); break;
  }
  for (std::size_t a = 0; a < adapters_.size(); ++a) {
    if (!(found & (1u << a))) continue;
    if (first[a] < hits_[a].size()) {
      ++hits_[a][first[a]];
    } else {
      farHits_[a].push_back(first[a]);
    }
  }
}

void AdapterScanner::setDenseLimit(std::size_t positions) {
  denseLimit_ = positions;
  for (std::size_t a = 0; a < hits_.size(); ++a) {
    if (longest_ > 0) hits_[a].resize(std::min(longest_ - length_ + 1, denseLimit_), 0);
    auto& far = farHits_[a];
    const auto stays = std::partition(far.begin(), far.end(),
                                      [&](std::size_t j) { return j >= hits_[a].size(); });
    for (auto it = stays; it != far.end(); ++it) ++hits_[a][*it];
    far.erase(stays, far.end());
  }
}

void AdapterScanner::reset() {
  for (auto& h : hits_) h.assign(1, 0);
  for (auto& far : farHits_) far.clear();
  longest_ = 0;
  total_ = 0;
  denseLimit_ = SIZE_MAX;
}

std::vector<std::vector<double>> AdapterScanner::groupValues() const {
  std::vector<std::vector<double>> values;
  if (longest_ == 0) return values;
  const std::size_t positions = longest_ - length_ + 1;
  const auto groups = positionGroups(positions);
  const double total = static_cast<double>(total_);
  for (std::size_t a = 0; a < hits_.size(); ++a) {
    // Entry e counts the reads whose first hit starts at or before e. Every adapter of a set has
    // the same length, so a hit always lies within the entries that existed when it was counted
    // and a plain running sum reproduces the growing-array bookkeeping.
    const std::vector<std::uint64_t>& firstHits = hits_[a];
    std::vector<std::size_t> far = farHits_[a];
    std::sort(far.begin(), far.end());
    std::size_t nextFar = 0;
    std::uint64_t running = 0;
    double percent = 0;  // of `running`, worked out again only when it changes (rarely, far out)
    std::vector<double> perGroup;
    for (const PositionGroup& g : groups) {
      double sum = 0;
      for (std::size_t pos = g.first; pos <= g.last; ++pos) {
        const std::size_t e = pos - 1;
        const std::uint64_t before = running;
        if (e < firstHits.size()) running += firstHits[e];
        for (; nextFar < far.size() && far[nextFar] == e; ++nextFar) ++running;
        if (running != before) percent = (100 * static_cast<double>(running)) / total;
        sum += percent;
      }
      perGroup.push_back(sum / static_cast<double>(g.last - g.first + 1));
    }
    values.push_back(std::move(perGroup));
  }
  return values;
}

Verdict AdapterScanner::verdict() const {
  if (longest_ == 0) return Verdict::Warn;  // no read long enough to hold an adapter
  Verdict v = Verdict::Pass;
  for (const auto& perGroup : groupValues()) {
    for (double value : perGroup) {
      if (value > 10) return Verdict::Fail;
      if (value > 5) v = Verdict::Warn;
    }
  }
  return v;
}

}  // namespace genostat::metrics_detail
