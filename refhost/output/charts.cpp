#include "zorvhost/charts.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "zorvhost/output.h"

namespace zorvhost::charts {

namespace {

constexpr double kWidth = 560, kHeight = 360;
constexpr double kLeft = 64, kRight = 20, kTop = 40, kBottom = 56;
constexpr double kPlotW = kWidth - kLeft - kRight, kPlotH = kHeight - kTop - kBottom;
constexpr double kPi = 3.14159265358979323846;

std::string num(double v) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.2f", v);
  return buffer;
}

// A tick's label: as few decimals as the step needs.
std::string tickLabel(double v, double step) {
  int decimals = 0;
  while (decimals < 6 && std::fabs(step * std::pow(10, decimals) - std::round(step * std::pow(10, decimals))) > 1e-9) {
    ++decimals;
  }
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, std::fabs(v) < step * 1e-9 ? 0.0 : v);
  return buffer;
}

struct Frame {
  double x0, x1, y0, y1;  // data ranges
  double px(double x) const { return kLeft + (x - x0) / (x1 - x0) * kPlotW; }
  double py(double y) const { return kTop + kPlotH - (y - y0) / (y1 - y0) * kPlotH; }
};

std::string open(const std::string& title) {
  return "<svg xmlns=\"http://www.w3.org/2000/svg\" class=\"zorv-chart\" viewBox=\"0 0 " + num(kWidth) + " " +
         num(kHeight) + "\" width=\"" + num(kWidth) + "\" height=\"" + num(kHeight) + "\" role=\"img\" aria-label=\"" +
         htmlEscape(title) + "\" font-family=\"sans-serif\" font-size=\"12\">\n<rect width=\"100%\" height=\"100%\" "
         "fill=\"white\"/>\n<text x=\"" + num(kWidth / 2) + "\" y=\"22\" text-anchor=\"middle\" font-size=\"14\" "
         "font-weight=\"bold\">" + htmlEscape(title) + "</text>\n";
}

// Axes with ticks and labels; x ticks are skipped when `xTicks` is empty (categories instead).
std::string axes(const Frame& f, const std::vector<double>& xTicks, const std::vector<double>& yTicks,
                 const std::string& xLabel, const std::string& yLabel) {
  std::string out = "<g stroke=\"#222\" stroke-width=\"1\">\n<line x1=\"" + num(kLeft) + "\" y1=\"" +
                    num(kTop + kPlotH) + "\" x2=\"" + num(kLeft + kPlotW) + "\" y2=\"" + num(kTop + kPlotH) +
                    "\"/>\n<line x1=\"" + num(kLeft) + "\" y1=\"" + num(kTop) + "\" x2=\"" + num(kLeft) + "\" y2=\"" +
                    num(kTop + kPlotH) + "\"/>\n</g>\n";
  const double xStep = xTicks.size() > 1 ? xTicks[1] - xTicks[0] : 1;
  for (double t : xTicks) {
    const double x = f.px(t);
    out += "<line x1=\"" + num(x) + "\" y1=\"" + num(kTop + kPlotH) + "\" x2=\"" + num(x) + "\" y2=\"" +
           num(kTop + kPlotH + 5) + "\" stroke=\"#222\"/><text x=\"" + num(x) + "\" y=\"" + num(kTop + kPlotH + 18) +
           "\" text-anchor=\"middle\">" + tickLabel(t, xStep) + "</text>\n";
  }
  const double yStep = yTicks.size() > 1 ? yTicks[1] - yTicks[0] : 1;
  for (double t : yTicks) {
    const double y = f.py(t);
    out += "<line x1=\"" + num(kLeft - 5) + "\" y1=\"" + num(y) + "\" x2=\"" + num(kLeft) + "\" y2=\"" + num(y) +
           "\" stroke=\"#222\"/><text x=\"" + num(kLeft - 8) + "\" y=\"" + num(y + 4) + "\" text-anchor=\"end\">" +
           tickLabel(t, yStep) + "</text>\n";
  }
  out += "<text x=\"" + num(kLeft + kPlotW / 2) + "\" y=\"" + num(kHeight - 10) + "\" text-anchor=\"middle\">" +
         htmlEscape(xLabel) + "</text>\n";
  out += "<text transform=\"translate(16 " + num(kTop + kPlotH / 2) + ") rotate(-90)\" text-anchor=\"middle\">" +
         htmlEscape(yLabel) + "</text>\n";
  return out;
}

}  // namespace

std::vector<double> niceTicks(double lo, double hi, int target) {
  if (!std::isfinite(lo) || !std::isfinite(hi)) return {0, 1};
  if (hi <= lo) {
    const double pad = lo == 0 ? 1 : std::fabs(lo) * 0.1;
    lo -= pad;
    hi += pad;
  }
  const double raw = (hi - lo) / std::max(1, target);
  const double power = std::pow(10, std::floor(std::log10(raw)));
  double step = power;
  for (double m : {1.0, 2.0, 5.0, 10.0}) {
    step = m * power;
    if (step >= raw) break;
  }
  std::vector<double> ticks;
  const double first = std::floor(lo / step) * step;
  for (double t = first; t < hi + step * 0.999; t += step) ticks.push_back(std::round(t / step) * step);
  if (ticks.size() < 2) ticks.push_back(ticks.back() + step);
  return ticks;
}

