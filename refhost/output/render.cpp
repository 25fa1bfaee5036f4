// Renderings of an OutputTable: aligned text, HTML and the one-line JSON event.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "zorvhost/output.h"

namespace zorvhost {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one UTF-8 sequence at s[i], advancing i. Anything that is not a well-formed, shortest
// encoding of a scalar value yields U+FFFD and consumes one byte, so a stray byte never swallows
// the characters after it.
char32_t decodeOne(const std::string& s, std::size_t& i) {
  const auto b0 = static_cast<unsigned char>(s[i]);
  if (b0 < 0x80) {
    ++i;
    return b0;
  }
  int extra;
  char32_t cp;
  char32_t minimum;
  if ((b0 & 0xE0) == 0xC0) {
    extra = 1, cp = b0 & 0x1F, minimum = 0x80;
  } else if ((b0 & 0xF0) == 0xE0) {
    extra = 2, cp = b0 & 0x0F, minimum = 0x800;
  } else if ((b0 & 0xF8) == 0xF0) {
    extra = 3, cp = b0 & 0x07, minimum = 0x10000;
  } else {
    ++i;
    return kReplacement;
  }
  if (i + static_cast<std::size_t>(extra) >= s.size()) {  // truncated at the end of the text
    ++i;
    return kReplacement;
  }
  for (int k = 1; k <= extra; ++k) {
    const auto b = static_cast<unsigned char>(s[i + static_cast<std::size_t>(k)]);
    if ((b & 0xC0) != 0x80) {
      ++i;
      return kReplacement;
    }
    cp = (cp << 6) | (b & 0x3F);
  }
  if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
    ++i;
    return kReplacement;
  }
  i += static_cast<std::size_t>(extra) + 1;
  return cp;
}

std::vector<char32_t> decode(const std::string& s) {
  std::vector<char32_t> out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) out.push_back(decodeOne(s, i));
  return out;
}

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// Well-formed UTF-8: every invalid byte replaced by U+FFFD.
std::string validUtf8(const std::string& s) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) appendUtf8(out, decodeOne(s, i));
  return out;
}

bool isControl(char32_t cp) { return cp < 0x20 || (cp >= 0x7F && cp < 0xA0); }

bool inRange(char32_t cp, char32_t lo, char32_t hi) { return cp >= lo && cp <= hi; }

// Columns a terminal gives the character: enough of the usual tables to keep Latin, Greek and
// Cyrillic texts with combining accents, and CJK texts, aligned.
int displayWidth(char32_t cp) {
  if (isControl(cp)) return 0;
  if (inRange(cp, 0x0300, 0x036F) || inRange(cp, 0x1AB0, 0x1AFF) || inRange(cp, 0x1DC0, 0x1DFF) ||
      inRange(cp, 0x20D0, 0x20FF) || inRange(cp, 0xFE20, 0xFE2F) || inRange(cp, 0x200B, 0x200F) ||
      cp == 0xFEFF) {
    return 0;
  }
  if (inRange(cp, 0x1100, 0x115F) || inRange(cp, 0x2E80, 0x303E) || inRange(cp, 0x3041, 0xA4CF) ||
      inRange(cp, 0xAC00, 0xD7A3) || inRange(cp, 0xF900, 0xFAFF) || inRange(cp, 0xFE30, 0xFE4F) ||
      inRange(cp, 0xFF00, 0xFF60) || inRange(cp, 0xFFE0, 0xFFE6) || inRange(cp, 0x1F300, 0x1F64F) ||
      inRange(cp, 0x1F900, 0x1F9FF) || inRange(cp, 0x20000, 0x3FFFD)) {
    return 2;
  }
  return 1;
}

// A text as the lines a text table shows: split at line breaks (\n, \r\n, lone \r), every other
// control character shown as a blank, invalid bytes as U+FFFD.
struct ShownText {
  std::vector<std::string> lines;
  std::vector<int> widths;
  int width = 0;
};

