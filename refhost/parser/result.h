// The parse result behind CommandSpec, SubComObj and ParamObj.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/parser.h"

namespace zorvhost {
namespace parser {

// One item of a parameter's value.
struct ValueItem {
  enum class Kind { Name, Keyword, Literal, Number };
  Kind kind = Kind::Name;
  std::string text;        // Name: as written; Keyword: upper case; Literal: unquoted; Number: as written
  double number = 0;       // Number
  bool integerForm = false;  // Number written as a run of digits
};

}  // namespace parser
}  // namespace zorvhost

struct ParamObj::Impl {
  std::string name;  // upper case
  std::vector<zorvhost::parser::ValueItem> items;
  std::vector<ParamObj> qualifier;  // at most one: the qualifier given (ADAPTERS=CUSTOM(acgt))
  bool pairs = false;               // items alternate name and keyword
};

struct SubComObj::Impl {
  Impl() = default;
  Impl(const Impl& other);
  Impl& operator=(const Impl& other);

  std::string name;  // upper case
  std::vector<std::unique_ptr<ParamObj>> params;
  std::unique_ptr<ParamObj> value;
};

struct CommandSpec::Impl {
  std::string name;  // upper case
  std::vector<std::string> leadingNames;
  std::vector<std::unique_ptr<SubComObj>> subcommands;

  void clear() {
    name.clear();
    leadingNames.clear();
    subcommands.clear();
  }
};