std::string histogram(const std::string& title, const std::string& xLabel, const std::vector<double>& values,
                      bool normal) {
  std::string out = open(title);
  if (values.empty()) {
    out += "<text x=\"" + num(kWidth / 2) + "\" y=\"" + num(kHeight / 2) +
           "\" text-anchor=\"middle\">no valid values</text>\n</svg>\n";
    return out;
  }
  const auto [lo, hi] = std::minmax_element(values.begin(), values.end());
  const int target = std::max(1, static_cast<int>(std::ceil(std::log2(static_cast<double>(values.size())) + 1)));
  const std::vector<double> edges = niceTicks(*lo, *hi, target);
  const double width = edges[1] - edges[0];
  std::vector<double> counts(edges.size() - 1, 0);
  for (double v : values) {
    std::size_t bin = static_cast<std::size_t>(std::floor((v - edges.front()) / width));
    counts[std::min(bin, counts.size() - 1)] += 1;
  }
  const double n = static_cast<double>(values.size());
  double mean = 0;
  for (double v : values) mean += v / n;
  double ss = 0;
  for (double v : values) ss += (v - mean) * (v - mean);
  const double sd = values.size() > 1 ? std::sqrt(ss / (n - 1)) : 0;
  double peak = *std::max_element(counts.begin(), counts.end());
  const bool curve = normal && sd > 0;
  if (curve) peak = std::max(peak, n * width / (sd * std::sqrt(2 * kPi)));
  const std::vector<double> yTicks = niceTicks(0, peak, 5);
  const Frame f{edges.front(), edges.back(), 0, yTicks.back()};
  out += axes(f, edges, yTicks, xLabel, "Frequency");
  out += "<g fill=\"#9ab6d8\" stroke=\"#2f4f75\">\n";
  for (std::size_t i = 0; i < counts.size(); ++i) {
    if (counts[i] == 0) continue;
    const double x = f.px(edges[i]);
    const double y = f.py(counts[i]);
    out += "<rect class=\"bar\" x=\"" + num(x) + "\" y=\"" + num(y) + "\" width=\"" + num(f.px(edges[i + 1]) - x) +
           "\" height=\"" + num(f.py(0) - y) + "\"/>\n";
  }
  out += "</g>\n";
  if (curve) {
    std::string path;
    for (int i = 0; i <= 120; ++i) {
      const double x = f.x0 + (f.x1 - f.x0) * i / 120.0;
      const double z = (x - mean) / sd;
      const double y = n * width * std::exp(-z * z / 2) / (sd * std::sqrt(2 * kPi));
      path += (i == 0 ? "M" : " L") + num(f.px(x)) + " " + num(f.py(y));
    }
    out += "<path class=\"curve\" d=\"" + path + "\" fill=\"none\" stroke=\"#b0302a\" stroke-width=\"2\"/>\n";
    out += "<text x=\"" + num(kLeft + kPlotW) + "\" y=\"" + num(kTop - 4) + "\" text-anchor=\"end\">Mean = " +
           num(mean) + ", Std. Dev. = " + num(sd) + ", N = " + std::to_string(values.size()) + "</text>\n";
  }
  return out + "</svg>\n";
}

std::string probabilityPlot(const std::string& title, const std::string& xLabel, const std::string& yLabel,
                            const std::vector<std::pair<double, double>>& points) {
  std::string out = open(title);
  const Frame f{0, 1, 0, 1};
  const std::vector<double> ticks = {0, 0.2, 0.4, 0.6, 0.8, 1.0};
  out += axes(f, ticks, ticks, xLabel, yLabel);
  out += "<line x1=\"" + num(f.px(0)) + "\" y1=\"" + num(f.py(0)) + "\" x2=\"" + num(f.px(1)) + "\" y2=\"" +
         num(f.py(1)) + "\" stroke=\"#b0302a\" stroke-width=\"1.5\"/>\n<g fill=\"#2f4f75\">\n";
  for (const auto& [x, y] : points) {
    out += "<circle class=\"point\" cx=\"" + num(f.px(x)) + "\" cy=\"" + num(f.py(y)) + "\" r=\"3.5\"/>\n";
  }
  return out + "</g>\n</svg>\n";
}

std::string bars(const std::string& title, const std::string& yLabel, const std::vector<std::string>& labels,
                 const std::vector<double>& values, const std::vector<std::string>& colours) {
  std::string out = open(title);
  double hi = 0;
  double lo = 0;
  for (double v : values) {
    if (std::isfinite(v)) {
      hi = std::max(hi, v);
      lo = std::min(lo, v);
    }
  }
  const std::vector<double> yTicks = niceTicks(lo, hi > lo ? hi : lo + 1, 5);
  const Frame f{0, static_cast<double>(std::max<std::size_t>(1, labels.size())), yTicks.front(), yTicks.back()};
  out += axes(f, {}, yTicks, "", yLabel);
  const double slot = kPlotW / std::max<std::size_t>(1, labels.size());
  for (std::size_t i = 0; i < labels.size(); ++i) {
    const double cx = kLeft + slot * (static_cast<double>(i) + 0.5);
    if (i < values.size() && std::isfinite(values[i])) {
      const double top = f.py(std::max(0.0, values[i]));
      const double bottom = f.py(std::min(0.0, values[i]));
      const std::string fill = i < colours.size() && !colours[i].empty() ? colours[i] : "#9ab6d8";
      out += "<rect class=\"bar\" x=\"" + num(cx - slot * 0.35) + "\" y=\"" + num(top) + "\" width=\"" +
             num(slot * 0.7) + "\" height=\"" + num(std::max(0.5, bottom - top)) + "\" fill=\"" + htmlEscape(fill) +
             "\" stroke=\"#2f4f75\"><title>" + htmlEscape(labels[i]) + ": " + num(values[i]) + "</title></rect>\n";
    }
    out += "<text transform=\"translate(" + num(cx + 4) + " " + num(kTop + kPlotH + 8) +
           ") rotate(45)\" font-size=\"10\">" + htmlEscape(labels[i]) + "</text>\n";
  }
  return out + "</svg>\n";
}

}  // namespace zorvhost::charts
