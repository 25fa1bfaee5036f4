// Per-tile quality: tile numbers from Illumina-style headers on a sample of the reads.
#include <algorithm>
#include <cmath>
#include <limits>

#include "metrics_internal.h"
#include "simd.h"

namespace genostat::metrics_detail {

namespace {

// Each adds codes[0, size) to sums[0, size) and returns the lowest code (255 for none).
unsigned addCodesScalar(std::uint32_t* sums, const unsigned char* codes, std::size_t size) {
  unsigned low = 255;
  for (std::size_t i = 0; i < size; ++i) {
    sums[i] += codes[i];
    low = codes[i] < low ? codes[i] : low;
  }
  return low;
}

#ifdef GENOSTAT_SSE2
unsigned lowestByte(__m128i v) {
  v = _mm_min_epu8(v, _mm_srli_si128(v, 8));
  v = _mm_min_epu8(v, _mm_srli_si128(v, 4));
  v = _mm_min_epu8(v, _mm_srli_si128(v, 2));
  v = _mm_min_epu8(v, _mm_srli_si128(v, 1));
  return static_cast<unsigned>(_mm_cvtsi128_si32(v)) & 0xffu;
}

unsigned addCodesSse2(std::uint32_t* sums, const unsigned char* codes, std::size_t size) {
  const __m128i zero = _mm_setzero_si128();
  __m128i lowest = _mm_set1_epi8(static_cast<char>(255));
  std::size_t i = 0;
  for (; i + 16 <= size; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(codes + i));
    lowest = _mm_min_epu8(lowest, v);
    const __m128i lo = _mm_unpacklo_epi8(v, zero);
    const __m128i hi = _mm_unpackhi_epi8(v, zero);
    auto* at = reinterpret_cast<__m128i*>(sums + i);
    _mm_storeu_si128(at, _mm_add_epi32(_mm_loadu_si128(at), _mm_unpacklo_epi16(lo, zero)));
    _mm_storeu_si128(at + 1, _mm_add_epi32(_mm_loadu_si128(at + 1), _mm_unpackhi_epi16(lo, zero)));
    _mm_storeu_si128(at + 2, _mm_add_epi32(_mm_loadu_si128(at + 2), _mm_unpacklo_epi16(hi, zero)));
    _mm_storeu_si128(at + 3, _mm_add_epi32(_mm_loadu_si128(at + 3), _mm_unpackhi_epi16(hi, zero)));
  }
  const unsigned low = addCodesScalar(sums + i, codes + i, size - i);
  const unsigned vectorLow = lowestByte(lowest);
  return low < vectorLow ? low : vectorLow;
}
#else
unsigned addCodesSse2(std::uint32_t* sums, const unsigned char* codes, std::size_t size) {
  return addCodesScalar(sums, codes, size);
}
#endif

#ifdef GENOSTAT_AVX2
// Eight codes widened to 32 bits a step; no lambdas, which would not inherit the target.
__attribute__((target("avx2"))) inline void addEight(std::uint32_t* sums,
                                                      const unsigned char* codes) {
  const __m256i wide =
      _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(codes)));
  auto* at = reinterpret_cast<__m256i*>(sums);
  _mm256_storeu_si256(at, _mm256_add_epi32(_mm256_loadu_si256(at), wide));
}

__attribute__((target("avx2"))) unsigned addCodesAvx2(std::uint32_t* sums,
                                                      const unsigned char* codes,
                                                      std::size_t size) {
  __m256i lowest = _mm256_set1_epi8(static_cast<char>(255));
  std::size_t i = 0;
  for (; i + 32 <= size; i += 32) {
    lowest = _mm256_min_epu8(lowest,
                             _mm256_loadu_si256(reinterpret_cast<const __m256i*>(codes + i)));
    addEight(sums + i, codes + i);
    addEight(sums + i + 8, codes + i + 8);
    addEight(sums + i + 16, codes + i + 16);
    addEight(sums + i + 24, codes + i + 24);
  }
  __m128i halves =
      _mm_min_epu8(_mm256_castsi256_si128(lowest), _mm256_extracti128_si256(lowest, 1));
  // Then eight at a time, the upper half of each load set to 255 so that it never wins the min.
  const __m128i upperOnes = _mm_set_epi64x(-1, 0);
  for (; i + 8 <= size; i += 8) {
    const __m128i eight = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(codes + i));
    halves = _mm_min_epu8(halves, _mm_or_si128(eight, upperOnes));
    addEight(sums + i, codes + i);
  }
  const unsigned vectorLow = lowestByte(halves);
  const unsigned low = addCodesScalar(sums + i, codes + i, size - i);
  return low < vectorLow ? low : vectorLow;
}
#else
unsigned addCodesAvx2(std::uint32_t* sums, const unsigned char* codes, std::size_t size) {
  return addCodesSse2(sums, codes, size);
}
#endif

}  // namespace

