// Number formatting, position groups and length bins shared by several columns.
#include <algorithm>
#include <charconv>
#include <system_error>

#include "metrics_internal.h"

namespace genostat::metrics_detail {

// 128-bit products keep the percentage and length sums exact for any file size.
__extension__ typedef unsigned __int128 Uint128;

std::string formatTwoDecimals(double value) {
  // to_chars gives the shortest correctly rounded fixed text, ties to even on the exact binary
  // value; 2.675 is stored slightly below and so becomes 2.67, as any correct printf does.
  char buffer[512];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 2);
  if (result.ec != std::errc()) return std::string();
  std::string text(buffer, result.ptr);
  if (text == "-0.00") text = "0.00";
  return text;
}

std::string formatTruncatedPercent(std::uint64_t part, std::uint64_t whole) {
  if (whole == 0) return "0.00";
  // 10000 * part overflows 64 bits for totals above ~1.8e15 bases; 128 bits cannot overflow.
  const Uint128 scaled = static_cast<Uint128>(part) * 10000u;
  const std::uint64_t q = static_cast<std::uint64_t>(scaled / whole);
  std::string text = std::to_string(q / 100);
  const unsigned cents = static_cast<unsigned>(q % 100);
  text += '.';
  text += static_cast<char>('0' + cents / 10);
  text += static_cast<char>('0' + cents % 10);
  return text;
}

const char* verdictText(Verdict v) {
  switch (v) {
    case Verdict::Pass: return "pass";
    case Verdict::Warn: return "warn";
    case Verdict::Fail: return "fail";
    case Verdict::Absent: break;
  }
  return "";
}

std::string PositionGroup::label() const {
  if (first == last) return std::to_string(first);
  return std::to_string(first) + "-" + std::to_string(last);
}

std::vector<PositionGroup> positionGroups(std::size_t maxLength) {
  std::vector<PositionGroup> groups;
  if (maxLength <= 75) {
    for (std::size_t p = 1; p <= maxLength; ++p) groups.push_back({p, p});
    return groups;
  }
  // Interval: 2, 5, 10, 20, 50, 100, ... the first that leaves fewer than 75 groups.
  std::size_t interval = 0;
  static const std::size_t kSteps[] = {2, 5, 10};
  for (std::size_t scale = 1; interval == 0; scale *= 10) {
    for (std::size_t step : kSteps) {
      const std::size_t candidate = step * scale;
      if (9 + (maxLength - 9 + candidate - 1) / candidate < 75) {
        interval = candidate;
        break;
      }
    }
  }
  for (std::size_t p = 1; p <= 9; ++p) groups.push_back({p, p});
  std::size_t start = 10;
  if (interval > 10) {
    // A short first group reaches up to the first multiple of the interval.
    groups.push_back({start, std::min(interval - 1, maxLength)});
    start = interval;
  }
  for (; start <= maxLength; start += interval) {
    groups.push_back({start, std::min(start + interval - 1, maxLength)});
  }
  return groups;
}

std::string LengthBin::label() const {
  if (single) return std::to_string(first);
  return std::to_string(first) + "-" + std::to_string(last);
}

std::vector<LengthBin> lengthBins(const std::vector<std::uint64_t>& lengthCounts,
                                  const std::vector<std::size_t>& longer) {
  std::size_t lo = 0;
  std::size_t hi = 0;
  bool any = false;
  for (std::size_t len = 0; len < lengthCounts.size(); ++len) {
    if (lengthCounts[len] == 0) continue;
    if (!any) lo = len;
    hi = len;
    any = true;
  }
  for (std::size_t len : longer) {
    if (!any) lo = len;
    lo = std::min(lo, len);
    hi = std::max(hi, len);
    any = true;
  }
  // One padding value on each side.
  if (lo > 0) --lo;
  ++hi;
  const std::size_t span = hi - lo;
  std::size_t width = 1;
  {
    static const std::size_t kSteps[] = {1, 2, 5};
    bool found = false;
    for (std::size_t scale = 1; !found; scale *= 10) {
      for (std::size_t step : kSteps) {
        if (span / (step * scale) <= 50) {
          width = step * scale;
          found = true;
          break;
        }
      }
    }
  }
  std::vector<LengthBin> bins;
  for (std::size_t first = (lo / width) * width; first <= hi; first += width) {
    LengthBin bin{first, std::min(first + width - 1, hi), 0, width == 1};
    for (std::size_t len = bin.first; len <= bin.last && len < lengthCounts.size(); ++len) {
      bin.count += lengthCounts[len];
    }
    bins.push_back(bin);
  }
  for (std::size_t len : longer) ++bins[(len - bins.front().first) / width].count;
  if (!bins.empty() && bins.back().count == 0) bins.pop_back();
  if (!bins.empty() && bins.front().count == 0) bins.erase(bins.begin());
  return bins;
}

LengthSummary summariseLengthBins(const std::vector<LengthBin>& bins) {
  LengthSummary summary;
  std::uint64_t total = 0;
  Uint128 weighted = 0;  // sum of count * (a + b), exact
  for (const LengthBin& bin : bins) {
    total += bin.count;
    weighted += static_cast<Uint128>(bin.count) * (bin.first + bin.last);
  }
  if (total == 0) return summary;
  summary.present = true;
  summary.mean = static_cast<double>(weighted) / (2.0 * static_cast<double>(total));
  const double half = static_cast<double>(total) / 2.0;
  std::uint64_t running = 0;
  for (const LengthBin& bin : bins) {
    running += bin.count;
    if (static_cast<double>(running) >= half) {
      summary.median = bin.first + (bin.last - bin.first) / 2;
      break;
    }
  }
  return summary;
}

double histogramMedian(const std::vector<std::uint64_t>& codeCounts, unsigned offset) {
  std::uint64_t total = 0;
  for (std::uint64_t c : codeCounts) total += c;
  // 1-based ranks of the middle value(s).
  const std::uint64_t lowRank = (total + 1) / 2;
  const std::uint64_t highRank = total / 2 + 1;
  long lowValue = -1;
  long highValue = -1;
  std::uint64_t running = 0;
  for (std::size_t code = 0; code < codeCounts.size(); ++code) {
    running += codeCounts[code];
    const long phred = static_cast<long>(code) - static_cast<long>(offset);
    if (lowValue < 0 && running >= lowRank && codeCounts[code] > 0) lowValue = phred;
    if (running >= highRank && codeCounts[code] > 0) {
      highValue = phred;
      break;
    }
  }
  if (total % 2 == 1) return static_cast<double>(lowValue);
  return (static_cast<double>(lowValue) + static_cast<double>(highValue)) / 2.0;
}

}  // namespace genostat::metrics_detail
