// Host syntax parser: descriptors of a command's grammar, the parser, and the parse result.
//
// A procedure describes its command as a CommandDescriptor holding SubComDescriptors holding
// ParamDescriptors, runs UniversalParser over the command's tokens and reads the CommandSpec it
// fills. Grammar errors are reported by the parser itself (to the host's client, with the offending
// token and its position); the procedure only sees getCommandSpecifications() return non-zero.
//
// The conventions of the command language are written down in refhost/parser/COMMAND_LANGUAGE.md.
//
// Threads: all of this runs on the host's command thread.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/host_api.h"

class ZORV_TokenSequence;

namespace UPSpecTypes {

// How a subcommand is introduced.
enum SubComSpec : int {
  SubComStandard = 1,             // `/NAME`, optionally followed by parameters
  SubComOptionalEquals = 2,       // `/NAME` or `/NAME=`, then parameters: /STATISTICS=MEAN STDDEV
  SubComValue = 3,                // `/NAME=value`, the value as setValueDesc says: /TYPE=TXT
  SubComValueOptionalEquals = 4,  // `/NAME value` or `/NAME=value`: /DEPENDENT GC
  SubComBare = 5,                 // `/NAME` and nothing else: /NOORIGIN
};

// What a parameter holds. The numbered values are fixed; the parser may define more.
enum ParamSpec : int {
  ParamSwitch = 0,           // a keyword that stands alone
  ParamQualifierValue = 3,   // a qualifier carrying a value in parentheses: CUSTOM(acgt)
  ParamLiteral = 4,          // one quoted literal
  ParamNameList = 5,         // a name, or a list of names or keywords
  ParamLiteralList = 6,      // a list of quoted literals
  ParamNumber = 7,           // one number
  ParamNumberList = 8,       // a list of numbers
  ParamInteger = 9,          // one integer
  ParamKeywordQualif = 27,   // a keyword chosen from declared qualifiers: ADAPTERS=CUSTOM(acgt)
  ParamName = 30,            // exactly one name or keyword: /TYPE=TXT
  ParamNameKeywordPairs = 31,  // pairs of a name and a keyword: /VARIABLES=Sample AUTO GC AUTO
};

enum BracketOptions : int {
  NoBrackets = 0,       // the value follows `=`: KEYWORD=value
  ValueInBrackets = 1,  // the value stands in parentheses: CI(95), PIN(.05), NORMPROB(ZRESID)
};

}  // namespace UPSpecTypes

// One keyword of a subcommand (or a qualifier of a keyword). `flag1` restricts the value's words
// to the declared values (addStringValue): any other word is refused; without it a declared value
// is still delivered as a keyword (upper case) and any other word as a name. `flag2`: the keyword
// must carry a value (`=value`, or `(value)` in brackets or for a qualifier); without it the
// keyword may also stand alone. A ParamSwitch never takes a value.
class ZORV_HOST_API ParamDescriptor {
 public:
  ParamDescriptor(const char* name, UPSpecTypes::ParamSpec spec, bool flag1, bool flag2,
                  UPSpecTypes::BracketOptions brackets);
  ParamDescriptor(const ParamDescriptor&);
  ParamDescriptor& operator=(const ParamDescriptor&);
  ~ParamDescriptor();

  // One allowed keyword value of the parameter (PEARSON=TRUE|FALSE).
  void addStringValue(const char* text);
  // One allowed qualifier keyword (ADAPTERS=NONE).
  void addQualifDesc(const char* text);
  // A qualifier that carries a value (ADAPTERS=CUSTOM(acgt)).
  void addQualifDesc(const ParamDescriptor& qualifier);
  // Lets the keyword be given more than once in one subcommand (default: refused).
  void setRepeatable(bool repeatable);

