// Fuzzes the delimited text import: the first bytes choose the settings (delimiters, qualifier,
// first case line, percentage, decimal mark, declared variables), the rest is the file's text.
// Seed: refhost/tests/fuzz/corpus. Checks that a successful import is consistent: every variable holds one value per case, and
// its values are of its type.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "zorvhost/client.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  zorvhost::TextImportSettings s;
  const uint8_t flags = data[0];
  s.delimiters = (flags & 1) ? ",;" : ",";
  if (flags & 2) s.delimiters = "\\t";
  s.qualifier = (flags & 4) ? "\"" : ((flags & 8) ? "'" : "");
  s.decimal = (flags & 16) ? ',' : '.';
  s.firstCase = 1 + data[1] % 4;
  s.typeMinPercentage = data[2] % 101;
  const int declared = data[3] % 5;
  const char* formats[] = {"AUTO", "A8", "F8.2", "auto", "X"};
  for (int k = 0; k < declared; ++k) {
    s.variables.push_back({"v" + std::to_string(k), formats[(flags >> 5) % 5 == k ? 4 : k % 4]});
  }
  std::string text(reinterpret_cast<const char*>(data + 4), size - 4);

  zorvhost::DatasetData out;
  std::vector<std::string> notes;
  std::string error;
  if (!zorvhost::importDelimitedText(text, s, out, notes, error)) {
    if (error.empty()) std::abort();  // every refusal says why
    return 0;
  }
  for (const auto& v : out.variables) {
    if (v.name.empty()) std::abort();
    if (v.type == zorvhost::Variable::Type::Numeric) {
      if (v.numbers.size() != out.cases || !v.strings.empty()) std::abort();
      for (double x : v.numbers) {
        if (std::isinf(x)) std::abort();
      }
    } else if (v.strings.size() != out.cases || !v.numbers.empty()) {
      std::abort();
    }
  }
  if (declared > 0 && out.variables.size() != static_cast<size_t>(declared)) std::abort();
  return 0;
}
