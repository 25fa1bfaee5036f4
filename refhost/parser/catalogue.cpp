// Grammars of the host's own commands that the module's post-job syntax runs: the data import
// (GET DATA and its neighbours) and the statistics procedures. Only the forms that syntax can
// hold are declared, plus the nearest alternatives a user would expect beside them.
#include <initializer_list>
#include <vector>

#include "parser/grammar.h"
#include "parser/text.h"
#include "zorvhost/commands.h"

namespace zorvhost {

namespace {

using namespace UPSpecTypes;

ParamDescriptor switchParam(const char* name) {
  return ParamDescriptor(name, ParamSwitch, false, false, NoBrackets);
}

// A subcommand made of switches only: /STATISTICS=MEAN STDDEV, /MISSING LISTWISE.
SubComDescriptor switches(const char* name, std::initializer_list<const char*> keywords) {
  SubComDescriptor sub(name, SubComOptionalEquals, false, false);
  for (const char* k : keywords) sub.addParamDesc(switchParam(k));
  return sub;
}

// A subcommand that carries one value: /TYPE=TXT, /DEPENDENT GC.
SubComDescriptor valued(const char* name, SubComSpec spec, const ParamDescriptor& value,
                        bool required = false, bool repeatable = false) {
  SubComDescriptor sub(name, spec, required, repeatable);
  sub.setValueDesc(value);
  return sub;
}

ParamDescriptor keyword(const char* name, std::initializer_list<const char*> values) {
  ParamDescriptor p(name, ParamName, true, true, NoBrackets);
  for (const char* v : values) p.addStringValue(v);
  return p;
}

ParamDescriptor literal(const char* name) {
  return ParamDescriptor(name, ParamLiteral, false, true, NoBrackets);
}

ParamDescriptor names(const char* name) {
  return ParamDescriptor(name, ParamNameList, true, true, NoBrackets);
}

CommandDescriptor getData() {
  CommandDescriptor cmd("GET DATA");
  cmd.addSubComDesc(valued("TYPE", SubComValue, keyword("TYPE", {"TXT"}), true));
  cmd.addSubComDesc(valued("FILE", SubComValue, literal("FILE"), true));
  cmd.addSubComDesc(valued("ENCODING", SubComValue, literal("ENCODING")));
  cmd.addSubComDesc(valued("DELIMITERS", SubComValue, literal("DELIMITERS")));
  cmd.addSubComDesc(valued("QUALIFIER", SubComValue, literal("QUALIFIER")));
  cmd.addSubComDesc(valued("ARRANGEMENT", SubComValue, keyword("ARRANGEMENT", {"DELIMITED", "FIXED"})));
  cmd.addSubComDesc(
      valued("FIRSTCASE", SubComValue, ParamDescriptor("FIRSTCASE", ParamInteger, false, true, NoBrackets)));
  SubComDescriptor typeMin("DATATYPEMIN", SubComStandard, false, false);
  typeMin.addParamDesc(ParamDescriptor("PERCENTAGE", ParamNumber, false, true, NoBrackets));
  cmd.addSubComDesc(typeMin);
  // Name and format pairs: /VARIABLES= Sample AUTO GC AUTO ...; any format word is accepted.
  cmd.addSubComDesc(valued("VARIABLES", SubComValue,
                           ParamDescriptor("VARIABLES", ParamNameKeywordPairs, false, true, NoBrackets)));
  cmd.addSubComDesc(SubComDescriptor("MAP", SubComBare, false, false));
  return cmd;
}

CommandDescriptor datasetCommand(const char* name) {
  CommandDescriptor cmd(name);
  cmd.setLeadingNames(1, 1);
  return cmd;
}

CommandDescriptor set() {
  CommandDescriptor cmd("SET");
  cmd.setFirstSubComWithoutSlash(true);
  cmd.addSubComDesc(valued("DECIMAL", SubComValueOptionalEquals, keyword("DECIMAL", {"DOT", "COMMA"})));
  return cmd;
}

// The commands a user reaches for to see and keep a dataset.
CommandDescriptor list() {
  CommandDescriptor cmd("LIST");
  cmd.setFirstSubComWithoutSlash(true);
  cmd.addSubComDesc(valued("VARIABLES", SubComValueOptionalEquals, names("VARIABLES")));
  SubComDescriptor cases("CASES", SubComStandard, false, false);
  cases.addParamDesc(ParamDescriptor("FROM", ParamInteger, false, true, NoBrackets));
  cases.addParamDesc(ParamDescriptor("TO", ParamInteger, false, true, NoBrackets));
  cmd.addSubComDesc(cases);
  return cmd;
}

CommandDescriptor saveTranslate() {
  CommandDescriptor cmd("SAVE TRANSLATE");
  cmd.setFirstSubComWithoutSlash(true);
  cmd.addSubComDesc(valued("OUTFILE", SubComValue, literal("OUTFILE"), true));
  cmd.addSubComDesc(valued("TYPE", SubComValue, keyword("TYPE", {"CSV", "TAB"})));
  cmd.addSubComDesc(SubComDescriptor("FIELDNAMES", SubComBare, false, false));
  cmd.addSubComDesc(SubComDescriptor("REPLACE", SubComBare, false, false));
  return cmd;
}

CommandDescriptor descriptives() {
  CommandDescriptor cmd("DESCRIPTIVES");
  cmd.setFirstSubComWithoutSlash(true);
  cmd.addSubComDesc(valued("VARIABLES", SubComValueOptionalEquals, names("VARIABLES"), true));
  cmd.addSubComDesc(switches("STATISTICS", {"MEAN", "SUM", "STDDEV", "VARIANCE", "RANGE", "MIN", "MAX",
                                            "SEMEAN", "KURTOSIS", "SKEWNESS", "DEFAULT", "ALL"}));
  cmd.addSubComDesc(switches("MISSING", {"VARIABLE", "LISTWISE", "INCLUDE"}));
  return cmd;
}

CommandDescriptor frequencies() {
  CommandDescriptor cmd("FREQUENCIES");
  cmd.setFirstSubComWithoutSlash(true);
  cmd.addSubComDesc(valued("VARIABLES", SubComValueOptionalEquals, names("VARIABLES"), true));
  cmd.addSubComDesc(valued("NTILES", SubComValue,
                           ParamDescriptor("NTILES", ParamInteger, false, true, NoBrackets), false, true));
  cmd.addSubComDesc(valued("PERCENTILES", SubComValue,
                           ParamDescriptor("PERCENTILES", ParamNumberList, false, true, NoBrackets)));
  cmd.addSubComDesc(switches("STATISTICS", {"STDDEV", "VARIANCE", "RANGE", "MINIMUM", "MAXIMUM", "SEMEAN",
                                            "MEAN", "MEDIAN", "MODE", "SUM", "SKEWNESS", "SESKEW",
                                            "KURTOSIS", "SEKURT", "CV", "ALL", "NONE", "DEFAULT"}));
  SubComDescriptor histogram("HISTOGRAM", SubComStandard, false, false);
  histogram.addParamDesc(switchParam("NORMAL"));
  histogram.addParamDesc(switchParam("NONORMAL"));
  cmd.addSubComDesc(histogram);
  cmd.addSubComDesc(valued("ORDER", SubComValue, keyword("ORDER", {"ANALYSIS", "VARIABLE"})));
  return cmd;
}

CommandDescriptor correlations(const char* name, std::initializer_list<const char*> printKeywords,
                               std::initializer_list<const char*> statistics) {
  CommandDescriptor cmd(name);
  cmd.setFirstSubComWithoutSlash(true);  // CORRELATIONS VARIABLES=a b, as users type it too
  cmd.addSubComDesc(valued("VARIABLES", SubComValueOptionalEquals, names("VARIABLES"), true));
  cmd.addSubComDesc(switches("PRINT", printKeywords));
  if (statistics.size() > 0) cmd.addSubComDesc(switches("STATISTICS", statistics));
  cmd.addSubComDesc(switches("MISSING", {"PAIRWISE", "LISTWISE", "INCLUDE", "EXCLUDE"}));
  return cmd;
}

CommandDescriptor regression() {
  CommandDescriptor cmd("REGRESSION");
  cmd.addSubComDesc(switches("MISSING", {"LISTWISE", "PAIRWISE", "MEANSUBSTITUTION"}));
  SubComDescriptor statistics = switches(
      "STATISTICS", {"COEFF", "OUTS", "R", "ANOVA", "COLLIN", "TOL", "CHANGE", "ZPP", "DEFAULT", "ALL"});
  // CI alone asks for the default level; CI(90) for another.
  statistics.addParamDesc(ParamDescriptor("CI", ParamNumber, false, false, ValueInBrackets));
  cmd.addSubComDesc(statistics);
  SubComDescriptor criteria("CRITERIA", SubComOptionalEquals, false, false);
  for (const char* k : {"PIN", "POUT", "FIN", "FOUT", "TOLERANCE"}) {
    criteria.addParamDesc(ParamDescriptor(k, ParamNumber, false, true, ValueInBrackets));
  }
  cmd.addSubComDesc(criteria);
  cmd.addSubComDesc(SubComDescriptor("NOORIGIN", SubComBare, false, false));
  cmd.addSubComDesc(SubComDescriptor("ORIGIN", SubComBare, false, false));
  cmd.addSubComDesc(valued("DEPENDENT", SubComValueOptionalEquals, names("DEPENDENT"), true));
  // The method keyword comes first and the independent variables follow it in the same list.
  ParamDescriptor method("METHOD", ParamNameList, false, true, NoBrackets);
  for (const char* m : {"ENTER", "STEPWISE", "BACKWARD", "FORWARD", "REMOVE"}) method.addStringValue(m);
  cmd.addSubComDesc(valued("METHOD", SubComValueOptionalEquals, method, false, true));
  SubComDescriptor residuals = switches("RESIDUALS", {"PRESS", "DURBIN"});
  ParamDescriptor normprob("NORMPROB", ParamNameList, true, false, ValueInBrackets);
  for (const char* v : {"ZRESID", "ZPRED", "SRESID", "DRESID", "ADJPRED", "SDRESID"}) normprob.addStringValue(v);
  residuals.addParamDesc(normprob);
  cmd.addSubComDesc(residuals);
  return cmd;
}

const std::vector<CommandDescriptor>& catalogue() {
  static const std::vector<CommandDescriptor> commands = [] {
    std::vector<CommandDescriptor> c;
    c.push_back(getData());
    c.push_back(datasetCommand("DATASET NAME"));
    c.push_back(datasetCommand("DATASET ACTIVATE"));
    for (const char* plain : {"PRESERVE", "RESTORE", "CACHE", "EXECUTE"}) c.emplace_back(plain);
    c.push_back(set());
    c.push_back(list());
    c.emplace_back("DISPLAY DICTIONARY");
    c.push_back(saveTranslate());
    c.push_back(descriptives());
    c.push_back(frequencies());
    c.push_back(correlations("CORRELATIONS", {"ONETAIL", "TWOTAIL", "SIG", "NOSIG", "FULL", "LOWER"},
                             {"DESCRIPTIVES", "XPROD", "ALL"}));
    c.push_back(correlations("NONPAR CORR", {"SPEARMAN", "KENDALL", "BOTH", "ONETAIL", "TWOTAIL", "SIG",
                                             "NOSIG", "FULL", "LOWER"},
                             {}));
    c.push_back(regression());
    return c;
  }();
  return commands;
}

}  // namespace

const CommandDescriptor* findCommandDescriptor(const std::string& name) {
  // "get  data" names GET DATA: compare word by word, ignoring case and the blanks between.
  std::string normal;
  bool pendingBlank = false;
  for (char c : name) {
    if (c == ' ' || c == '\t') {
      pendingBlank = !normal.empty();
      continue;
    }
    if (pendingBlank) normal += ' ';
    pendingBlank = false;
    normal += parser::upperAscii(c);
  }
  for (const auto& cmd : catalogue()) {
    if (cmd.impl().name == normal) return &cmd;
  }
  return nullptr;
}

std::vector<std::string> catalogueCommandNames() {
  std::vector<std::string> out;
  for (const auto& cmd : catalogue()) out.push_back(cmd.impl().name);
  return out;
}

}  // namespace zorvhost
