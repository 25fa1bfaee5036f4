#include "genostat_grammar.h"

#include <initializer_list>

namespace parsertest {

namespace {

using namespace UPSpecTypes;

void addSwitches(SubComDescriptor& sub, std::initializer_list<const char*> names) {
  for (const char* name : names) sub.addParamDesc(ParamDescriptor(name, ParamSwitch, false, false, NoBrackets));
}

}  // namespace

void buildGenostatGrammar(CommandDescriptor& command) {
  SubComDescriptor job("JOB", SubComStandard, false, false);
  job.addParamDesc(ParamDescriptor("NAME", ParamLiteral, false, true, NoBrackets));
  job.addParamDesc(ParamDescriptor("FILE", ParamLiteralList, false, true, NoBrackets));
  job.addParamDesc(ParamDescriptor("FOLDER", ParamLiteral, false, true, NoBrackets));
  ParamDescriptor adapters("ADAPTERS", ParamKeywordQualif, true, true, NoBrackets);
  adapters.addQualifDesc("NONE");
  adapters.addQualifDesc("ILLUMINA");
  adapters.addQualifDesc("NEXTERA");
  adapters.addQualifDesc(ParamDescriptor("CUSTOM", ParamQualifierValue, false, true, NoBrackets));
  job.addParamDesc(adapters);
  command.addSubComDesc(job);

  SubComDescriptor descriptives("DESCRIPTIVES", SubComStandard, false, false);
  descriptives.addParamDesc(ParamDescriptor("VARIABLES", ParamNameList, true, true, NoBrackets));
  addSwitches(descriptives, {"SKEWNESS", "KURTOSIS"});
  command.addSubComDesc(descriptives);

  SubComDescriptor frequencies("FREQUENCIES", SubComStandard, false, false);
  frequencies.addParamDesc(ParamDescriptor("VARIABLES", ParamNameList, true, true, NoBrackets));
  frequencies.addParamDesc(ParamDescriptor("NTILES", ParamInteger, false, true, NoBrackets));
  frequencies.addParamDesc(ParamDescriptor("PERCENTILES", ParamNumberList, false, true, NoBrackets));
  addSwitches(frequencies, {"HISTOGRAM", "QUARTILES"});
  command.addSubComDesc(frequencies);

  SubComDescriptor correlations("CORRELATIONS", SubComStandard, false, false);
  correlations.addParamDesc(ParamDescriptor("VARIABLES", ParamNameList, true, true, NoBrackets));
  ParamDescriptor pearson("PEARSON", ParamNameList, true, true, NoBrackets);
  pearson.addStringValue("TRUE");
  pearson.addStringValue("FALSE");
  correlations.addParamDesc(pearson);
  addSwitches(correlations, {"SPEARMAN", "KENDALL", "TWOTAIL", "ONETAIL"});
  command.addSubComDesc(correlations);

  SubComDescriptor regression("REGRESSION", SubComStandard, false, false);
  regression.addParamDesc(ParamDescriptor("DEPENDENT", ParamNameList, true, true, NoBrackets));
  regression.addParamDesc(ParamDescriptor("INDEPENDENT", ParamNameList, true, true, NoBrackets));
  addSwitches(regression, {"NORMALPROBABILITYPLOT"});
  ParamDescriptor method("METHOD", ParamNameList, true, true, NoBrackets);
  for (const char* m : {"ENTER", "STEPWISE", "BACKWARD", "FORWARD"}) method.addStringValue(m);
  regression.addParamDesc(method);
  regression.addParamDesc(ParamDescriptor("CI", ParamNumber, false, true, NoBrackets));
  command.addSubComDesc(regression);

  SubComDescriptor print("PRINT", SubComStandard, false, false);
  print.addParamDesc(ParamDescriptor("SAMPLE_COUNT", ParamInteger, false, true, NoBrackets));
  print.addParamDesc(ParamDescriptor("VARIABLE_COUNT", ParamInteger, false, true, NoBrackets));
  print.addParamDesc(ParamDescriptor("MESSAGE", ParamInteger, false, true, NoBrackets));
  command.addSubComDesc(print);

  SubComDescriptor del("DELETE", SubComStandard, false, false);
  del.addParamDesc(ParamDescriptor("FILE", ParamLiteral, false, true, NoBrackets));
  command.addSubComDesc(del);
}

}  // namespace parsertest
