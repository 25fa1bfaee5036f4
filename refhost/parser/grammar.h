// The grammar model behind CommandDescriptor, SubComDescriptor and ParamDescriptor: what a
// procedure declared, kept in upper case so that the parser compares without folding twice.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/parser.h"

struct ParamDescriptor::Impl {
  std::string name;  // upper case
  UPSpecTypes::ParamSpec spec = UPSpecTypes::ParamSwitch;
  bool restricted = false;     // flag1: words must be declared values
  bool valueRequired = false;  // flag2: the keyword must carry its value
  UPSpecTypes::BracketOptions brackets = UPSpecTypes::NoBrackets;
  bool repeatable = false;
  std::vector<std::string> values;           // declared keyword values, upper case
  std::vector<ParamDescriptor> qualifiers;   // ParamKeywordQualif: the allowed qualifiers

  // The declared value equal to `word` ignoring case, or null.
  const std::string* findValue(const std::string& word) const;
  const ParamDescriptor* findQualifier(const std::string& word) const;
  // "NONE, ILLUMINA, NEXTERA, CUSTOM": the declared values or qualifiers, for messages.
  std::string allowedList() const;
};

struct SubComDescriptor::Impl {
  std::string name;  // upper case
  UPSpecTypes::SubComSpec spec = UPSpecTypes::SubComStandard;
  bool required = false;    // flag1
  bool repeatable = false;  // flag2
  std::vector<ParamDescriptor> params;
  std::vector<ParamDescriptor> value;  // at most one: the subcommand's own value

  const ParamDescriptor* findParam(const std::string& word) const;
};

struct CommandDescriptor::Impl {
  std::string name;                // upper case, words separated by one blank
  std::vector<std::string> words;  // the name's words
  std::vector<SubComDescriptor> subcommands;
  int minLeadingNames = 0;
  int maxLeadingNames = 0;
  bool firstSubComWithoutSlash = false;

  const SubComDescriptor* findSubCom(const std::string& word) const;
};