ShownText shownText(const std::string& s) {
  ShownText t;
  std::string line;
  int w = 0;
  auto endLine = [&] {
    t.lines.push_back(line);
    t.widths.push_back(w);
    t.width = std::max(t.width, w);
    line.clear();
    w = 0;
  };
  const std::vector<char32_t> cps = decode(s);
  for (std::size_t i = 0; i < cps.size(); ++i) {
    const char32_t cp = cps[i];
    if (cp == '\n' || cp == '\r') {
      if (cp == '\r' && i + 1 < cps.size() && cps[i + 1] == '\n') ++i;
      endLine();
    } else if (isControl(cp)) {
      line += ' ';
      ++w;
    } else {
      appendUtf8(line, cp);
      w += displayWidth(cp);
    }
  }
  endLine();
  return t;
}

// A plain decimal number as a procedure writes one: optional sign, digits with an optional
// fraction, optional exponent. Such cells are right-aligned.
bool looksNumeric(const std::string& s) {
  std::size_t i = 0;
  if (i < s.size() && (s[i] == '-' || s[i] == '+')) ++i;
  std::size_t digits = 0;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++digits;
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++digits;
  }
  if (digits == 0) return false;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    ++i;
    if (i < s.size() && (s[i] == '-' || s[i] == '+')) ++i;
    std::size_t expDigits = 0;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++expDigits;
    if (expDigits == 0) return false;
  }
  return i == s.size();
}

// The table as a rectangular grid: row 0 is the header (corner, column labels), column 0 the row
// labels; short rows and missing labels are filled with empty texts.
struct Grid {
  std::size_t dataColumns = 0;
  std::vector<std::vector<std::string>> rows;  // header first
  bool headerShown = false;
};

Grid gridOf(const OutputTable& t) {
  Grid g;
  g.dataColumns = t.columnLabels.size();
  for (const auto& r : t.cells) g.dataColumns = std::max(g.dataColumns, r.size());
  const std::size_t bodyRows = std::max(t.rowLabels.size(), t.cells.size());

  std::vector<std::string> header(g.dataColumns + 1);
  if (t.showRowDimensionLabel) header[0] = t.rowDimensionLabel;
  for (std::size_t c = 0; c < t.columnLabels.size(); ++c) header[c + 1] = t.columnLabels[c];
  g.headerShown = std::any_of(header.begin(), header.end(), [](const std::string& h) { return !h.empty(); });
  g.rows.push_back(std::move(header));

  for (std::size_t r = 0; r < bodyRows; ++r) {
    std::vector<std::string> row(g.dataColumns + 1);
    if (r < t.rowLabels.size()) row[0] = t.rowLabels[r];
    if (r < t.cells.size()) {
      for (std::size_t c = 0; c < t.cells[r].size(); ++c) row[c + 1] = t.cells[r][c];
    }
    g.rows.push_back(std::move(row));
  }
  return g;
}

struct Rules {
  const char* horizontal;
  const char* vertical;
  const char* corners[3][3];  // [top, middle, bottom][left, inner, right]
};

constexpr Rules kBox{"─", "│", {{"┌", "┬", "┐"}, {"├", "┼", "┤"}, {"└", "┴", "┘"}}};
constexpr Rules kAscii{"-", "|", {{"+", "+", "+"}, {"+", "+", "+"}, {"+", "+", "+"}}};

std::string repeat(const char* piece, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += piece;
  return out;
}

enum class Align { Left, Right, Center };

std::string padded(const std::string& line, int lineWidth, int width, Align align) {
  const int room = std::max(0, width - lineWidth);
  int left = 0;
  if (align == Align::Right) left = room;
  if (align == Align::Center) left = room / 2;
  return std::string(static_cast<std::size_t>(left), ' ') + line +
         std::string(static_cast<std::size_t>(room - left), ' ');
}

}  // namespace

std::string renderTableText(const OutputTable& table) { return renderTableText(table, TextRules::Box); }

