#include "results/PostJobSyntax.h"

#include <cstdio>

#include "jobs/GenoStatAlgoManager.h"

namespace genostat::results {

namespace {

std::string twoDecimals(double value) {
  // Sized by a first call: 1e300 has 301 digits before its decimals.
  const int size = std::snprintf(nullptr, 0, "%.2f", value);
  if (size <= 0) return std::string();
  std::string text(static_cast<size_t>(size) + 1, '\0');
  std::snprintf(&text[0], text.size(), "%.2f", value);
  text.resize(static_cast<size_t>(size));
  return text;
}

const char* methodKeyword(RegressionMethod method) {
  switch (method) {
    case RegressionMethod::STEPWISE:
      return "STEPWISE";
    case RegressionMethod::BACKWARD:
      return "BACKWARD";
    case RegressionMethod::FORWARD:
      return "FORWARD";
    case RegressionMethod::ENTER:
      break;
  }
  return "ENTER";  // also for a value outside the enumeration
}

}  // namespace

std::string syntaxJobName(const std::string& jobName) {
  std::string name = jobName;
  for (char& c : name) {
    if (c == ' ') c = '_';
  }
  return name;
}

std::string joinNames(const std::vector<std::string>& names) {
  std::string joined;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) joined += ' ';
    joined += names[i];
  }
  return joined;
}

std::string buildOutputSyntax(const TemplateTable& table, const GenoJobSettings* settings) {
  if (!settings) return std::string();
  ValueMap values;
  values["JOB_NAME"] = syntaxJobName(settings->jobName);
  values["SC"] = std::to_string(settings->sampleCount);
  values["VC"] = std::to_string(settings->variableCount);
  values["MSG_ID"] = std::to_string(settings->messageCode);
  return fillTemplate(table, kGenostatOutput, values);
}

std::string buildImportSyntax(const TemplateTable& table, const GenoJobSettings* settings) {
  if (!settings) return std::string();
  ValueMap values;
  values["CSVPATH"] = settings->csvFilePath;
  values["JOBNAME"] = syntaxJobName(settings->jobName);
  return fillTemplate(table, kImportCsv, values);
}

std::string buildDeleteSyntax(const TemplateTable& table, const GenoJobSettings* settings) {
  if (!settings) return std::string();
  ValueMap values;
  values["JOB_NAME"] = syntaxJobName(settings->jobName);
  values["FILE_NAME"] = settings->csvFilePath;
  return fillTemplate(table, kGenostatDelete, values);
}

std::string buildDescriptivesSyntax(const TemplateTable& table, const GenoJobSettings* settings) {
  if (!settings || !settings->descriptives) return std::string();
  const DescriptivesOptions& options = *settings->descriptives;
  ValueMap values;
  values["VARLIST"] = joinNames(options.variables);
  values["SKEWNESS"] = options.skewness ? "SKEWNESS" : "";
  values["KURTOSIS"] = options.kurtosis ? "KURTOSIS" : "";
  return fillTemplate(table, kDescriptives, values);
}

std::string buildFrequenciesSyntax(const TemplateTable& table, const GenoJobSettings* settings) {
  if (!settings || !settings->frequencies) return std::string();
  const FrequenciesOptions& options = *settings->frequencies;
  ValueMap values;
  values["VARLIST"] = joinNames(options.variables);

  // Each /NTILES request opens its own line; quartiles come first.
  std::string ntiles;
  if (options.quartiles) ntiles += "\n/NTILES=4";
  if (options.ntiles > 0) ntiles += "\n/NTILES=" + std::to_string(options.ntiles);
  values["NTILES"] = ntiles;

  std::string percentiles;
  if (!options.percentiles.empty()) {
    percentiles = "/PERCENTILES=";
    for (std::size_t i = 0; i < options.percentiles.size(); ++i) {
      if (i > 0) percentiles += ' ';
      percentiles += twoDecimals(options.percentiles[i]);
    }
  }
  values["PCENTILES"] = percentiles;
  values["HISTOGRAM"] = options.histogram ? "\n/HISTOGRAM NORMAL" : "";
  return fillTemplate(table, kFrequency, values);
}

std::string buildCorrelationsSyntax(const TemplateTable& table, const GenoJobSettings* settings) {
  if (!settings || !settings->correlations) return std::string();
  const CorrelationsOptions& options = *settings->correlations;
  ValueMap values;
  values["VARLIST"] = joinNames(options.variables);
  values["ONETILE"] = options.oneTail ? "ONETAIL" : "";
  values["TWOTILE"] = options.twoTail ? "TWOTAIL" : "";
  std::string coeff;
  if (options.spearman && options.kendall) {
    coeff = "BOTH";
  } else if (options.spearman) {
    coeff = "SPEARMAN";
  } else if (options.kendall) {
    coeff = "KENDALL";
  }
  values["COEFF"] = coeff;

  std::string block;
  if (options.pearson) block = fillTemplate(table, kCorrelationPearson, values);
  if (!coeff.empty()) {
    block += '\n';
    block += fillTemplate(table, kCorrelationSpKen, values);
  }
  return block;
}

std::string buildRegressionSyntax(const TemplateTable& table, const GenoJobSettings* settings) {
  if (!settings || !settings->regression) return std::string();
  const RegressionOptions& options = *settings->regression;
  ValueMap values;
  values["IN_VARLIST"] = joinNames(options.independent);
  values["DEP_VARLIST"] = options.dependent;
  values["CI"] = options.confidenceInterval.empty() ? "" : "CI(" + options.confidenceInterval + ")";
  values["METHOD"] = methodKeyword(options.method);
  values["NORMPROB"] = options.normalProbabilityPlot ? "NORMPROB(ZRESID)" : "";
  return fillTemplate(table, kRegression, values);
}

}  // namespace genostat::results

void GenoStatAlgoManager::preparePostJobSyntax(const GenoJobSettings* settings, std::string& out,
                                               bool failed) {
  using namespace genostat::results;
  if (!settings) return;
  const TemplateTable table = buildTemplateTable();

  out += buildOutputSyntax(table, settings);
  out += '\n';
  if (failed) return;

  out += buildImportSyntax(table, settings);
  // An analysis is requested exactly when its options exist, whatever they hold.
  if (settings->descriptives) out += '\n' + buildDescriptivesSyntax(table, settings);
  if (settings->frequencies) out += '\n' + buildFrequenciesSyntax(table, settings);
  if (settings->correlations) out += '\n' + buildCorrelationsSyntax(table, settings);
  if (settings->regression) out += '\n' + buildRegressionSyntax(table, settings);
  out += '\n';
  out += buildDeleteSyntax(table, settings);
}
