// The table of tracked sequences shared by the duplication and overrepresented columns.
#include <cstring>

#include "metrics_internal.h"

namespace genostat::metrics_detail {

namespace {

// 2^18 slots keep the load below 40 % at the 100 000-key limit, so probes stay short.
constexpr std::size_t kSlotBits = 18;
constexpr std::size_t kSlotCount = std::size_t{1} << kSlotBits;

inline std::uint64_t load64(const char* p) {
  std::uint64_t w;
  std::memcpy(&w, p, sizeof w);
  return w;
}

inline std::uint64_t mix(std::uint64_t h) {
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdULL;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ULL;
  h ^= h >> 33;
  return h;
}

}  // namespace

// Keys are short (at most 50 bytes), so a word-at-a-time multiply-rotate hash is plenty.
std::uint64_t DuplicateTable::hash(std::string_view key) {
  const char* p = key.data();
  std::size_t n = key.size();
  std::uint64_t h = 0x9E3779B97F4A7C15ULL ^ (n * 0x100000001B3ULL);
  while (n >= 8) {
    h ^= load64(p) * 0x87c37b91114253d5ULL;
    h = ((h << 31) | (h >> 33)) * 0x4cf5ad432745937fULL;
    p += 8;
    n -= 8;
  }
  if (n > 0) {
    std::uint64_t tail = 0;
    std::memcpy(&tail, p, n);
    h ^= tail * 0x87c37b91114253d5ULL;
    h = ((h << 31) | (h >> 33)) * 0x4cf5ad432745937fULL;
  }
  return mix(h);
}

DuplicateTable::DuplicateTable() : slots_(kSlotCount, 0) {}

void DuplicateTable::prefetch(std::uint64_t keyHash) const {
  __builtin_prefetch(&slots_[static_cast<std::size_t>(keyHash) & (kSlotCount - 1)]);
}

void DuplicateTable::add(std::string_view key, std::uint64_t h) {
  ++total_;
  const std::uint64_t tag = h >> 32;
  std::size_t slot = static_cast<std::size_t>(h) & (kSlotCount - 1);
  for (;;) {
    const std::uint64_t s = slots_[slot];
    if (s == 0) break;
    if ((s >> 32) == tag) {
      Entry& e = entries_[static_cast<std::size_t>(s & 0xffffffffu) - 1];
      if (e.length == key.size() && std::memcmp(arena_.data() + e.offset, key.data(), key.size()) == 0) {
        ++e.count;
        if (!frozen_) countAtLimit_ = total_;
        return;
      }
    }
    slot = (slot + 1) & (kSlotCount - 1);
  }
  // A key first seen after the table filled up is never counted anywhere.
  if (frozen_) return;
  entries_.push_back({1, static_cast<std::uint32_t>(arena_.size()), static_cast<std::uint32_t>(key.size())});
  arena_.append(key.data(), key.size());
  slots_[slot] = (tag << 32) | entries_.size();
  usedSlots_.push_back(static_cast<std::uint32_t>(slot));
  countAtLimit_ = total_;
  if (entries_.size() == kDistinctLimit) frozen_ = true;
}

void DuplicateTable::reset() {
  for (std::uint32_t slot : usedSlots_) slots_[slot] = 0;
  usedSlots_.clear();
  entries_.clear();
  arena_.clear();
  total_ = 0;
  countAtLimit_ = 0;
  frozen_ = false;
}

std::map<std::uint64_t, std::uint64_t> DuplicateTable::levels() const {
  std::map<std::uint64_t, std::uint64_t> result;
  for (const Entry& e : entries_) ++result[e.count];
  return result;
}

std::vector<std::uint64_t> DuplicateTable::counts() const {
  std::vector<std::uint64_t> result;
  result.reserve(entries_.size());
  for (const Entry& e : entries_) result.push_back(e.count);
  return result;
}

double deduplicatedPercentage(const std::map<std::uint64_t, std::uint64_t>& levels,
                              std::uint64_t countAtLimit, std::uint64_t total) {
  double dedup = 0;
  double raw = 0;
  for (const auto& [level, keys] : levels) {
    const double n = static_cast<double>(keys);
    double corrected = n;
    // Keys at this level first seen after the freeze were missed; estimate how many from the
    // chance that a key of this level had no read before the freeze. The short-cut compares the
    // number of keys at the level (not the level) with the freeze point.
    if (countAtLimit != total && !(total - keys < countAtLimit)) {
      double q = 1;
      const double limit = 1 - n / (n + 0.01);
      for (std::uint64_t j = 0; j < countAtLimit; ++j) {
        const std::uint64_t remaining = total - j;
        // (T - j) - d may go negative for a level close to the total; keep it signed.
        const double numerator = static_cast<double>(static_cast<std::int64_t>(remaining) -
                                                     static_cast<std::int64_t>(level));
        q *= numerator / static_cast<double>(remaining);
        if (q < limit) {
          q = 0;
          break;
        }
      }
      corrected = n / (1 - q);
    }
    dedup += corrected;
    raw += corrected * static_cast<double>(level);
  }
  if (raw == 0) return 100;
  return (dedup / raw) * 100;
}

Overrepresented overrepresented(const std::vector<std::uint64_t>& counts, std::uint64_t total) {
  Overrepresented result;
  std::uint64_t top = 0;
  const double t = static_cast<double>(total);
  for (std::uint64_t c : counts) {
    if ((static_cast<double>(c) / t) * 100 > 0.1) ++result.count;
    if (c > top) top = c;
  }
  if (result.count == 0) return result;
  result.verdict = (static_cast<double>(top) / t) * 100 > 1 ? Verdict::Fail : Verdict::Warn;
  return result;
}

}  // namespace genostat::metrics_detail
