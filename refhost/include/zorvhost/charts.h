// Charts for the HTML page: self-contained SVG documents (no script, no external resource), with
// axes, ticks and titles, drawn in dark strokes on white so that they print.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/host_api.h"

namespace zorvhost::charts {

// A histogram of `values` in about Sturges' number of bins on nice bounds; with `normal`, the
// normal curve of the values' mean and standard deviation scaled to the counts.
ZORV_HOST_API std::string histogram(const std::string& title, const std::string& xLabel,
                                    const std::vector<double>& values, bool normal);

// Points (x, y) on axes from 0 to 1 with the diagonal y = x: a normal P-P plot.
ZORV_HOST_API std::string probabilityPlot(const std::string& title, const std::string& xLabel,
                                          const std::string& yLabel,
                                          const std::vector<std::pair<double, double>>& points);

// One bar per label; NaN values draw no bar. Optional colours per bar ("" for the default).
ZORV_HOST_API std::string bars(const std::string& title, const std::string& yLabel,
                               const std::vector<std::string>& labels, const std::vector<double>& values,
                               const std::vector<std::string>& colours = {});

// The ticks of an axis over [lo, hi]: about `target` round values (1, 2 or 5 times a power of
// ten) covering the range; the first and last tick enclose it.
ZORV_HOST_API std::vector<double> niceTicks(double lo, double hi, int target = 5);

}  // namespace zorvhost::charts