bool TileTracker::parseTile(std::string_view field, std::int32_t& tile) {
  std::size_t i = 0;
  bool negative = false;
  if (i < field.size() && (field[i] == '+' || field[i] == '-')) {
    negative = field[i] == '-';
    ++i;
  }
  if (i == field.size()) return false;
  std::int64_t value = 0;
  for (; i < field.size(); ++i) {
    const char c = field[i];
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
    if (value > std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1) return false;
  }
  if (negative) value = -value;
  if (value > std::numeric_limits<std::int32_t>::max()) return false;
  tile = static_cast<std::int32_t>(value);
  return true;
}

bool TileTracker::chooseField(std::string_view header) {
  // Fields split at ':', trailing empty fields dropped: field 5 of seven or more, else field 3 of
  // five or more.
  std::size_t fieldCount = 0;
  std::size_t lastNonEmpty = 0;  // number of fields up to the last non-empty one
  std::size_t start = 0;
  for (std::size_t i = 0; i <= header.size(); ++i) {
    if (i == header.size() || header[i] == ':') {
      ++fieldCount;
      if (i > start) lastNonEmpty = fieldCount;
      start = i + 1;
    }
  }
  if (lastNonEmpty >= 7) {
    fieldIndex_ = 4;
  } else if (lastNonEmpty >= 5) {
    fieldIndex_ = 2;
  } else {
    return false;
  }
  fieldChosen_ = true;
  return true;
}

std::size_t TileTracker::add(std::string_view header, std::string_view quality) {
  if (abandoned_ || quality.empty()) return kNotCounted;
  ++numbered_;
  // Every read up to 10 000, then every tenth: the sample keeps the work small on big files.
  if (numbered_ > 10000 && numbered_ % 10 != 0) return kNotCounted;

  if (!fieldChosen_ && !chooseField(header)) {
    abandoned_ = true;
    return kNotCounted;
  }
  // The tile field lies between the fieldIndex_-th ':' and the next. Fields after it do not
  // matter: when it is there and a number, it is itself the last non-empty field or before it.
  std::size_t colons = 0;
  std::size_t start = 0;
  std::size_t end = header.size();
  bool ended = false;
  const auto colonAt = [&](std::size_t at) {
    if (colons == fieldIndex_) {
      end = at;
      ended = true;
    } else if (++colons == fieldIndex_) {
      start = at + 1;
    }
  };
  std::size_t i = 0;
#ifdef GENOSTAT_SSE2
  const __m128i colon = _mm_set1_epi8(':');
  for (; i + 16 <= header.size() && !ended; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(header.data() + i));
    auto found = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, colon)));
    for (; found != 0 && !ended; found &= found - 1) {
      colonAt(i + static_cast<unsigned>(__builtin_ctz(found)));
    }
  }
#endif
  for (; i < header.size() && !ended; ++i) {
    if (header[i] == ':') colonAt(i);
  }
  std::int32_t tile = 0;
  if (colons < fieldIndex_ || !parseTile(header.substr(start, end - start), tile)) {
    abandoned_ = true;
    return kNotCounted;
  }

  std::size_t index;
  if (lastIndex_ != SIZE_MAX && tile == lastTile_) {
    index = lastIndex_;
  } else {
    auto it = index_.find(tile);
    if (it == index_.end()) {
      if (tiles_.size() > kMaxTiles) {
        abandoned_ = true;
        return kNotCounted;
      }
      it = index_.emplace(tile, tiles_.size()).first;
      tiles_.emplace_back();
    }
    index = it->second;
    lastTile_ = tile;
    lastIndex_ = index;
  }

  ++used_;
  const std::size_t n = quality.size();
  if (n > longest_) longest_ = n;
  const std::size_t counted = std::min(n, denseLimit_);
  Tile& t = tiles_[index];
  if (t.sums.size() < counted) {
    t.sums.resize(counted, 0);
    t.recent.resize(counted, 0);
  }
  if (t.lengths.size() <= counted) t.lengths.resize(counted + 1, 0);
  ++t.lengths[counted];
  if (++t.sinceFold == kFoldEvery) fold(t);
  const auto* q = reinterpret_cast<const unsigned char*>(quality.data());
  unsigned low = 255;
  switch (simd_) {
    case Simd::Avx2: low = addCodesAvx2(t.recent.data(), q, counted); break;
    case Simd::Sse2: low = addCodesSse2(t.recent.data(), q, counted); break;
    case Simd::None: low = addCodesScalar(t.recent.data(), q, counted); break;
  }
  for (std::size_t k = counted; k < n; ++k) low = q[k] < low ? q[k] : low;
  if (low < minCode_) minCode_ = low;
  return index;
}

