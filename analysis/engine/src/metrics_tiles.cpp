// Per-tile quality: tile numbers from Illumina-style headers on a sample of the reads.
#include <cmath>
#include <limits>

#include "metrics_internal.h"

namespace genostat::metrics_detail {

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

void TileTracker::add(std::string_view header, std::string_view quality) {
  if (abandoned_ || quality.empty()) return;
  ++numbered_;
  // Every read up to 10 000, then every tenth: the sample keeps the work small on big files.
  if (numbered_ > 10000 && numbered_ % 10 != 0) return;

  // Fields split at ':', trailing empty fields dropped; only the count and the tile field matter.
  std::size_t fieldCount = 0;
  std::size_t lastNonEmpty = 0;  // number of fields up to the last non-empty one
  std::string_view wanted;
  bool haveWanted = false;
  std::size_t start = 0;
  for (std::size_t i = 0;; ++i) {
    if (i == header.size() || header[i] == ':') {
      const std::string_view field = header.substr(start, i - start);
      ++fieldCount;
      if (!field.empty()) lastNonEmpty = fieldCount;
      if (fieldChosen_ && fieldCount == fieldIndex_ + 1) {
        wanted = field;
        haveWanted = true;
      }
      if (i == header.size()) break;
      start = i + 1;
    }
  }
  fieldCount = lastNonEmpty;
  if (!fieldChosen_) {
    if (fieldCount >= 7) {
      fieldIndex_ = 4;
    } else if (fieldCount >= 5) {
      fieldIndex_ = 2;
    } else {
      abandoned_ = true;
      return;
    }
    fieldChosen_ = true;
    std::size_t n = 0;
    start = 0;
    for (std::size_t i = 0;; ++i) {
      if (i == header.size() || header[i] == ':') {
        if (n == fieldIndex_) {
          wanted = header.substr(start, i - start);
          haveWanted = true;
          break;
        }
        ++n;
        start = i + 1;
      }
    }
  }
  if (!haveWanted || fieldCount <= fieldIndex_) {
    abandoned_ = true;
    return;
  }
  std::int32_t tile = 0;
  if (!parseTile(wanted, tile)) {
    abandoned_ = true;
    return;
  }

  std::size_t index;
  if (lastIndex_ != SIZE_MAX && tile == lastTile_) {
    index = lastIndex_;
  } else {
    auto it = index_.find(tile);
    if (it == index_.end()) {
      if (tiles_.size() > kMaxTiles) {
        abandoned_ = true;
        return;
      }
      it = index_.emplace(tile, tiles_.size()).first;
      tiles_.emplace_back();
    }
    index = it->second;
    lastTile_ = tile;
    lastIndex_ = index;
  }

  ++used_;
  if (quality.size() > longest_) longest_ = quality.size();
  Tile& t = tiles_[index];
  const std::size_t n = quality.size();
  if (t.sums.size() < n) t.sums.resize(n, 0);
  if (t.lengths.size() <= n) t.lengths.resize(n + 1, 0);
  ++t.lengths[n];
  const auto* q = reinterpret_cast<const unsigned char*>(quality.data());
  std::uint64_t* sums = t.sums.data();
  unsigned low = 255;
  for (std::size_t i = 0; i < n; ++i) {
    sums[i] += q[i];
    low = q[i] < low ? q[i] : low;
  }
  if (low < minCode_) minCode_ = low;
}

double TileTracker::maxDeviation() const {
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
  for (const PositionGroup& g : groups) {
    double sum = 0;
    for (std::size_t t = 0; t < tiles_.size(); ++t) {
      const Tile& tile = tiles_[t];
      double total = 0;
      std::size_t positions = 0;
      for (std::size_t pos = g.first; pos <= g.last && pos <= counts[t].size(); ++pos) {
        const std::uint64_t n = counts[t][pos - 1];
        if (n == 0) continue;
        const std::uint64_t phredSum = tile.sums[pos - 1] - n * offset;
        total += static_cast<double>(phredSum) / static_cast<double>(n);
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

Verdict TileTracker::verdict() const {
  if (abandoned_ || used_ == 0) return Verdict::Absent;
  const double d = maxDeviation();
  if (d > 10) return Verdict::Fail;
  if (d > 5) return Verdict::Warn;
  return Verdict::Pass;
}

}  // namespace genostat::metrics_detail
