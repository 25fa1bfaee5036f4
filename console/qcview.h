// The per-sample view of a job's result: when a job's dataset is named, the console shows it as a
// table of samples (reads, GC, mean quality, qc_score and the eleven verdicts), puts overview
// charts across the samples on the page, and sends the values as an event.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "zorvhost/client.h"
#include "zorvhost/output.h"

namespace zorv {

// True when `data` holds a job's QC result: a Sample column, qc_score and the verdict columns.
bool isQcDataset(const zorvhost::DatasetData& data);

// One row per sample. The verdict columns keep the texts pass, warn and fail.
zorvhost::OutputTable qcSampleTable(const std::string& dataset, const zorvhost::DatasetData& data);

// (title, SVG) of the overview charts: qc_score, GC and mean quality per sample, and how many
// samples each QC module passed, warned and failed.
std::vector<std::pair<std::string, std::string>> qcOverviewCharts(const zorvhost::DatasetData& data);

// The verdict cells of a table rendered as text, coloured for a terminal (green, yellow, red).
std::string colourVerdicts(const std::string& rendered);

}  // namespace zorv
