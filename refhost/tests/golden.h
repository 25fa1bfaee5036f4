// Expectation files: the cases of one road and, under each, the result it must give.
//
// A file holds comment lines ("# ..."), blank lines, directives ("@word ...", which the driver reads
// as it likes) and cases: runs of other lines. Each case is followed by its result, lines starting
// with "=>". The driver recomputes every result and the test compares the file as it would then
// read with the file as it is. GENOSTAT_UPDATE_GOLDEN=1 writes the recomputed file instead: review
// it with git diff before committing it.
//
// In cases, {CR}, {LF}, {TAB} and {xHH} stand for bytes an editor would hide or mangle; results show
// control characters the same way.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace golden {

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

inline std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

inline std::string unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    size_t close = text[i] == '{' ? text.find('}', i) : std::string::npos;
    std::string name = close == std::string::npos ? "" : text.substr(i + 1, close - i - 1);
    if (name == "CR" || name == "LF" || name == "TAB") {
      out += name == "CR" ? '\r' : name == "LF" ? '\n' : '\t';
    } else if (name.size() == 3 && name[0] == 'x') {
      out += static_cast<char>(std::stoi(name.substr(1), nullptr, 16));
    } else {
      out += text[i];
      continue;
    }
    i = close;
  }
  return out;
}

inline std::string escape(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "{x%02X}", c);
    if (c == '\r' || c == '\n' || c == '\t') {
      out += c == '\r' ? "{CR}" : c == '\n' ? "{LF}" : "{TAB}";
    } else {
      out += c < 0x20 || c == 0x7F ? hex : std::string(1, static_cast<char>(c));
    }
  }
  return out;
}

// `run(directive, text)` gives the result of a case (`text`, unescaped, under the last directive
// line) or, with `text` null, of the directive line itself. Results are lines; "" gives none.
using Runner = std::function<std::string(const std::string& directive, const std::string* text)>;

inline void check(const std::string& path, const Runner& run) {
  const std::string before = readFile(path);
  ASSERT_FALSE(before.empty()) << "cannot read " << path;
  std::string after, directive, text;
  bool inCase = false;
  auto emit = [&after](const std::string& result) {
    for (const auto& line : lines(result)) after += line.empty() ? "=>\n" : "=> " + line + "\n";
  };
  auto endCase = [&] {
    if (inCase) emit(run(directive, &text));
    inCase = false;
    text.clear();
  };
  std::istringstream in(before);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("=>", 0) == 0) continue;
    if (line.empty() || line[0] == '#' || line[0] == '@') {
      endCase();
      after += line + "\n";
      if (!line.empty() && line[0] == '@') emit(run(directive = line, nullptr));
      continue;
    }
    text += (inCase ? "\n" : "") + unescape(line);
    inCase = true;
    after += line + "\n";
  }
  endCase();
  const char* update = std::getenv("GENOSTAT_UPDATE_GOLDEN");
  if (update && *update) {
    std::ofstream(path, std::ios::binary) << after;
    std::printf("rewrote %s: review it with git diff\n", path.c_str());
    return;
  }
  // The first difference, with the case it belongs to; the rest shows in git diff after rewriting.
  const std::vector<std::string> wanted = lines(before), got = lines(after);
  std::string context;  // the first line of the case, or the directive, that the line belongs to
  bool caseGoesOn = false;
  for (size_t i = 0; i < std::max(wanted.size(), got.size()); ++i) {
    const std::string w = i < wanted.size() ? wanted[i] : "(end of file)";
    const std::string g = i < got.size() ? got[i] : "(end of file)";
    if (w != g) {
      ADD_FAILURE() << path << ":" << i + 1 << " differs (GENOSTAT_UPDATE_GOLDEN=1 rewrites the file)\n  in: "
                    << context << "\n  expected: " << w << "\n  got:      " << g;
      return;
    }
    const bool caseLine = !w.empty() && w[0] != '#' && w[0] != '@' && w.rfind("=>", 0) != 0;
    if ((caseLine && !caseGoesOn) || (!w.empty() && w[0] == '@')) context = w;
    caseGoesOn = caseLine;
  }
}

}  // namespace golden