std::string renderTableText(const OutputTable& table, TextRules rules) {
  const Rules& r = rules == TextRules::Box ? kBox : kAscii;
  std::string out;
  if (!table.hideTitle) {
    for (const auto& line : shownText(table.title).lines) out += line + "\n";
  }

  const Grid g = gridOf(table);
  const std::size_t columns = g.dataColumns + 1;
  std::vector<std::vector<ShownText>> shown;
  std::vector<int> widths(columns, 0);
  for (std::size_t i = 0; i < g.rows.size(); ++i) {
    std::vector<ShownText> row;
    for (std::size_t c = 0; c < columns; ++c) {
      row.push_back(shownText(g.rows[i][c]));
      if (i > 0 || g.headerShown) widths[c] = std::max(widths[c], row.back().width);
    }
    shown.push_back(std::move(row));
  }

  auto rule = [&](int which) {
    std::string line = r.corners[which][0];
    for (std::size_t c = 0; c < columns; ++c) {
      if (c > 0) line += r.corners[which][1];
      line += repeat(r.horizontal, widths[c] + 2);
    }
    return line + r.corners[which][2] + "\n";
  };
  auto textRow = [&](std::size_t i) {
    std::size_t height = 1;
    for (const auto& cell : shown[i]) height = std::max(height, cell.lines.size());
    std::string lines;
    for (std::size_t l = 0; l < height; ++l) {
      std::string line = r.vertical;
      for (std::size_t c = 0; c < columns; ++c) {
        const ShownText& cell = shown[i][c];
        Align align = Align::Left;
        if (i == 0 && c > 0) align = Align::Center;
        if (i > 0 && c > 0 && looksNumeric(g.rows[i][c])) align = Align::Right;
        const bool has = l < cell.lines.size();
        line += " " + padded(has ? cell.lines[l] : "", has ? cell.widths[l] : 0, widths[c], align) + " ";
        line += r.vertical;
      }
      lines += line + "\n";
    }
    return lines;
  };

  out += rule(0);
  if (g.headerShown) {
    out += textRow(0);
    if (g.rows.size() > 1) out += rule(1);
  }
  for (std::size_t i = 1; i < g.rows.size(); ++i) out += textRow(i);
  out += rule(2);
  return out;
}

// ---- HTML -------------------------------------------------------------------------------------

std::string htmlEscape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const char32_t cp = decodeOne(text, i);
    switch (cp) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default:
        if (isControl(cp) && cp != '\t' && cp != '\n' && cp != '\r') break;
        appendUtf8(out, cp);
    }
  }
  return out;
}

namespace {

// Escaped, with each line break (\n, \r\n, lone \r) as <br>.
std::string htmlText(const std::string& text) {
  const std::string escaped = htmlEscape(text);
  std::string out;
  for (std::size_t i = 0; i < escaped.size(); ++i) {
    if (escaped[i] == '\r' || escaped[i] == '\n') {
      if (escaped[i] == '\r' && i + 1 < escaped.size() && escaped[i + 1] == '\n') ++i;
      out += "<br>";
    } else {
      out += escaped[i];
    }
  }
  return out;
}

}  // namespace

std::string renderTableHtml(const OutputTable& table) {
  const Grid g = gridOf(table);
  // The frame scrolls a wide table sideways on a narrow screen instead of squeezing its cells.
  std::string out = "<div class=\"zorv-frame\"><table class=\"zorv-table\">\n";
  if (!table.hideTitle) out += "<caption>" + htmlText(table.title) + "</caption>\n";
  if (g.headerShown) {
    out += "<thead><tr>";
    for (std::size_t c = 0; c < g.rows[0].size(); ++c) {
      out += c == 0 ? "<th class=\"zorv-corner\">" : "<th scope=\"col\">";
      out += htmlText(g.rows[0][c]) + "</th>";
    }
    out += "</tr></thead>\n";
  }
  out += "<tbody>\n";
  for (std::size_t i = 1; i < g.rows.size(); ++i) {
    out += "<tr><th scope=\"row\">" + htmlText(g.rows[i][0]) + "</th>";
    for (std::size_t c = 1; c < g.rows[i].size(); ++c) {
      const std::string& text = g.rows[i][c];
      // QC verdicts are coloured wherever they appear: pass, warn and fail read at a glance.
      if (text == "pass" || text == "warn" || text == "fail") {
        out += "<td class=\"zorv-verdict zorv-" + text + "\">";
      } else {
        out += looksNumeric(text) ? "<td class=\"zorv-num\">" : "<td>";
      }
      out += htmlText(g.rows[i][c]) + "</td>";
    }
    out += "</tr>\n";
  }
  out += "</tbody>\n</table></div>\n";
  return out;
}

