// Fuzzer of the output road: arbitrary bytes as a procedure JSON through the converter, and as the
// texts of a table through every rendering. Checks that nothing crashes and that the event is
// always valid UTF-8 JSON of the five documented members.
#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/output.h"
#include "host/procedure.h"
#include "zorvhost/client.h"
#include "zorvhost/output.h"

namespace {

void checkEvent(const zorvhost::OutputTable& t) {
  const std::string event = zorvhost::tableEventJson(t);
  rapidjson::Document doc;
  doc.Parse<rapidjson::kParseValidateEncodingFlag>(event.data(), event.size());
  if (doc.HasParseError() || !doc.IsObject() || doc.MemberCount() != 5 ||
      event.find('\n') != std::string::npos) {
    std::abort();
  }
}

void renderAll(const zorvhost::OutputTable& t) {
  (void)zorvhost::renderTableText(t);
  (void)zorvhost::renderTableText(t, zorvhost::TextRules::Ascii);
  if (zorvhost::renderTableHtml(t).find("<script") != std::string::npos) std::abort();
  checkEvent(t);
}

// Bytes split at 0x1E into rows and at 0x1F into texts: row 0 the title and column labels, then
// one row per line whose first text is its label.
zorvhost::OutputTable tableOf(const std::string& data) {
  zorvhost::OutputTable t;
  std::vector<std::vector<std::string>> rows(1);
  rows.back().emplace_back();
  for (char c : data) {
    if (c == '\x1E') {
      rows.emplace_back();
      rows.back().emplace_back();
    } else if (c == '\x1F') {
      rows.back().emplace_back();
    } else {
      rows.back().back() += c;
    }
  }
  t.title = rows[0][0];
  t.columnLabels.assign(rows[0].begin() + 1, rows[0].end());
  for (std::size_t r = 1; r < rows.size(); ++r) {
    t.rowLabels.push_back(rows[r][0]);
    t.cells.emplace_back(rows[r].begin() + 1, rows[r].end());
  }
  t.hideTitle = data.size() % 2 == 1;
  t.rowDimensionLabel = t.title;
  return t;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool installed = [] {
    zorvhost::setOutputHandler(renderAll);
    return true;
  }();
  (void)installed;
  const std::string text(reinterpret_cast<const char*>(data), size);
  BpProcedure procedure("GENOSTAT", 0);
  StatJSONConverter converter(&procedure);
  converter.generateOutput(text);
  (void)zorvhost::takeCommandErrors();
  renderAll(tableOf(text));
  return 0;
}
