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
#include <vector>

#include "host/host_api.h"

class ZORV_TokenSequence;

namespace UPSpecTypes {

// How a subcommand is introduced.
enum SubComSpec : int {
  SubComStandard = 1,  // `/NAME`, optionally followed by parameters
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
};

enum BracketOptions : int {
  NoBrackets = 0,
};

}  // namespace UPSpecTypes

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

  struct Impl;
  const Impl& impl() const { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

class ZORV_HOST_API SubComDescriptor {
 public:
  SubComDescriptor(const char* name, UPSpecTypes::SubComSpec spec, bool flag1, bool flag2);
  SubComDescriptor(const SubComDescriptor&);
  SubComDescriptor& operator=(const SubComDescriptor&);
  ~SubComDescriptor();

  void addParamDesc(const ParamDescriptor& param);

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
  // The object belongs to the SubComObj.
  ParamObj* getParamObj(const char* name) const;

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
  // The object belongs to the CommandSpec.
  SubComObj* getSubComObj(const char* name) const;

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

  // Parses the tokens against the descriptor into the spec. 0 on success; non-zero when the
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
