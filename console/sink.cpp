#include "sink.h"

#include "qcview.h"
#include "texts.h"

#include <cstdio>

namespace zorv {

OutputSink::OutputSink(std::ostream& human, std::ostream& errors, EventLog& events)
    : human_(human), errors_(errors), events_(events) {}

void OutputSink::startLine() {
  clearStatus();
  if (editing_) {
    human_ << "\r\033[K";
  } else if (interactive_) {
    human_ << '\r';
  }
}

void OutputSink::humanLine(const std::string& text) {
  startLine();
  human_ << text << '\n' << std::flush;
}

void OutputSink::page(std::string fragment) {
  if (foldOpen_) {
    html_.push_back("</details>\n");
    foldOpen_ = false;
  }
  html_.push_back(std::move(fragment));
}

std::string OutputSink::anchor(int level, const std::string& text) {
  const std::string id = "s" + std::to_string(outline_.size() + 1);
  outline_.push_back({level, id, text});
  return id;
}

void OutputSink::line(const std::string& text) {
  humanLine(text);
  page("<p class=\"zorv-message\">" + zorvhost::htmlEscape(text) + "</p>\n");
}

void OutputSink::error(const std::string& where, const std::string& command, const std::string& text) {
  startLine();
  human_.flush();
  errors_ << where << ": " << command << ": " << text << std::endl;
  events_.write(errorEvent(command, text));
  page("<p class=\"zorv-error\">" + zorvhost::htmlEscape(where + ": " + command + ": " + text) + "</p>\n");
}

void OutputSink::command(const std::string& text, bool generated) {
  const std::string pre = "<pre class=\"zorv-command\">" + zorvhost::htmlEscape(text) + ".</pre>\n";
  if (!generated) {
    page(pre);
  } else {
    if (!foldOpen_) {
      html_.push_back("<details class=\"zorv-generated\"><summary>Commands the job ran</summary>\n");
      foldOpen_ = true;
    }
    html_.push_back(pre);
  }
  lastProcedure_.clear();
}

void OutputSink::table(const zorvhost::OutputTable& table) {
  startLine();
  const std::string text = zorvhost::renderTableText(table);
  human_ << (colour_ ? colourVerdicts(text) : text) << std::flush;
  events_.write(zorvhost::tableEventJson(table));
  if (table.procedure != lastProcedure_) {
    const std::string id = anchor(2, table.procedure);
    page("<h2 class=\"zorv-procedure\" id=\"" + id + "\">" + zorvhost::htmlEscape(table.procedure) + "</h2>\n");
    lastProcedure_ = table.procedure;
  }
  const std::string id = anchor(3, table.title);
  page("<div id=\"" + id + "\">" + zorvhost::renderTableHtml(table) + "</div>\n");
}

void OutputSink::chart(const std::string& procedure, const std::string& title, const std::string& svg, bool announce) {
  if (announce) humanLine(tr("Chart: {0} (on the HTML page, --output)", {title}));
  events_.write(chartEvent(procedure, title));
  if (procedure != lastProcedure_) {
    const std::string id = anchor(2, procedure);
    page("<h2 class=\"zorv-procedure\" id=\"" + id + "\">" + zorvhost::htmlEscape(procedure) + "</h2>\n");
    lastProcedure_ = procedure;
  }
  const std::string id = anchor(3, title);
  page("<figure class=\"zorv-chart\" id=\"" + id + "\">\n" + svg + "<figcaption>" + zorvhost::htmlEscape(title) +
       "</figcaption>\n</figure>\n");
}

void OutputSink::dataset(const zorvhost::DatasetInfo& info) {
  line(tr("Active dataset {0}: {1}, {2}.",
          {info.name.empty() ? tr("(unnamed)") : info.name,
           tr(info.cases == 1 ? "{0} case" : "{0} cases", {std::to_string(info.cases)}),
           tr(info.variables == 1 ? "{0} variable" : "{0} variables", {std::to_string(info.variables)})}));
  events_.write(datasetEvent(info.name, info.cases, info.variables));
}

void OutputSink::qcDataset(const std::string& name, const zorvhost::DatasetData& data) {
  table(qcSampleTable(name, data));
  events_.write(datasetValuesEvent(name, data));
  const auto charts = qcOverviewCharts(data);
  humanLine(tr("Charts: {0} overviews of the samples (qc_score, GC, mean quality, verdicts per QC module) on the HTML "
               "page, --output",
               {std::to_string(charts.size())}));
  for (const auto& [title, svg] : charts) chart(tr("QC results"), title, svg, false);
}

void OutputSink::jobStart(const std::string& job, bool started) {
  events_.write(jobStartEvent(job, started));
  line(tr(started ? "Job {0} started." : "Job {0} queued.", {job}));
}

void OutputSink::jobEnd(const std::string& job, const std::string& syntax, const std::string& csv,
                        int32_t workbook, int32_t paragraph) {
  events_.write(jobEndEvent(job, syntax, csv, workbook, paragraph));
  if (syntax.empty()) return;  // a cancel: nothing follows on the page
  const std::string id = anchor(1, "Job " + job);
  page("<h2 class=\"zorv-job\" id=\"" + id + "\">Job " + zorvhost::htmlEscape(job) + "</h2>\n");
  lastProcedure_.clear();
}

void OutputSink::status(const std::string& text) {
  if (!statusAllowed_) return;
  human_ << "\r\033[K" << text << std::flush;
  statusShown_ = true;
}

void OutputSink::clearStatus() {
  if (!statusShown_) return;
  human_ << "\r\033[K" << std::flush;
  statusShown_ = false;
}

void OutputSink::endForeignLine() {
  clearStatus();
  std::fflush(stdout);  // the module writes through C's stdout, which may still hold its text
  human_ << '\n' << std::flush;
}

void OutputSink::prompt(const std::string& text) {
  clearStatus();
  human_ << text << std::flush;
}

std::string OutputSink::htmlPage() const {
  std::string text = zorvhost::htmlPageHeader("zorv session");
  if (!outline_.empty()) {
    text += "<nav class=\"zorv-outline\"><strong>Contents</strong>\n<ul>\n";
    for (const auto& e : outline_) {
      text += "<li class=\"zorv-level" + std::to_string(e.level) + "\"><a href=\"#" + e.id + "\">" +
              zorvhost::htmlEscape(e.text) + "</a></li>\n";
    }
    text += "</ul>\n</nav>\n";
  }
  for (const auto& fragment : html_) text += fragment;
  if (foldOpen_) text += "</details>\n";
  text += zorvhost::htmlPageFooter();
  return text;
}

}  // namespace zorv
