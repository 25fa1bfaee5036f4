// Descriptors of a command's grammar: what a procedure declares before it runs the parser.
#include "parser/grammar.h"

#include "parser/text.h"

using zorvhost::parser::equalsNoCase;
using zorvhost::parser::toUpperAscii;

namespace {

std::string nameOf(const char* name) { return toUpperAscii(name ? name : ""); }

}  // namespace

// ---- ParamDescriptor ------------------------------------------------------------------------

const std::string* ParamDescriptor::Impl::findValue(const std::string& word) const {
  for (const auto& v : values) {
    if (equalsNoCase(v, word)) return &v;
  }
  return nullptr;
}

const ParamDescriptor* ParamDescriptor::Impl::findQualifier(const std::string& word) const {
  for (const auto& q : qualifiers) {
    if (equalsNoCase(q.impl().name, word)) return &q;
  }
  return nullptr;
}

std::string ParamDescriptor::Impl::allowedList() const {
  std::string out;
  auto add = [&out](const std::string& word) {
    if (!out.empty()) out += ", ";
    out += word;
  };
  for (const auto& v : values) add(v);
  for (const auto& q : qualifiers) add(q.impl().name);
  return out;
}

ParamDescriptor::ParamDescriptor(const char* name, UPSpecTypes::ParamSpec spec, bool flag1,
                                 bool flag2, UPSpecTypes::BracketOptions brackets)
    : impl_(std::make_unique<Impl>()) {
  impl_->name = nameOf(name);
  impl_->spec = spec;
  impl_->restricted = flag1;
  impl_->valueRequired = flag2;
  impl_->brackets = brackets;
}

ParamDescriptor::ParamDescriptor(const ParamDescriptor& other)
    : impl_(std::make_unique<Impl>(*other.impl_)) {}

ParamDescriptor& ParamDescriptor::operator=(const ParamDescriptor& other) {
  if (this != &other) impl_ = std::make_unique<Impl>(*other.impl_);
  return *this;
}

ParamDescriptor::~ParamDescriptor() = default;

void ParamDescriptor::addStringValue(const char* text) { impl_->values.push_back(nameOf(text)); }

void ParamDescriptor::addQualifDesc(const char* text) {
  impl_->qualifiers.emplace_back(text, UPSpecTypes::ParamSwitch, false, false,
                                 UPSpecTypes::NoBrackets);
}

void ParamDescriptor::addQualifDesc(const ParamDescriptor& qualifier) {
  impl_->qualifiers.push_back(qualifier);
}

void ParamDescriptor::setRepeatable(bool repeatable) { impl_->repeatable = repeatable; }

// ---- SubComDescriptor -----------------------------------------------------------------------

const ParamDescriptor* SubComDescriptor::Impl::findParam(const std::string& word) const {
  for (const auto& p : params) {
    if (equalsNoCase(p.impl().name, word)) return &p;
  }
  return nullptr;
}

SubComDescriptor::SubComDescriptor(const char* name, UPSpecTypes::SubComSpec spec, bool flag1,
                                   bool flag2)
    : impl_(std::make_unique<Impl>()) {
  impl_->name = nameOf(name);
  impl_->spec = spec;
  impl_->required = flag1;
  impl_->repeatable = flag2;
}

SubComDescriptor::SubComDescriptor(const SubComDescriptor& other)
    : impl_(std::make_unique<Impl>(*other.impl_)) {}

SubComDescriptor& SubComDescriptor::operator=(const SubComDescriptor& other) {
  if (this != &other) impl_ = std::make_unique<Impl>(*other.impl_);
  return *this;
}

SubComDescriptor::~SubComDescriptor() = default;

void SubComDescriptor::addParamDesc(const ParamDescriptor& param) {
  impl_->params.push_back(param);
}

void SubComDescriptor::setValueDesc(const ParamDescriptor& value) {
  impl_->value.clear();
  impl_->value.push_back(value);
}

// ---- CommandDescriptor ----------------------------------------------------------------------

const SubComDescriptor* CommandDescriptor::Impl::findSubCom(const std::string& word) const {
  for (const auto& s : subcommands) {
    if (equalsNoCase(s.impl().name, word)) return &s;
  }
  return nullptr;
}

CommandDescriptor::CommandDescriptor(const char* name) : impl_(std::make_unique<Impl>()) {
  // "get  data" and "GET DATA" declare the same command: keep the words, joined by one blank.
  std::string upper = nameOf(name);
  std::string word;
  for (char c : upper) {
    if (c == ' ' || c == '\t') {
      if (!word.empty()) impl_->words.push_back(word);
      word.clear();
    } else {
      word.push_back(c);
    }
  }
  if (!word.empty()) impl_->words.push_back(word);
  for (const auto& w : impl_->words) {
    if (!impl_->name.empty()) impl_->name += ' ';
    impl_->name += w;
  }
}

CommandDescriptor::CommandDescriptor(const CommandDescriptor& other)
    : impl_(std::make_unique<Impl>(*other.impl_)) {}

CommandDescriptor& CommandDescriptor::operator=(const CommandDescriptor& other) {
  if (this != &other) impl_ = std::make_unique<Impl>(*other.impl_);
  return *this;
}

CommandDescriptor::~CommandDescriptor() = default;

void CommandDescriptor::addSubComDesc(const SubComDescriptor& subcommand) {
  impl_->subcommands.push_back(subcommand);
}

void CommandDescriptor::setLeadingNames(int minCount, int maxCount) {
  impl_->minLeadingNames = minCount < 0 ? 0 : minCount;
  impl_->maxLeadingNames = maxCount < impl_->minLeadingNames ? impl_->minLeadingNames : maxCount;
}

void CommandDescriptor::setFirstSubComWithoutSlash(bool allowed) {
  impl_->firstSubComWithoutSlash = allowed;
}
