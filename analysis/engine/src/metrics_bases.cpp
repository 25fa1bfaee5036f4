// Per-position base classes and the per-read byte scans of the hot path: 32 bytes at a time with
// AVX2 where the processor has it, 16 with SSE2 (part of every x86-64), one byte at a time
// elsewhere.
#include <algorithm>
#include <cstring>

#include "metrics_internal.h"
#include "simd.h"

namespace genostat::metrics_detail {

namespace {

constexpr std::size_t kCompared = 5;  // A, C, G, T, N; the other class is derived
constexpr unsigned kFoldEvery = 255;  // an 8-bit counter gains at most 1 per read

struct ClassTable {
  std::array<std::uint8_t, 256> cls{};
  ClassTable() {
    cls.fill(kOther);
    cls['A'] = kA;
    cls['C'] = kC;
    cls['G'] = kG;
    cls['T'] = kT;
    cls['N'] = kN;
  }
};
const ClassTable kClasses;

}  // namespace

Simd bestSimd() {
#ifdef GENOSTAT_AVX2
  // Initialised on first use; the explicit init makes a call from a static constructor safe.
  static const bool avx2 = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  if (avx2) return Simd::Avx2;
#endif
#ifdef GENOSTAT_SSE2
  return Simd::Sse2;
#else
  return Simd::None;
#endif
}

Simd usableSimd(Simd wanted) {
  const Simd best = bestSimd();
  return static_cast<int>(wanted) < static_cast<int>(best) ? wanted : best;
}

BaseCounts::BaseCounts(Simd simd) : simd_(usableSimd(simd)) {}

void BaseCounts::reserve(std::size_t positions) {
  if (positions <= capacity_) return;
  fold();
  // Long reads raise the limit in many small steps: growing by half at least keeps the folds and
  // copies few.
  capacity_ = (std::max(positions, capacity_ + capacity_ / 2) + 31) / 32 * 32;
  recent_.assign(kCompared * capacity_, 0);
  folded_.resize(capacity_ * kBaseStride, 0);
}

std::size_t BaseCounts::add(const unsigned char* bases, std::size_t size, std::size_t gcLength) {
  if (size >= lengths_.size()) lengths_.resize(size + 1, 0);
  ++lengths_[size];
  if (size > longest_) longest_ = size;
  reserve(size);
  if (sinceFold_ == kFoldEvery) fold();
  ++sinceFold_;
  switch (simd_) {
    case Simd::Avx2: return addAvx2(bases, size, gcLength);
    case Simd::Sse2: return addSse2(bases, size, gcLength);
    case Simd::None: break;
  }
  return addScalar(bases, size, gcLength);
}

std::size_t BaseCounts::addScalar(const unsigned char* bases, std::size_t size,
                                  std::size_t gcLength) {
  std::size_t gc = 0;
  for (std::size_t i = 0; i < size; ++i) {
    const std::uint8_t k = kClasses.cls[bases[i]];
    if (k < kCompared) ++recent_[k * capacity_ + i];
    if (i < gcLength) gc += (k == kC) | (k == kG);
  }
  return gc;
}

#ifdef GENOSTAT_SSE2
std::size_t BaseCounts::addSse2(const unsigned char* bases, std::size_t size,
                                  std::size_t gcLength) {
  const __m128i letterA = _mm_set1_epi8('A');
  const __m128i letterC = _mm_set1_epi8('C');
  const __m128i letterG = _mm_set1_epi8('G');
  const __m128i letterT = _mm_set1_epi8('T');
  const __m128i letterN = _mm_set1_epi8('N');
  const __m128i lane = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  const __m128i one = _mm_set1_epi8(1);
  const __m128i zero = _mm_setzero_si128();
  std::uint8_t* counts = recent_.data();
  const std::size_t stride = capacity_;
  __m128i gcSum = zero;
  // Subtracting a compare mask (0 or -1 per byte) adds 1 where the class matches.
  auto block = [&](__m128i v, std::size_t i) {
    std::uint8_t* at = counts + i;
    const __m128i isC = _mm_cmpeq_epi8(v, letterC);
    const __m128i isG = _mm_cmpeq_epi8(v, letterG);
    auto bump = [&](std::size_t k, __m128i mask) {
      auto* slot = reinterpret_cast<__m128i*>(at + k * stride);
      _mm_storeu_si128(slot, _mm_sub_epi8(_mm_loadu_si128(slot), mask));
    };
    bump(kA, _mm_cmpeq_epi8(v, letterA));
    bump(kC, isC);
    bump(kG, isG);
    bump(kT, _mm_cmpeq_epi8(v, letterT));
    bump(kN, _mm_cmpeq_epi8(v, letterN));
    if (i < gcLength) {
      const std::size_t left = gcLength - i;
      const __m128i within =
          _mm_cmplt_epi8(lane, _mm_set1_epi8(static_cast<char>(left < 16 ? left : 16)));
      const __m128i gc = _mm_and_si128(_mm_and_si128(_mm_or_si128(isC, isG), within), one);
      gcSum = _mm_add_epi64(gcSum, _mm_sad_epu8(gc, zero));
    }
  };
  std::size_t i = 0;
  for (; i + 16 <= size; i += 16) {
    block(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bases + i)), i);
  }
  if (i < size) {
    // The read's last bases, padded with zero bytes that match no class (reads are printable).
    alignas(16) unsigned char tail[16] = {};
    std::memcpy(tail, bases + i, size - i);
    block(_mm_load_si128(reinterpret_cast<const __m128i*>(tail)), i);
  }
  return static_cast<std::size_t>(_mm_cvtsi128_si64(gcSum)) +
         static_cast<std::size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(gcSum, gcSum)));
}
#else
std::size_t BaseCounts::addSse2(const unsigned char* bases, std::size_t size,
                                std::size_t gcLength) {
  return addScalar(bases, size, gcLength);
}
#endif