std::string htmlPageHeader(const std::string& title) {
  return "<!DOCTYPE html>\n"
         "<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" +
         htmlEscape(title) +
         "</title>\n<style>\n"
         "body { font-family: system-ui, sans-serif; margin: 1.5em; color: #222; }\n"
         "h2.zorv-procedure { font-size: 1.1em; margin: 1.5em 0 0.5em; }\n"
         "table.zorv-table { border-collapse: collapse; margin: 0.5em 0 1.5em; }\n"
         "table.zorv-table caption { font-weight: bold; text-align: left; padding-bottom: 0.3em; }\n"
         "table.zorv-table th, table.zorv-table td { border: 1px solid #999; padding: 0.2em 0.6em;"
         " vertical-align: top; }\n"
         "table.zorv-table thead th { background: #eee; }\n"
         "table.zorv-table tbody th { text-align: left; font-weight: normal; background: #f6f6f6; }\n"
         "table.zorv-table td.zorv-num { text-align: right; font-variant-numeric: tabular-nums; }\n"
         "p.zorv-error { color: #a00; }\n"
         "p.zorv-message { color: #555; }\n"
         "pre.zorv-command { background: #f4f4f4; padding: 0.4em; overflow-x: auto; }\n"
         "div.zorv-frame { overflow-x: auto; max-width: 100%; }\n"
         "td.zorv-pass { background: #d8f0d8; color: #14501a; }\n"
         "td.zorv-warn { background: #fbeec0; color: #6a4a00; }\n"
         "td.zorv-fail { background: #f6d0cc; color: #7a1410; font-weight: bold; }\n"
         "h2.zorv-job { border-bottom: 2px solid #2f4f75; padding-bottom: 0.2em; margin-top: 2em; }\n"
         "nav.zorv-outline { border: 1px solid #ccc; background: #fafafa; padding: 0.5em 1em; margin-bottom: 1.5em; }\n"
         "nav.zorv-outline ul { margin: 0.2em 0; padding-left: 1.2em; }\n"
         "nav.zorv-outline li.zorv-level2 { margin-left: 1.2em; }\n"
         "nav.zorv-outline li.zorv-level3 { margin-left: 2.4em; font-size: 0.9em; }\n"
         "details.zorv-generated { margin: 0.3em 0; color: #555; }\n"
         "details.zorv-generated summary { cursor: pointer; font-size: 0.9em; }\n"
         "figure.zorv-chart { margin: 0.5em 0 1.5em; }\n"
         "figure.zorv-chart svg { max-width: 100%; height: auto; }\n"
         "figure.zorv-chart figcaption { font-size: 0.9em; color: #555; }\n"
         "@media (max-width: 640px) { body { margin: 0.5em; } }\n"
         "@media print { body { margin: 0; } nav.zorv-outline { display: none; }"
         " details.zorv-generated { display: none; } h2.zorv-job { break-before: page; }"
         " table.zorv-table, figure.zorv-chart { break-inside: avoid; }"
         " td.zorv-pass, td.zorv-warn, td.zorv-fail { print-color-adjust: exact; -webkit-print-color-adjust: exact; } }\n"
         "</style>\n</head>\n<body>\n";
}

std::string htmlPageFooter() { return "</body>\n</html>\n"; }

// ---- JSON event -------------------------------------------------------------------------------

namespace {

using EventWriter = rapidjson::Writer<rapidjson::StringBuffer>;

void writeText(EventWriter& w, const std::string& s) {
  const std::string valid = validUtf8(s);
  w.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
}

void writeTexts(EventWriter& w, const std::vector<std::string>& list) {
  w.StartArray();
  for (const auto& s : list) writeText(w, s);
  w.EndArray();
}

}  // namespace

std::string tableEventJson(const OutputTable& table) {
  rapidjson::StringBuffer buffer;
  EventWriter w(buffer);
  w.StartObject();
  w.Key("event");
  w.String("table");
  w.Key("title");
  writeText(w, table.title);
  w.Key("column_labels");
  writeTexts(w, table.columnLabels);
  w.Key("row_labels");
  writeTexts(w, table.rowLabels);
  w.Key("cells");
  w.StartArray();
  for (const auto& row : table.cells) writeTexts(w, row);
  w.EndArray();
  w.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace zorvhost