  struct Impl;
  const Impl& impl() const { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

// One subcommand. `flag1`: the command must give it. `flag2`: it may be given more than once.
class ZORV_HOST_API SubComDescriptor {
 public:
  SubComDescriptor(const char* name, UPSpecTypes::SubComSpec spec, bool flag1, bool flag2);
  SubComDescriptor(const SubComDescriptor&);
  SubComDescriptor& operator=(const SubComDescriptor&);
  ~SubComDescriptor();

  void addParamDesc(const ParamDescriptor& param);
  // The value of a SubComValue or SubComValueOptionalEquals subcommand; its name is the name
  // under which SubComObj delivers the value (getValueObj, getParamObj).
  void setValueDesc(const ParamDescriptor& value);

  struct Impl;
  const Impl& impl() const { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

class ZORV_HOST_API CommandDescriptor {
 public:
  explicit CommandDescriptor(const char* name);
  CommandDescriptor(const CommandDescriptor&);
  CommandDescriptor& operator=(const CommandDescriptor&);
  ~CommandDescriptor();

  void addSubComDesc(const SubComDescriptor& subcommand);
  // Names that follow the command's name before any subcommand: DATASET NAME x.
  void setLeadingNames(int minCount, int maxCount);
  // The first subcommand may be given without its `/`: DESCRIPTIVES VARIABLES=GC.
  void setFirstSubComWithoutSlash(bool allowed);

  struct Impl;
  const Impl& impl() const { return *impl_; }
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

// One parameter as the command gave it. The getters return false, and leave their argument as it
// was, when the parameter does not hold a value of the kind asked for.
class ZORV_HOST_API ParamObj {
 public:
  ParamObj();
  ParamObj(const ParamObj&);
  ParamObj& operator=(const ParamObj&);
  ~ParamObj();

  bool getIntegerValue(int& value) const;
  bool getNumberValue(double& value) const;
  bool getNumberList(std::vector<double>& values) const;
  bool getLiteral(std::string& value) const;
  bool getLiteralList(std::vector<std::string>& values) const;
  // Names as written; keywords in upper case.
  bool getStringList(std::vector<std::string>& values) const;
  // The first name or keyword of the value, as getStringList delivers it.
  bool getStringGeneric(std::string& value) const;
  // The value (a name, keyword or literal) in upper case.
  bool getUpStringGeneric(std::string& value) const;
  // The qualifier keyword that was given (with its own value, if it carries one) into `qualifier`.
  bool getStringAndQual(ParamObj& qualifier) const;
  // The parameter's (or qualifier's) keyword, upper case.
  std::string getParamName() const;
  // A ParamNameKeywordPairs value: (name as written, keyword in upper case) pairs.
  bool getNamePairs(std::vector<std::pair<std::string, std::string>>& pairs) const;

  struct Impl;
  const Impl& impl() const { return *impl_; }
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

class ZORV_HOST_API SubComObj {
 public:
  SubComObj();
  SubComObj(const SubComObj&);
  SubComObj& operator=(const SubComObj&);
  ~SubComObj();

  // The parameter of that name (case-insensitive), or null when the subcommand did not give it.
  // The object belongs to the SubComObj. A repeated parameter: its first occurrence.
  ParamObj* getParamObj(const char* name) const;
  // Every occurrence of a repeatable parameter, in the order given.
  std::vector<ParamObj*> getParamObjs(const char* name) const;
  // The subcommand's own value (SubComValue, SubComValueOptionalEquals), or null.
  ParamObj* getValueObj() const;
  // The subcommand's name, upper case.
  std::string getSubComName() const;

  struct Impl;
  const Impl& impl() const { return *impl_; }
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

// The parse result of one command.
class ZORV_HOST_API CommandSpec {
 public:
  CommandSpec();
  CommandSpec(const CommandSpec&) = delete;
  CommandSpec& operator=(const CommandSpec&) = delete;
  ~CommandSpec();

  // The subcommand of that name (case-insensitive), or null when the command did not give it.
  // The object belongs to the CommandSpec. A repeated subcommand: its first occurrence.
  SubComObj* getSubComObj(const char* name) const;
  // Every occurrence of a repeatable subcommand (FREQUENCIES /NTILES), in the order given.
  std::vector<SubComObj*> getSubComObjs(const char* name) const;
  // The names given after the command's name (DATASET NAME x); false when there are none.
  bool getLeadingNames(std::vector<std::string>& names) const;

  struct Impl;
  const Impl& impl() const { return *impl_; }
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

class ZORV_HOST_API UniversalParser {
 public:
  UniversalParser(ZORV_TokenSequence* tokens, CommandSpec* spec, CommandDescriptor* descriptor);
  ~UniversalParser();
  UniversalParser(const UniversalParser&) = delete;
  UniversalParser& operator=(const UniversalParser&) = delete;

  // Parses the tokens against the descriptor into the CommandSpec. 0 on success; non-zero when the
  // command broke the grammar, after the errors have been reported to the host's client.
  int getCommandSpecifications();

 private:
  ZORV_TokenSequence* tokens_;
  CommandSpec* spec_;
  CommandDescriptor* descriptor_;
};

// The procedure's channel for errors to the host's client.
class ZORV_HOST_API ParserMessage {
 public:
  ParserMessage();
  ~ParserMessage();
  ParserMessage(const ParserMessage&) = delete;
  ParserMessage& operator=(const ParserMessage&) = delete;

  void SetCommandName(const char* name);
  void SetProcedureTitle(const char* title);
  // Reports `text` as an error of the command. The five further arguments are optional inserts
  // (null when unused) that the host appends to the text, separated by blanks.
  void GenericError(const char* text, const char* insert1, const char* insert2,
                    const char* insert3, const char* insert4, const char* insert5);

 private:
  std::string commandName_;
  std::string procedureTitle_;
};
