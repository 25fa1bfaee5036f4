#include "genostat/csv.h"

#include <algorithm>
#include <unordered_set>

namespace genostat {
namespace {

char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::string asciiLower(std::string_view s) {
  std::string out(s);
  std::transform(out.begin(), out.end(), out.begin(), [](char c) { return asciiLower(c); });
  return out;
}

bool endsWithIgnoringCase(std::string_view s, std::string_view suffix) {
  if (s.size() < suffix.size()) return false;
  return asciiLower(s.substr(s.size() - suffix.size())) == suffix;
}

std::string_view stripSuffix(std::string_view s, std::initializer_list<std::string_view> suffixes) {
  for (std::string_view suffix : suffixes) {
    if (endsWithIgnoringCase(s, suffix)) return s.substr(0, s.size() - suffix.size());
  }
  return s;
}

}  // namespace

std::string sampleNameFromPath(std::string_view path) {
  const std::size_t slash = path.find_last_of("/\\");
  const std::string_view component =
      slash == std::string_view::npos ? path : path.substr(slash + 1);
  std::string_view name = stripSuffix(component, {".gz", ".bz2"});
  name = stripSuffix(name, {".fastq", ".fq"});
  return std::string(name.empty() ? component : name);
}

std::vector<std::string> uniqueSampleNames(const std::vector<std::string>& paths) {
  std::vector<std::string> names;
  names.reserve(paths.size());
  std::unordered_set<std::string> given;  // lower-cased
  for (const std::string& path : paths) {
    std::string name = sampleNameFromPath(path);
    if (given.count(asciiLower(name)) != 0) {
      for (unsigned long n = 2;; ++n) {
        std::string candidate = name + "_" + std::to_string(n);
        if (given.count(asciiLower(candidate)) == 0) {
          name = std::move(candidate);
          break;
        }
      }
    }
    given.insert(asciiLower(name));
    names.push_back(std::move(name));
  }
  return names;
}

std::string csvField(std::string_view value) {
  if (value.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(value);
  std::string out;
  out.reserve(value.size() + 2);
  out.push_back('"');
  for (char c : value) {
    if (c == '"') out.push_back('"');
    out.push_back(c);
  }
  out.push_back('"');
  return out;
}

std::string csvDocument(const std::vector<std::string>& columnNames,
                        const std::vector<std::vector<std::string>>& rows) {
  std::string out;
  auto appendLine = [&out](const std::vector<std::string>& fields) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
      if (i != 0) out.push_back(',');
      out += csvField(fields[i]);
    }
    out.push_back('\n');
  };
  appendLine(columnNames);
  for (const auto& row : rows) appendLine(row);
  return out;
}

}  // namespace genostat
