// The parse result: CommandSpec, SubComObj, ParamObj and their getters.
//
// A getter answers by the kind of value the command actually gave, so that it returns false, and
// leaves its argument alone, whenever the value is of another kind.
#include "parser/result.h"

#include <climits>

#include "parser/text.h"

using zorvhost::parser::equalsNoCase;
using zorvhost::parser::toUpperAscii;
using zorvhost::parser::ValueItem;

namespace {

bool isWord(const ValueItem& item) {
  return item.kind == ValueItem::Kind::Name || item.kind == ValueItem::Kind::Keyword;
}

template <typename Pred>
bool allItems(const std::vector<ValueItem>& items, Pred pred) {
  if (items.empty()) return false;
  for (const auto& item : items) {
    if (!pred(item)) return false;
  }
  return true;
}

template <typename T>
std::unique_ptr<T> cloneOf(const std::unique_ptr<T>& p) {
  return p ? std::make_unique<T>(*p) : nullptr;
}

}  // namespace

// ---- ParamObj -------------------------------------------------------------------------------

ParamObj::ParamObj() : impl_(std::make_unique<Impl>()) {}
ParamObj::ParamObj(const ParamObj& other) : impl_(std::make_unique<Impl>(*other.impl_)) {}
ParamObj& ParamObj::operator=(const ParamObj& other) {
  if (this != &other) impl_ = std::make_unique<Impl>(*other.impl_);
  return *this;
}
ParamObj::~ParamObj() = default;

bool ParamObj::getIntegerValue(int& value) const {
  const auto& items = impl_->items;
  if (items.size() != 1 || items[0].kind != ValueItem::Kind::Number || !items[0].integerForm) {
    return false;
  }
  double v = items[0].number;
  if (v < static_cast<double>(INT_MIN) || v > static_cast<double>(INT_MAX)) return false;
  value = static_cast<int>(v);
  return true;
}

bool ParamObj::getNumberValue(double& value) const {
  const auto& items = impl_->items;
  if (items.size() != 1 || items[0].kind != ValueItem::Kind::Number) return false;
  value = items[0].number;
  return true;
}

bool ParamObj::getNumberList(std::vector<double>& values) const {
  const auto& items = impl_->items;
  if (!allItems(items, [](const ValueItem& i) { return i.kind == ValueItem::Kind::Number; })) {
    return false;
  }
  values.clear();
  for (const auto& item : items) values.push_back(item.number);
  return true;
}

bool ParamObj::getLiteral(std::string& value) const {
  const auto& items = impl_->items;
  if (items.size() != 1 || items[0].kind != ValueItem::Kind::Literal) return false;
  value = items[0].text;
  return true;
}

bool ParamObj::getLiteralList(std::vector<std::string>& values) const {
  const auto& items = impl_->items;
  if (!allItems(items, [](const ValueItem& i) { return i.kind == ValueItem::Kind::Literal; })) {
    return false;
  }
  values.clear();
  for (const auto& item : items) values.push_back(item.text);
  return true;
}

bool ParamObj::getStringList(std::vector<std::string>& values) const {
  const auto& items = impl_->items;
  if (!allItems(items, isWord)) return false;
  values.clear();
  for (const auto& item : items) values.push_back(item.text);
  return true;
}

bool ParamObj::getStringGeneric(std::string& value) const {
  const auto& items = impl_->items;
  if (items.empty() || !isWord(items[0])) return false;
  value = items[0].text;
  return true;
}

bool ParamObj::getUpStringGeneric(std::string& value) const {
  const auto& items = impl_->items;
  if (items.empty()) return false;
  value = toUpperAscii(items[0].text);
  return true;
}

bool ParamObj::getStringAndQual(ParamObj& qualifier) const {
  if (impl_->qualifier.empty()) return false;
  if (&qualifier != &impl_->qualifier.front()) qualifier = impl_->qualifier.front();
  return true;
}

std::string ParamObj::getParamName() const { return impl_->name; }

bool ParamObj::getNamePairs(std::vector<std::pair<std::string, std::string>>& pairs) const {
  const auto& items = impl_->items;
  if (!impl_->pairs || items.empty() || items.size() % 2 != 0) return false;
  pairs.clear();
  for (size_t i = 0; i + 1 < items.size(); i += 2) pairs.emplace_back(items[i].text, items[i + 1].text);
  return true;
}

// ---- SubComObj ------------------------------------------------------------------------------

SubComObj::Impl::Impl(const Impl& other) : name(other.name), value(cloneOf(other.value)) {
  for (const auto& p : other.params) params.push_back(cloneOf(p));
}

SubComObj::Impl& SubComObj::Impl::operator=(const Impl& other) {
  if (this != &other) {
    Impl copy(other);
    name = std::move(copy.name);
    params = std::move(copy.params);
    value = std::move(copy.value);
  }
  return *this;
}

SubComObj::SubComObj() : impl_(std::make_unique<Impl>()) {}
SubComObj::SubComObj(const SubComObj& other) : impl_(std::make_unique<Impl>(*other.impl_)) {}
SubComObj& SubComObj::operator=(const SubComObj& other) {
  if (this != &other) impl_ = std::make_unique<Impl>(*other.impl_);
  return *this;
}
SubComObj::~SubComObj() = default;

ParamObj* SubComObj::getParamObj(const char* name) const {
  if (!name) return nullptr;
  for (const auto& p : impl_->params) {
    if (equalsNoCase(p->impl().name, name)) return p.get();
  }
  if (impl_->value && equalsNoCase(impl_->value->impl().name, name)) return impl_->value.get();
  return nullptr;
}

std::vector<ParamObj*> SubComObj::getParamObjs(const char* name) const {
  std::vector<ParamObj*> out;
  if (!name) return out;
  for (const auto& p : impl_->params) {
    if (equalsNoCase(p->impl().name, name)) out.push_back(p.get());
  }
  return out;
}

ParamObj* SubComObj::getValueObj() const { return impl_->value.get(); }

std::string SubComObj::getSubComName() const { return impl_->name; }

// ---- CommandSpec ----------------------------------------------------------------------------

CommandSpec::CommandSpec() : impl_(std::make_unique<Impl>()) {}
CommandSpec::~CommandSpec() = default;

SubComObj* CommandSpec::getSubComObj(const char* name) const {
  if (!name) return nullptr;
  for (const auto& s : impl_->subcommands) {
    if (equalsNoCase(s->impl().name, name)) return s.get();
  }
  return nullptr;
}

std::vector<SubComObj*> CommandSpec::getSubComObjs(const char* name) const {
  std::vector<SubComObj*> out;
  if (!name) return out;
  for (const auto& s : impl_->subcommands) {
    if (equalsNoCase(s->impl().name, name)) out.push_back(s.get());
  }
  return out;
}

bool CommandSpec::getLeadingNames(std::vector<std::string>& names) const {
  if (impl_->leadingNames.empty()) return false;
  names = impl_->leadingNames;
  return true;
}