void TileTracker::fold(Tile& tile) {
  for (std::size_t p = 0; p < tile.recent.size(); ++p) tile.sums[p] += tile.recent[p];
  std::fill(tile.recent.begin(), tile.recent.end(), 0u);
  tile.sinceFold = 0;
}

void TileTracker::extend(std::size_t tile, const unsigned char* quality, std::size_t from,
                         std::size_t to) {
  Tile& t = tiles_[tile];
  if (t.sums.size() < to) {
    t.sums.resize(to, 0);
    t.recent.resize(to, 0);
  }
  if (t.lengths.size() <= to) t.lengths.resize(to + 1, 0);
  --t.lengths[from];
  ++t.lengths[to];
  for (std::size_t p = from; p < to; ++p) t.sums[p] += quality[p - from];
}

void TileTracker::reset() { *this = TileTracker(simd_); }

double TileTracker::maxDeviation(const std::vector<ReadTail>& tails) const {
  const unsigned offset = phredOffset(minCode_);
  const auto groups = positionGroups(longest_);
  const double tileCount = static_cast<double>(tiles_.size());
  double worst = 0;
  std::vector<double> groupMean(tiles_.size());
  // counts[t][p]: observations of position p (0-based) in tile t, i.e. its reads longer than p.
  std::vector<std::vector<std::uint64_t>> counts(tiles_.size());
  for (std::size_t t = 0; t < tiles_.size(); ++t) {
    const Tile& tile = tiles_[t];
    counts[t].assign(tile.sums.size(), 0);
    std::uint64_t longer = 0;
    for (std::size_t p = tile.sums.size(); p-- > 0;) {
      longer += p + 1 < tile.lengths.size() ? tile.lengths[p + 1] : 0;
      counts[t][p] = longer;
    }
  }
  // The positions beyond the tables, per tile: its tails, longest first, so that those still
  // covering a position are a prefix.
  std::vector<std::vector<const ReadTail*>> tileTails(tiles_.size());
  for (const ReadTail& tail : tails) {
    if (tail.tile != ReadTail::kNoTile) tileTails[tail.tile].push_back(&tail);
  }
  for (auto& list : tileTails) {
    std::sort(list.begin(), list.end(),
              [](const ReadTail* a, const ReadTail* b) { return a->length > b->length; });
  }
  for (const PositionGroup& g : groups) {
    double sum = 0;
    for (std::size_t t = 0; t < tiles_.size(); ++t) {
      const Tile& tile = tiles_[t];
      double total = 0;
      std::size_t positions = 0;
      std::size_t pos = g.first;
      for (; pos <= g.last && pos <= counts[t].size(); ++pos) {
        const std::uint64_t n = counts[t][pos - 1];
        if (n == 0) continue;
        const std::uint64_t phredSum = tile.sums[pos - 1] + tile.recent[pos - 1] - n * offset;
        total += static_cast<double>(phredSum) / static_cast<double>(n);
        ++positions;
      }
      const auto& own = tileTails[t];
      for (; pos <= g.last && !own.empty() && pos <= own.front()->length; ++pos) {
        std::uint64_t n = 0;
        std::uint64_t codeSum = 0;
        for (const ReadTail* tail : own) {
          if (tail->length < pos) break;
          codeSum += static_cast<unsigned char>(tail->quality[pos - 1 - tail->start]);
          ++n;
        }
        if (n == 0) continue;
        total += static_cast<double>(codeSum - n * offset) / static_cast<double>(n);
        ++positions;
      }
      // A tile with no observation in the group scores 0 there (and so stands out).
      groupMean[t] = positions == 0 ? 0.0 : total / static_cast<double>(positions);
      sum += groupMean[t];
    }
    const double average = sum / tileCount;
    for (double m : groupMean) worst = std::max(worst, std::fabs(m - average));
  }
  return worst;
}

Verdict TileTracker::verdict(const std::vector<ReadTail>& tails) const {
  if (abandoned_ || used_ == 0) return Verdict::Absent;
  const double d = maxDeviation(tails);
  if (d > 10) return Verdict::Fail;
  if (d > 5) return Verdict::Warn;
  return Verdict::Pass;
}

}  // namespace genostat::metrics_detail