#ifdef GENOSTAT_AVX2
// The SSE2 loop at twice the width; no lambdas, which would not inherit the target.
__attribute__((target("avx2"))) std::size_t BaseCounts::addAvx2(const unsigned char* bases,
                                                                std::size_t size,
                                                                std::size_t gcLength) {
  const __m256i letterA = _mm256_set1_epi8('A');
  const __m256i letterC = _mm256_set1_epi8('C');
  const __m256i letterG = _mm256_set1_epi8('G');
  const __m256i letterT = _mm256_set1_epi8('T');
  const __m256i letterN = _mm256_set1_epi8('N');
  const __m256i lane = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16,
                                        17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
  const __m256i one = _mm256_set1_epi8(1);
  const __m256i zero = _mm256_setzero_si256();
  std::uint8_t* counts = recent_.data();
  const std::size_t stride = capacity_;
  __m256i gcSum = zero;
  alignas(32) unsigned char tail[32];
  for (std::size_t i = 0; i < size; i += 32) {
    __m256i v;
    if (i + 32 <= size) {
      v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bases + i));
    } else {
      // The read's last bases, padded with zero bytes that match no class.
      std::memset(tail, 0, sizeof tail);
      std::memcpy(tail, bases + i, size - i);
      v = _mm256_load_si256(reinterpret_cast<const __m256i*>(tail));
    }
    std::uint8_t* at = counts + i;
    const __m256i isC = _mm256_cmpeq_epi8(v, letterC);
    const __m256i isG = _mm256_cmpeq_epi8(v, letterG);
    auto* slotA = reinterpret_cast<__m256i*>(at + kA * stride);
    auto* slotC = reinterpret_cast<__m256i*>(at + kC * stride);
    auto* slotG = reinterpret_cast<__m256i*>(at + kG * stride);
    auto* slotT = reinterpret_cast<__m256i*>(at + kT * stride);
    auto* slotN = reinterpret_cast<__m256i*>(at + kN * stride);
    _mm256_storeu_si256(slotA,
                        _mm256_sub_epi8(_mm256_loadu_si256(slotA), _mm256_cmpeq_epi8(v, letterA)));
    _mm256_storeu_si256(slotC, _mm256_sub_epi8(_mm256_loadu_si256(slotC), isC));
    _mm256_storeu_si256(slotG, _mm256_sub_epi8(_mm256_loadu_si256(slotG), isG));
    _mm256_storeu_si256(slotT,
                        _mm256_sub_epi8(_mm256_loadu_si256(slotT), _mm256_cmpeq_epi8(v, letterT)));
    _mm256_storeu_si256(slotN,
                        _mm256_sub_epi8(_mm256_loadu_si256(slotN), _mm256_cmpeq_epi8(v, letterN)));
    if (i < gcLength) {
      const std::size_t left = gcLength - i;
      const __m256i within =
          _mm256_cmpgt_epi8(_mm256_set1_epi8(static_cast<char>(left < 32 ? left : 32)), lane);
      const __m256i gc =
          _mm256_and_si256(_mm256_and_si256(_mm256_or_si256(isC, isG), within), one);
      gcSum = _mm256_add_epi64(gcSum, _mm256_sad_epu8(gc, zero));
    }
  }
  const __m128i half =
      _mm_add_epi64(_mm256_castsi256_si128(gcSum), _mm256_extracti128_si256(gcSum, 1));
  return static_cast<std::size_t>(_mm_cvtsi128_si64(half)) +
         static_cast<std::size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(half, half)));
}
#else
std::size_t BaseCounts::addAvx2(const unsigned char* bases, std::size_t size,
                                std::size_t gcLength) {
  return addSse2(bases, size, gcLength);
}
#endif

