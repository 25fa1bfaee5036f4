// The host's import of delimited text (GET DATA /TYPE=TXT): UTF-8 text, one case per record,
// fields split at any of the delimiter characters and optionally enclosed in a qualifier, cases
// from a given line on, and each AUTO variable typed by its values.
//
// Typing: a value is a number when, blanks around it aside, it reads as an optional sign, digits
// with an optional fraction (or a fraction alone) after the session's decimal mark, and an
// optional exponent; "nan", "inf" and hexadecimal forms are not numbers. An AUTO variable is
// numeric when at least the given percentage of its non-empty values are numbers (and when it has
// no non-empty value at all), else it is a string variable. In a numeric variable an empty value
// is missing, and so is a value that is not a number; the latter are counted in a note, so that
// nothing is dropped without a word.
//
// Records: a qualified field may hold delimiters, line breaks and the qualifier doubled; after its
// closing qualifier only blanks may stand before the next delimiter. A line that is entirely empty
// holds no case. A record with more fields than there are variables is refused (its extra values
// would be lost); a shorter one leaves the rest of its variables empty.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "zorvhost/client.h"

namespace zorvhost {

namespace {

char upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c; }

std::string upperText(const std::string& s) {
  std::string out = s;
  for (char& c : out) c = upper(c);
  return out;
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string trimBlanks(const std::string& s) {
  size_t a = 0, b = s.size();
  while (a < b && isBlank(s[a])) ++a;
  while (b > a && isBlank(s[b - 1])) --b;
  return s.substr(a, b - a);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The offset of the first byte that does not belong to well-formed UTF-8, or npos.
size_t firstInvalidUtf8(const std::string& in) {
  const auto* s = reinterpret_cast<const unsigned char*>(in.data());
  size_t n = in.size(), i = 0;
  while (i < n) {
    unsigned char c = s[i];
    size_t len;
    unsigned long cp;
    if (c < 0x80) {
      ++i;
      continue;
    } else if (c >= 0xC2 && c <= 0xDF) {
      len = 2, cp = c & 0x1Fu;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3, cp = c & 0x0Fu;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4, cp = c & 0x07u;
    } else {
      return i;
    }
    if (i + len > n) return i;
    for (size_t k = 1; k < len; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) return i;
      cp = (cp << 6) | (s[i + k] & 0x3Fu);
    }
    if ((len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000) || cp > 0x10FFFF ||
        (cp >= 0xD800 && cp <= 0xDFFF)) {
      return i;
    }
    i += len;
  }
  return std::string::npos;
}

int lineOfOffset(const std::string& text, size_t offset) {
  int line = 1;
  for (size_t i = 0; i < offset && i < text.size(); ++i) {
    if (text[i] == '\n') ++line;
  }
  return line;
}

bool readNumber(const std::string& value, char decimal, double& out) {
  std::string s = trimBlanks(value);
  size_t i = 0, n = s.size();
  if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
  size_t intDigits = 0, fracDigits = 0;
  while (i < n && isDigit(s[i])) ++i, ++intDigits;
  if (i < n && s[i] == decimal) {
    ++i;
    while (i < n && isDigit(s[i])) ++i, ++fracDigits;
  }
  if (intDigits + fracDigits == 0) return false;
  if (i < n && (s[i] == 'e' || s[i] == 'E')) {
    ++i;
    if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
    size_t expDigits = 0;
    while (i < n && isDigit(s[i])) ++i, ++expDigits;
    if (expDigits == 0) return false;
  }
  if (i != n) return false;
  std::string plain = s[0] == '+' ? s.substr(1) : s;
  if (decimal != '.') {
    for (char& c : plain) {
      if (c == decimal) c = '.';
    }
  }
  double v = 0;
  auto result = std::from_chars(plain.data(), plain.data() + plain.size(), v);
  if (result.ec != std::errc() || result.ptr != plain.data() + plain.size()) return false;
  out = v;
  return true;
}

struct Record {
  int line;
  std::vector<std::string> fields;
};

struct Format {
  enum class Kind { Auto, String, Numeric } kind = Kind::Auto;
};

bool parseFormat(const std::string& word, Format& format) {
  std::string w = upperText(word);
  if (w == "AUTO") {
    format.kind = Format::Kind::Auto;
    return true;
  }
  size_t i = 1;
  auto digits = [&] {
    size_t start = i;
    while (i < w.size() && isDigit(w[i])) ++i;
    return i > start;
  };
  if (!w.empty() && w[0] == 'A') {
    if (!digits() || i != w.size()) return false;
    format.kind = Format::Kind::String;
    return true;
  }
  if (!w.empty() && w[0] == 'F') {
    if (!digits()) return false;
    if (i < w.size() && w[i] == '.') {
      ++i;
      if (!digits()) return false;
    }
    if (i != w.size()) return false;
    format.kind = Format::Kind::Numeric;
    return true;
  }
  return false;
}

// Splits `text` from `pos` into records. Lines before `firstCase` are handed out separately so
// that the caller can read names from the last of them.
class RecordReader {
 public:
  RecordReader(const std::string& text, const std::string& delimiters, char qualifier, bool haveQualifier)
      : text_(text), delimiters_(delimiters), qualifier_(qualifier), haveQualifier_(haveQualifier) {}

  // Skips whole physical lines (no qualifier honoured) and returns the last one skipped.
  std::string skipLines(int count) {
    std::string last;
    for (int k = 0; k < count && pos_ < text_.size(); ++k) {
      size_t eol = text_.find('\n', pos_);
      size_t end = eol == std::string::npos ? text_.size() : eol;
      last = text_.substr(pos_, end - pos_);
      if (!last.empty() && last.back() == '\r') last.pop_back();
      pos_ = eol == std::string::npos ? text_.size() : eol + 1;
      ++line_;
    }
    return last;
  }

  // The next record; false at the end of the text, or on a fault (then `error` is set).
  bool next(Record& record, std::string& error) {
    for (;;) {
      if (pos_ >= text_.size()) return false;
      if (text_[pos_] == '\n') {  // an entirely empty line holds no case
        ++pos_;
        ++line_;
        continue;
      }
      break;
    }
    record.line = line_;
    record.fields.clear();
    std::string field;
    for (;;) {
      field.clear();
      if (haveQualifier_ && pos_ < text_.size() && text_[pos_] == qualifier_) {
        ++pos_;
        bool closed = false;
        while (pos_ < text_.size()) {
          char c = text_[pos_++];
          if (c == qualifier_) {
            if (pos_ < text_.size() && text_[pos_] == qualifier_) {
              field += c;
              ++pos_;
              continue;
            }
            closed = true;
            break;
          }
          if (c == '\n') ++line_;
          field += c;
        }
        if (!closed) {
          error = "line " + std::to_string(record.line) + ": field " +
                  std::to_string(record.fields.size() + 1) + " opens a qualified value that is not closed";
          return false;
        }
        while (pos_ < text_.size() && isBlank(text_[pos_])) ++pos_;
        if (pos_ < text_.size() && !isDelimiter(text_[pos_]) && !atLineEnd()) {
          error = "line " + std::to_string(line_) + ": field " + std::to_string(record.fields.size() + 1) +
                  " has text after its closing qualifier";
          return false;
        }
      } else {
        while (pos_ < text_.size() && !isDelimiter(text_[pos_]) && !atLineEnd()) field += text_[pos_++];
      }
      record.fields.push_back(field);
      if (pos_ < text_.size() && isDelimiter(text_[pos_])) {
        ++pos_;
        continue;
      }
      // End of the record: a line break (CR LF or LF) or the end of the text.
      if (pos_ < text_.size() && text_[pos_] == '\r') ++pos_;
      if (pos_ < text_.size() && text_[pos_] == '\n') ++pos_;
      ++line_;
      return true;
    }
  }

 private:
  bool isDelimiter(char c) const { return delimiters_.find(c) != std::string::npos; }
  bool atLineEnd() const {
    if (text_[pos_] == '\n') return true;
    return text_[pos_] == '\r' && (pos_ + 1 == text_.size() || text_[pos_ + 1] == '\n');
  }

  const std::string& text_;
  std::string delimiters_;
  char qualifier_;
  bool haveQualifier_;
  size_t pos_ = 0;
  int line_ = 1;
};

bool fail(std::string& error, std::string text) {
  error = std::move(text);
  return false;
}

}  // namespace

bool importDelimitedText(const std::string& content, const TextImportSettings& settings, DatasetData& data,
                         std::vector<std::string>& notes, std::string& error) {
  std::string encoding = upperText(settings.encoding);
  if (encoding != "UTF8" && encoding != "UTF-8") {
    return fail(error, "encoding '" + settings.encoding + "' is not supported; the import reads UTF8");
  }
  std::string delimiters;
  for (size_t i = 0; i < settings.delimiters.size(); ++i) {
    if (settings.delimiters[i] == '\\' && i + 1 < settings.delimiters.size() && settings.delimiters[i + 1] == 't') {
      delimiters += '\t';
      ++i;
    } else {
      delimiters += settings.delimiters[i];
    }
  }
  if (delimiters.empty()) return fail(error, "no delimiter is given");
  for (char c : delimiters) {
    if (c == '\n' || c == '\r') return fail(error, "a line break cannot be a delimiter");
    if (static_cast<unsigned char>(c) >= 0x80) return fail(error, "delimiters must be ASCII characters");
  }
  if (settings.qualifier.size() > 1) {
    return fail(error, "the qualifier must be one character, not '" + settings.qualifier + "'");
  }
  bool haveQualifier = settings.qualifier.size() == 1;
  char qualifier = haveQualifier ? settings.qualifier[0] : '\0';
  if (haveQualifier) {
    if (static_cast<unsigned char>(qualifier) >= 0x80 || qualifier == '\n' || qualifier == '\r') {
      return fail(error, "the qualifier must be an ASCII character other than a line break");
    }
    if (delimiters.find(qualifier) != std::string::npos) {
      return fail(error, "the qualifier cannot also be a delimiter");
    }
  }
  if (settings.firstCase < 1) {
    return fail(error, "the first case line must be 1 or more, not " + std::to_string(settings.firstCase));
  }
  if (!(settings.typeMinPercentage >= 0.0 && settings.typeMinPercentage <= 100.0)) {
    return fail(error, "the type percentage must lie between 0 and 100");
  }
  if (settings.decimal != '.' && settings.decimal != ',') {
    return fail(error, "the decimal mark must be '.' or ','");
  }

  std::vector<Format> formats;
  for (const auto& v : settings.variables) {
    Format f;
    if (v.name.empty()) return fail(error, "a variable has no name");
    if (!parseFormat(v.format, f)) {
      return fail(error, "variable " + v.name + ": format '" + v.format +
                             "' is not known (AUTO, A<width>, F<width>.<decimals>)");
    }
    formats.push_back(f);
  }

  std::string text = content;
  if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
  size_t bad = firstInvalidUtf8(text);
  if (bad != std::string::npos) {
    return fail(error, "line " + std::to_string(lineOfOffset(text, bad)) + " is not valid UTF-8");
  }

  RecordReader reader(text, delimiters, qualifier, haveQualifier);
  std::string header = reader.skipLines(settings.firstCase - 1);
  std::vector<Record> records;
  Record record;
  size_t widest = 0;
  std::string readError;
  while (reader.next(record, readError)) {
    widest = std::max(widest, record.fields.size());
    records.push_back(record);
  }
  if (!readError.empty()) return fail(error, readError);

  std::vector<std::string> names;
  if (!settings.variables.empty()) {
    for (const auto& v : settings.variables) names.push_back(v.name);
  } else {
    std::vector<std::string> headerNames;
    if (settings.firstCase > 1 && !header.empty()) {
      RecordReader headerReader(header, delimiters, qualifier, haveQualifier);
      Record h;
      std::string headerError;
      if (!headerReader.next(h, headerError)) {
        return fail(error, "the names on line " + std::to_string(settings.firstCase - 1) +
                               " cannot be read: " + headerError);
      }
      for (auto& n : h.fields) headerNames.push_back(trimBlanks(n));
    }
    size_t count = std::max(widest, headerNames.size());
    for (size_t k = 0; k < count; ++k) {
      std::string n = k < headerNames.size() ? headerNames[k] : std::string();
      names.push_back(n.empty() ? "V" + std::to_string(k + 1) : n);
    }
    formats.assign(count, Format());
  }
  for (size_t a = 0; a < names.size(); ++a) {
    for (size_t b = 0; b < a; ++b) {
      if (upperText(names[a]) == upperText(names[b])) {
        return fail(error, "variable name " + names[a] + " is given twice");
      }
    }
  }
  for (const auto& r : records) {
    if (r.fields.size() > names.size()) {
      return fail(error, "line " + std::to_string(r.line) + " holds " + std::to_string(r.fields.size()) +
                             " values, more than the " + std::to_string(names.size()) + " variables");
    }
  }

  DatasetData out;
  out.cases = records.size();
  for (size_t k = 0; k < names.size(); ++k) {
    Variable var;
    var.name = names[k];
    auto cell = [&](const Record& r) -> const std::string& {
      static const std::string empty;
      return k < r.fields.size() ? r.fields[k] : empty;
    };
    bool numeric;
    if (formats[k].kind == Format::Kind::Auto) {
      size_t nonEmpty = 0, numbers = 0;
      double ignored;
      for (const auto& r : records) {
        const std::string& v = cell(r);
        if (trimBlanks(v).empty()) continue;
        ++nonEmpty;
        if (readNumber(v, settings.decimal, ignored)) ++numbers;
      }
      numeric = nonEmpty == 0 ||
                static_cast<double>(numbers) * 100.0 >= settings.typeMinPercentage * static_cast<double>(nonEmpty);
    } else {
      numeric = formats[k].kind == Format::Kind::Numeric;
    }
    if (numeric) {
      var.type = Variable::Type::Numeric;
      size_t lost = 0;
      int firstLostLine = 0;
      std::string firstLost;
      for (const auto& r : records) {
        const std::string& v = cell(r);
        double x = std::numeric_limits<double>::quiet_NaN();
        if (!trimBlanks(v).empty() && !readNumber(v, settings.decimal, x)) {
          if (lost++ == 0) {
            firstLostLine = r.line;
            firstLost = v;
          }
          x = std::numeric_limits<double>::quiet_NaN();
        }
        var.numbers.push_back(x);
      }
      if (lost > 0) {
        notes.push_back("variable " + var.name + ": " + std::to_string(lost) +
                        (lost == 1 ? " value is" : " values are") +
                        " not a number and read as missing (first on line " + std::to_string(firstLostLine) +
                        ": '" + firstLost + "')");
      }
    } else {
      var.type = Variable::Type::String;
      for (const auto& r : records) var.strings.push_back(cell(r));
    }
    out.variables.push_back(std::move(var));
  }
  data = std::move(out);
  return true;
}

bool importDelimitedFile(const std::string& path, const TextImportSettings& settings, DatasetData& data,
                         std::vector<std::string>& notes, std::string& error) {
  std::FILE* f = platform::openFile(path, "rb");
  if (f == nullptr) return fail(error, "cannot open " + path + ": " + std::strerror(errno));
  std::string content;
  char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) content.append(buf, n);
  bool readError = std::ferror(f) != 0;
  int err = errno;
  std::fclose(f);
  if (readError) return fail(error, "cannot read " + path + ": " + std::strerror(err));
  std::string why;
  if (!importDelimitedText(content, settings, data, notes, why)) return fail(error, path + ": " + why);
  return true;
}

}  // namespace zorvhost
