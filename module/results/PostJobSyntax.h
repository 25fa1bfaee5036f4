// The command syntax a job hands to the host's client when it ends: GENOSTAT /PRINT, then, for a
// job with a result CSV, the import, the requested analyses and GENOSTAT /DELETE. Assembled by
// GenoStatAlgoManager::preparePostJobSyntax from the builders below.
#pragma once

#include <string>
#include <vector>

#include "entry/GenoJobSettings.h"
#include "results/SyntaxTemplates.h"

namespace genostat::results {

// The job name as a syntax token: every blank becomes '_'.
std::string syntaxJobName(const std::string& jobName);
// Names joined with single blanks.
std::string joinNames(const std::vector<std::string>& names);

// One builder per template. Each returns the filled text, or an empty text for a null record or
// an analysis the record does not request.
std::string buildOutputSyntax(const TemplateTable& table, const GenoJobSettings* settings);
std::string buildImportSyntax(const TemplateTable& table, const GenoJobSettings* settings);
std::string buildDeleteSyntax(const TemplateTable& table, const GenoJobSettings* settings);
std::string buildDescriptivesSyntax(const TemplateTable& table, const GenoJobSettings* settings);
std::string buildFrequenciesSyntax(const TemplateTable& table, const GenoJobSettings* settings);
// Pearson's block when requested, then a line feed and the rank-correlation block when Spearman or
// Kendall is requested.
std::string buildCorrelationsSyntax(const TemplateTable& table, const GenoJobSettings* settings);
std::string buildRegressionSyntax(const TemplateTable& table, const GenoJobSettings* settings);

}  // namespace genostat::results
