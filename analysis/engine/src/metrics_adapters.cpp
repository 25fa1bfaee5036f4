// Adapter content: where along the reads each adapter first appears.
#include <stdexcept>

#include "metrics_internal.h"

namespace genostat::metrics_detail {

namespace {

// A/C/G/T -> 0..3, everything else 4 (breaks any match).
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

AdapterScanner::AdapterScanner(std::vector<std::string> adapters)
    : adapters_(std::move(adapters)), hits_(adapters_.size()) {
  if (adapters_.empty() || adapters_.size() > 8) throw std::invalid_argument("adapter list size");
  length_ = adapters_.front().size();
  if (length_ == 0 || length_ > 12) throw std::invalid_argument("adapter length");
  codeMask_ = (std::uint64_t{1} << (3 * length_)) - 1;
  for (std::size_t k = 0; k < length_; ++k) emptyWindow_ = (emptyWindow_ << 3) | 4;
  // The quick check looks at the last min(4, length) bases of the window (12 bits).
  const std::size_t tailBases = std::min<std::size_t>(4, length_);
  const std::uint32_t tailMask = (1u << (3 * tailBases)) - 1;
  for (std::size_t a = 0; a < adapters_.size(); ++a) {
    const std::string& s = adapters_[a];
    if (s.size() != length_) throw std::invalid_argument("adapters of different lengths");
    std::uint64_t code = 0;
    for (char c : s) {
      const std::uint8_t b = kBases.code[static_cast<unsigned char>(c)];
      if (b > 3) throw std::invalid_argument("adapter base");
      code = (code << 3) | b;
    }
    codes_.push_back(code);
    for (std::uint32_t idx = 0; idx < 4096; ++idx) {
      if ((idx & tailMask) == (code & tailMask)) tailMask_[idx] |= static_cast<std::uint8_t>(1u << a);
    }
    hits_[a].assign(1, 0);
  }
}

void AdapterScanner::add(std::string_view sequence) {
  ++total_;
  const std::size_t len = sequence.size();
  if (len > longest_ && len > length_) {
    longest_ = len;
    for (auto& h : hits_) h.resize(longest_ - length_ + 1, 0);
  }
  if (longest_ == 0 || len < length_) return;  // nothing is counted until some read is long enough

  // Two lanes scan the first and the second half of the read side by side: each window update
  // depends on the previous one, so two independent chains keep the core twice as busy. Lane A
  // sees windows ending in [0, mid), lane B those ending in [mid, len); a hit in lane A is
  // always the earlier one.
  const auto* s = reinterpret_cast<const unsigned char*>(sequence.data());
  const auto& codeOf = kBases.code;
  const std::size_t mid = len / 2;
  std::array<std::size_t, 8> firstA{};
  std::array<std::size_t, 8> firstB{};
  std::uint8_t foundA = 0;
  std::uint8_t foundB = 0;
  auto match = [&](std::uint64_t code, std::size_t end, std::uint8_t candidates, std::uint8_t& found,
                   std::array<std::size_t, 8>& first) {
    const std::uint64_t window = code & codeMask_;
    do {
      const unsigned a = static_cast<unsigned>(__builtin_ctz(candidates));
      candidates &= static_cast<std::uint8_t>(candidates - 1);
      if (codes_[a] == window) {
        found |= static_cast<std::uint8_t>(1u << a);
        first[a] = end;
      }
    } while (candidates != 0);
  };
  std::uint64_t codeA = emptyWindow_;
  std::uint64_t codeB = emptyWindow_;
  for (std::size_t i = mid >= length_ - 1 ? mid - (length_ - 1) : 0; i < mid; ++i) {
    codeB = (codeB << 3) | codeOf[s[i]];
  }
  for (std::size_t i = 0; i < mid; ++i) {
    codeA = (codeA << 3) | codeOf[s[i]];
    codeB = (codeB << 3) | codeOf[s[mid + i]];
    const std::uint8_t candA = tailMask_[codeA & 4095] & static_cast<std::uint8_t>(~foundA);
    const std::uint8_t candB = tailMask_[codeB & 4095] & static_cast<std::uint8_t>(~foundB);
    if ((candA | candB) == 0) continue;
    if (candA != 0) match(codeA, i, candA, foundA, firstA);
    if (candB != 0) match(codeB, mid + i, candB, foundB, firstB);
  }
  if (len % 2 == 1) {
    codeB = (codeB << 3) | codeOf[s[len - 1]];
    const std::uint8_t candB = tailMask_[codeB & 4095] & static_cast<std::uint8_t>(~foundB);
    if (candB != 0) match(codeB, len - 1, candB, foundB, firstB);
  }
  for (std::size_t a = 0; a < adapters_.size(); ++a) {
    const std::uint8_t bit = static_cast<std::uint8_t>(1u << a);
    if (foundA & bit) {
      ++hits_[a][firstA[a] + 1 - length_];
    } else if (foundB & bit) {
      ++hits_[a][firstB[a] + 1 - length_];
    }
  }
}

std::vector<std::vector<double>> AdapterScanner::groupValues() const {
  std::vector<std::vector<double>> values;
  if (longest_ == 0) return values;
  const std::size_t positions = longest_ - length_ + 1;
  const auto groups = positionGroups(positions);
  const double total = static_cast<double>(total_);
  for (const auto& firstHits : hits_) {
    // Entry e counts the reads whose first hit starts at or before e. Every adapter of a set has
    // the same length, so a hit always lies within the entries that existed when it was counted
    // and a plain running sum reproduces the growing-array bookkeeping.
    std::vector<std::uint64_t> cumulative(positions, 0);
    std::uint64_t running = 0;
    for (std::size_t e = 0; e < positions; ++e) {
      running += firstHits[e];
      cumulative[e] = running;
    }
    std::vector<double> perGroup;
    for (const PositionGroup& g : groups) {
      double sum = 0;
      for (std::size_t pos = g.first; pos <= g.last; ++pos) {
        sum += (100 * static_cast<double>(cumulative[pos - 1])) / total;
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
