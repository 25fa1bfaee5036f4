#include "sink.h"

namespace zorv {

OutputSink::OutputSink(std::ostream& human, std::ostream& errors, EventLog& events)
    : human_(human), errors_(errors), events_(events) {}

void OutputSink::humanLine(const std::string& text) {
  clearStatus();
  if (interactive_) human_ << '\r';
  human_ << text << '\n' << std::flush;
}

void OutputSink::line(const std::string& text) {
  humanLine(text);
  html_.push_back("<p class=\"zorv-message\">" + zorvhost::htmlEscape(text) + "</p>\n");
}

void OutputSink::error(const std::string& where, const std::string& command, const std::string& text) {
  clearStatus();
  human_.flush();
  errors_ << where << ": " << command << ": " << text << std::endl;
  events_.write(errorEvent(command, text));
  html_.push_back("<p class=\"zorv-error\">" + zorvhost::htmlEscape(where + ": " + command + ": " + text) +
                  "</p>\n");
}

void OutputSink::command(const std::string& text) {
  html_.push_back("<pre class=\"zorv-command\">" + zorvhost::htmlEscape(text) + ".</pre>\n");
  lastProcedure_.clear();
}

void OutputSink::table(const zorvhost::OutputTable& table) {
  clearStatus();
  if (interactive_) human_ << '\r';
  human_ << zorvhost::renderTableText(table) << std::flush;
  events_.write(zorvhost::tableEventJson(table));
  if (table.procedure != lastProcedure_) {
    html_.push_back("<h2 class=\"zorv-procedure\">" + zorvhost::htmlEscape(table.procedure) + "</h2>\n");
    lastProcedure_ = table.procedure;
  }
  html_.push_back(zorvhost::renderTableHtml(table));
}

void OutputSink::chart(const std::string& procedure, const std::string& title, const std::string& svg) {
  humanLine("Chart: " + title + " (on the HTML page, --output)");
  events_.write(chartEvent(procedure, title));
  if (procedure != lastProcedure_) {
    html_.push_back("<h2 class=\"zorv-procedure\">" + zorvhost::htmlEscape(procedure) + "</h2>\n");
    lastProcedure_ = procedure;
  }
  html_.push_back("<figure class=\"zorv-chart\">\n" + svg + "<figcaption>" + zorvhost::htmlEscape(title) +
                  "</figcaption>\n</figure>\n");
}

void OutputSink::dataset(const zorvhost::DatasetInfo& info) {
  line("Active dataset " + (info.name.empty() ? std::string("(unnamed)") : info.name) + ": " +
       std::to_string(info.cases) + (info.cases == 1 ? " case, " : " cases, ") +
       std::to_string(info.variables) + (info.variables == 1 ? " variable." : " variables."));
  events_.write(datasetEvent(info.name, info.cases, info.variables));
}

void OutputSink::jobStart(const std::string& job, bool started) {
  events_.write(jobStartEvent(job, started));
  line("Job " + job + (started ? " started." : " queued."));
}

void OutputSink::jobEnd(const std::string& job, const std::string& syntax, const std::string& csv,
                        int32_t workbook, int32_t paragraph) {
  events_.write(jobEndEvent(job, syntax, csv, workbook, paragraph));
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

void OutputSink::prompt(const std::string& text) {
  clearStatus();
  human_ << text << std::flush;
}

std::string OutputSink::htmlPage() const {
  std::string page = zorvhost::htmlPageHeader("zorv session");
  for (const auto& fragment : html_) page += fragment;
  page += zorvhost::htmlPageFooter();
  return page;
}

}  // namespace zorv
