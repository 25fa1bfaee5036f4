// Small text helpers of the command language: ASCII case folding and comparisons.
//
// Keywords are ASCII; names and literals may hold any byte (UTF-8), which case folding leaves as
// it is.
#pragma once

#include <string>
#include <string_view>

namespace zorvhost {
namespace parser {

inline char upperAscii(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c; }

inline std::string toUpperAscii(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = upperAscii(c);
  return out;
}

inline bool equalsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (upperAscii(a[i]) != upperAscii(b[i])) return false;
  }
  return true;
}

}  // namespace parser
}  // namespace zorvhost
