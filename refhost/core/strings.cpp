// The reference host's string tables: FacSTDictionary and the language setting.
//
// Tables lie in <installFolder>/strings/<language>/: one file per procedure (<PROCEDURE>.txt, e.g.
// GENOSTAT.txt) and global.txt for texts shared by all procedures. A table is UTF-8 text, one entry
// per line:
//
//     key<TAB>text
//
// - The first TAB ends the key; everything after it, further TABs included, is the text.
// - Empty lines and lines whose first character is '#' are comments.
// - In key and text, "\n" stands for a line break, "\t" for a TAB and "\\" for a backslash; any
//   other character after a backslash is an error. Keys may hold blanks and punctuation
//   ("Valid:", "fastQ file(s) detected."), which is why the separator is a TAB.
// - A CR before the line break (a file saved with CRLF) and a UTF-8 byte-order mark at the start
//   of the file are dropped.
// - A line without TAB, with an empty key, with a bad escape or with bytes that are not UTF-8 is
//   left out; so is a second entry for a key already read (the first one stays). Every line left
//   out is named on standard error with its file and line number; the rest of the table loads.
//
// LookUp looks in the procedure's table, then in the global table, and falls back to the key.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "host/strings.h"
#include "zorvhost/client.h"

namespace {

std::mutex& languageMutex() {
  static std::mutex m;
  return m;
}

std::string& languageCode() {
  static std::string* code = new std::string("en");  // never destroyed: module threads read it
  return *code;
}

// True when [p, end) is well-formed UTF-8 (no overlong forms, no surrogates, at most U+10FFFF).
bool isUtf8(const std::string& s) {
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const auto* end = p + s.size();
  while (p < end) {
    unsigned char c = *p;
    int extra;
    unsigned long cp;
    if (c < 0x80) {
      ++p;
      continue;
    } else if (c >= 0xC2 && c <= 0xDF) {
      extra = 1;
      cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      extra = 2;
      cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      extra = 3;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (end - p <= extra) return false;
    for (int i = 1; i <= extra; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (p[i] & 0x3F);
    }
    if ((extra == 2 && cp < 0x800) || (extra == 3 && cp < 0x10000) || cp > 0x10FFFF ||
        (cp >= 0xD800 && cp <= 0xDFFF)) {
      return false;
    }
    p += extra + 1;
  }
  return true;
}

// Resolves the escapes of one field; false on a backslash that starts no known escape.
bool unescape(const std::string& in, std::string& out) {
  out.clear();
  for (size_t i = 0; i < in.size(); ++i) {
    if (in[i] != '\\') {
      out += in[i];
      continue;
    }
    if (++i == in.size()) return false;
    switch (in[i]) {
      case 'n': out += '\n'; break;
      case 't': out += '\t'; break;
      case '\\': out += '\\'; break;
      default: return false;
    }
  }
  return true;
}

using Table = std::map<std::string, std::string>;

// Loads one table file into `table`; a missing file leaves it empty (LookUp then gives the key).
void loadTableFile(const std::string& path, Table& table) {
  table.clear();
  std::ifstream in(std::filesystem::u8path(path), std::ios::binary);
  if (!in) return;
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) {
    std::fprintf(stderr, "zorvhost: cannot read string table %s\n", path.c_str());
    return;
  }
  std::vector<zorvhost::StringTableIssue> issues;
  zorvhost::parseStringTable(text.str(), table, issues);
  for (const auto& issue : issues) {
    std::fprintf(stderr, "zorvhost: %s:%d: %s; line ignored\n", path.c_str(), issue.line,
                 issue.problem.c_str());
  }
}

std::string tablePath(const std::string& installFolder, const std::string& file) {
  std::string base = installFolder;
  if (!base.empty() && base.back() != '/' && base.back() != '\\') base += '/';
  return base + "strings/" + zorvhost::language() + "/" + file;
}

}  // namespace

struct FacSTDictionary::Impl {
  std::string installFolder;
  Table procedure;
  Table global;
};

FacSTDictionary::FacSTDictionary(const std::string& installFolder) : impl_(new Impl) {
  impl_->installFolder = installFolder;
}

FacSTDictionary::~FacSTDictionary() = default;

void FacSTDictionary::SetProcedure(const char* procedure) {
  if (procedure == nullptr || *procedure == '\0') {
    impl_->procedure.clear();
    return;
  }
  loadTableFile(tablePath(impl_->installFolder, std::string(procedure) + ".txt"), impl_->procedure);
}

void FacSTDictionary::SetGlobalStringTable(const std::string& installFolder) {
  loadTableFile(tablePath(installFolder, "global.txt"), impl_->global);
}

std::string FacSTDictionary::LookUp(const std::string& key) const {
  auto it = impl_->procedure.find(key);
  if (it != impl_->procedure.end()) return it->second;
  it = impl_->global.find(key);
  if (it != impl_->global.end()) return it->second;
  return key;
}

namespace zorvhost {

void setLanguage(const std::string& code) {
  std::lock_guard<std::mutex> lock(languageMutex());
  languageCode() = code.empty() ? "en" : code;
}

std::string language() {
  std::lock_guard<std::mutex> lock(languageMutex());
  return languageCode();
}

bool parseStringTable(const std::string& text, std::map<std::string, std::string>& table,
                      std::vector<StringTableIssue>& issues) {
  const size_t issuesBefore = issues.size();
  size_t pos = 0;
  if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) pos = 3;
  int lineNo = 0;
  while (pos < text.size()) {
    size_t eol = text.find('\n', pos);
    if (eol == std::string::npos) eol = text.size();
    std::string line = text.substr(pos, eol - pos);
    pos = eol + 1;
    ++lineNo;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;

    auto leaveOut = [&](const char* problem) { issues.push_back({lineNo, problem}); };
    if (!isUtf8(line)) {
      leaveOut("not valid UTF-8");
      continue;
    }
    size_t tab = line.find('\t');
    if (tab == std::string::npos) {
      leaveOut("no tab between key and text");
      continue;
    }
    std::string key, value;
    if (!unescape(line.substr(0, tab), key) || !unescape(line.substr(tab + 1), value)) {
      leaveOut("unknown escape (only \\n, \\t and \\\\ are known)");
      continue;
    }
    if (key.empty()) {
      leaveOut("empty key");
      continue;
    }
    if (!table.emplace(std::move(key), std::move(value)).second) {
      leaveOut("key already defined above");
      continue;
    }
  }
  return issues.size() == issuesBefore;
}

}  // namespace zorvhost