void BaseCounts::fold() {
  for (std::size_t k = 0; k < kCompared; ++k) {
    const std::uint8_t* row = recent_.data() + k * capacity_;
    for (std::size_t p = 0; p < capacity_; ++p) folded_[p * kBaseStride + k] += row[p];
  }
  std::fill(recent_.begin(), recent_.end(), std::uint8_t{0});
  sinceFold_ = 0;
}

void BaseCounts::extend(const unsigned char* bases, std::size_t from, std::size_t to) {
  reserve(to);
  if (to >= lengths_.size()) lengths_.resize(to + 1, 0);
  --lengths_[from];
  ++lengths_[to];
  if (to > longest_) longest_ = to;
  // Rare (a few long reads): straight into the totals.
  for (std::size_t p = from; p < to; ++p) {
    const std::uint8_t k = kClasses.cls[bases[p - from]];
    if (k < kCompared) ++folded_[p * kBaseStride + k];
  }
}

void BaseCounts::reset() {
  // Cleared, not freed: the next file's reads zero only the positions they reach.
  recent_.clear();
  folded_.clear();
  capacity_ = 0;
  lengths_.clear();
  longest_ = 0;
  sinceFold_ = 0;
}

std::vector<std::uint64_t> BaseCounts::totals() {
  fold();
  std::vector<std::uint64_t> result(longest_ * kBaseStride, 0);
  // covering = reads longer than position p.
  std::uint64_t covering = 0;
  for (std::size_t length = longest_ + 1; length < lengths_.size(); ++length) covering += lengths_[length];
  for (std::size_t p = longest_; p-- > 0;) {
    covering += lengths_[p + 1];
    std::uint64_t known = 0;
    for (std::size_t k = 0; k < kCompared; ++k) {
      result[p * kBaseStride + k] = folded_[p * kBaseStride + k];
      known += folded_[p * kBaseStride + k];
    }
    result[p * kBaseStride + kOther] = covering - known;
  }
  return result;
}

std::size_t neighbourDifferences(const unsigned char* bases, std::size_t size, bool vectorised) {
  std::size_t same = 0;
  std::size_t j = 0;
#ifdef GENOSTAT_SSE2
  if (vectorised) {
    const __m128i one = _mm_set1_epi8(1);
    const __m128i zero = _mm_setzero_si128();
    __m128i sum = zero;
    for (; j + 17 <= size; j += 16) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bases + j));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bases + j + 1));
      sum = _mm_add_epi64(sum, _mm_sad_epu8(_mm_and_si128(_mm_cmpeq_epi8(a, b), one), zero));
    }
    same = static_cast<std::size_t>(_mm_cvtsi128_si64(sum)) +
           static_cast<std::size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sum, sum)));
  }
#else
  (void)vectorised;
#endif
  std::size_t diff = j - same;
  for (; j + 1 < size; ++j) diff += bases[j] != bases[j + 1];
  return diff;
}

std::uint64_t byteSum(const unsigned char* bytes, std::size_t size, bool vectorised) {
  std::uint64_t total = 0;
  std::size_t i = 0;
#ifdef GENOSTAT_SSE2
  if (vectorised) {
    const __m128i zero = _mm_setzero_si128();
    __m128i sum = zero;
    for (; i + 16 <= size; i += 16) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
      sum = _mm_add_epi64(sum, _mm_sad_epu8(v, zero));
    }
    total = static_cast<std::uint64_t>(_mm_cvtsi128_si64(sum)) +
            static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sum, sum)));
  }
#else
  (void)vectorised;
#endif
  for (; i < size; ++i) total += bytes[i];
  return total;
}

std::size_t gcCount(const unsigned char* bases, std::size_t size) {
  std::size_t count = 0;
  std::size_t i = 0;
#ifdef GENOSTAT_SSE2
  const __m128i letterC = _mm_set1_epi8('C');
  const __m128i letterG = _mm_set1_epi8('G');
  const __m128i one = _mm_set1_epi8(1);
  const __m128i zero = _mm_setzero_si128();
  __m128i sum = zero;
  for (; i + 16 <= size; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bases + i));
    const __m128i gc = _mm_or_si128(_mm_cmpeq_epi8(v, letterC), _mm_cmpeq_epi8(v, letterG));
    sum = _mm_add_epi64(sum, _mm_sad_epu8(_mm_and_si128(gc, one), zero));
  }
  count = static_cast<std::size_t>(_mm_cvtsi128_si64(sum)) +
          static_cast<std::size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sum, sum)));
#endif
  for (; i < size; ++i) count += (bases[i] == 'C') | (bases[i] == 'G');
  return count;
}

void addClasses(const unsigned char* bases, std::size_t size, std::array<std::uint64_t, 6>& sums) {
  for (std::size_t i = 0; i < size; ++i) ++sums[kClasses.cls[bases[i]]];
}

}  // namespace genostat::metrics_detail
