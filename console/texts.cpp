#include "texts.h"

#include <memory>

#include "host/strings.h"

namespace zorv {
namespace {
std::unique_ptr<FacSTDictionary>& table() {
  static std::unique_ptr<FacSTDictionary> dictionary;
  return dictionary;
}
}  // namespace

void loadTexts(const std::string& installFolder) {
  table() = std::make_unique<FacSTDictionary>(installFolder);
  table()->SetProcedure("zorv");
}

std::string tr(const std::string& english, std::initializer_list<std::string> args) {
  const std::string text = table() ? table()->LookUp(english) : english;
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '{' && i + 2 < text.size() && text[i + 2] == '}' && text[i + 1] >= '0' && text[i + 1] <= '9') {
      const size_t n = static_cast<size_t>(text[i + 1] - '0');
      if (n < args.size()) {
        out += *(args.begin() + n);
        i += 2;
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

}  // namespace zorv
