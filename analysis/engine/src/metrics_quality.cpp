// Per-position quality-code histograms.
#include <algorithm>
#include <limits>

#include "metrics_internal.h"

namespace genostat::metrics_detail {

namespace {
constexpr unsigned kLowestCode = 33;
}  // namespace

void QualityCounts::reserve(std::size_t positions) {
  if (positions <= positions_) return;
  const std::size_t near = std::min(positions, nearPositions_);
  if (near * kStride > nearCounts_.size()) nearCounts_.resize(near * kStride, 0);
  // The totals grow only when something is folded into them: a file of fewer than 65535 long
  // reads never touches (nor pays the page faults of) their 768 bytes a position.
  if (positions > nearPositions_ && positions - nearPositions_ > farCapacity_) {
    // Rows of a new width, grown by half at least so that a slowly rising limit copies little.
    const std::size_t capacity =
        std::max(positions - nearPositions_, farCapacity_ + farCapacity_ / 2);
    LargeVector<std::uint16_t> wider(kCodes * capacity, 0);
    for (std::size_t c = 0; c < kCodes; ++c) {
      std::copy_n(farCounts_.begin() + static_cast<std::ptrdiff_t>(c * farCapacity_), farCapacity_,
                  wider.begin() + static_cast<std::ptrdiff_t>(c * capacity));
    }
    farCounts_ = std::move(wider);
    farCapacity_ = capacity;
    for (std::size_t c = 0; c < kCodes; ++c) {
      rows_[c + kLowestCode] = farCounts_.data() + c * capacity;
    }
  }
  positions_ = positions;
}

void QualityCounts::add(const unsigned char* q, std::size_t size) {
  if (++sinceFold_ == std::numeric_limits<std::uint16_t>::max()) fold();
  reserve(size);
  const std::size_t near = std::min(size, nearPositions_);
  std::uint16_t* h = nearCounts_.data();
  auto slot = [](unsigned char code) { return std::size_t{code} - kLowestCode; };
  std::size_t p = 0;
  for (; p + 4 <= near; p += 4, h += 4 * kStride) {
    ++h[slot(q[p])];
    ++h[kStride + slot(q[p + 1])];
    ++h[2 * kStride + slot(q[p + 2])];
    ++h[3 * kStride + slot(q[p + 3])];
  }
  for (; p < near; ++p, h += kStride) ++h[slot(q[p])];
  if (size <= nearPositions_) return;
  std::uint16_t* const* rows = rows_.data();
  const unsigned char* far = q + nearPositions_;
  const std::size_t count = size - nearPositions_;
  std::size_t j = 0;
  for (; j + 4 <= count; j += 4) {
    ++rows[far[j]][j];
    ++rows[far[j + 1]][j + 1];
    ++rows[far[j + 2]][j + 2];
    ++rows[far[j + 3]][j + 3];
  }
  for (; j < count; ++j) ++rows[far[j]][j];
}

void QualityCounts::extend(const unsigned char* q, std::size_t from, std::size_t to) {
  // Into the working counters, like add(). Each call adds at most 1 to a position, so counting
  // it with the reads keeps the counters from wrapping when the tails of reads added before the
  // last fold arrive.
  if (++sinceFold_ == std::numeric_limits<std::uint16_t>::max()) fold();
  reserve(to);
  for (std::size_t p = from; p < to; ++p) {
    const unsigned char code = q[p - from];
    if (p < nearPositions_) {
      ++nearCounts_[p * kStride + (code - kLowestCode)];
    } else {
      ++rows_[code][p - nearPositions_];
    }
  }
}

void QualityCounts::fold() {
  if (positions_ * kStride > totals_.size()) totals_.resize(positions_ * kStride, 0);
  const std::size_t near = std::min(positions_, nearPositions_);
  for (std::size_t i = 0; i < near * kStride; ++i) totals_[i] += nearCounts_[i];
  std::fill(nearCounts_.begin(), nearCounts_.end(), std::uint16_t{0});
  for (std::size_t c = 0; c < kCodes; ++c) {
    const std::uint16_t* row = farCounts_.data() + c * farCapacity_;
    for (std::size_t p = nearPositions_; p < positions_; ++p) {
      totals_[p * kStride + c] += row[p - nearPositions_];
    }
  }
  std::fill(farCounts_.begin(), farCounts_.end(), std::uint16_t{0});
  sinceFold_ = 0;
}

void QualityCounts::countsAt(std::size_t p, std::array<std::uint64_t, kCodes>& counts) const {
  static const std::array<std::uint64_t, kStride> kNone{};
  const std::uint64_t* total =
      (p + 1) * kStride <= totals_.size() ? totals_.data() + p * kStride : kNone.data();
  if (p < nearPositions_) {
    const std::uint16_t* recent = nearCounts_.data() + p * kStride;
    for (std::size_t c = 0; c < kCodes; ++c) counts[c] = total[c] + recent[c];
  } else {
    const std::uint16_t* recent = farCounts_.data() + (p - nearPositions_);
    for (std::size_t c = 0; c < kCodes; ++c) counts[c] = total[c] + recent[c * farCapacity_];
  }
}

void QualityCounts::reset() {
  // Cleared, not freed: the next file's reads zero only the positions they reach.
  nearCounts_.clear();
  farCounts_.clear();
  totals_.clear();
  positions_ = 0;
  farCapacity_ = 0;
  sinceFold_ = 0;
  rows_.fill(nullptr);
}

}  // namespace genostat::metrics_detail
