// Where everything zorv shows goes: the terminal (or standard output), the event stream, and the
// HTML page of the whole session (--output).
//
// Human output: informative lines and tables on `human`, errors on `errors`. With `interactive`
// each line first returns the cursor to the line's start, so that it overwrites a prompt; a status
// line (a running job's elapsed time) is shown only on a terminal and is wiped before anything
// else is written.
//
// Threads: the console's main thread only.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "events.h"
#include "zorvhost/client.h"
#include "zorvhost/output.h"

namespace zorv {

class OutputSink {
 public:
  OutputSink(std::ostream& human, std::ostream& errors, EventLog& events);

  void setInteractive(bool interactive) { interactive_ = interactive; }
  void setStatusAllowed(bool allowed) { statusAllowed_ = allowed; }
  // While a line editor shows a prompt and typed text, output first erases that line (the editor
  // draws it again below).
  void setEditing(bool editing) { editing_ = editing; }
  // Colours pass, warn and fail in the tables on the terminal.
  void setColour(bool colour) { colour_ = colour; }

  // An informative line (job messages, notices); it reaches the page as a message.
  void line(const std::string& text);
  // An error as `<where>: <command>: <text>`; an error event; a page error.
  void error(const std::string& where, const std::string& command, const std::string& text);
  // A command as it is run: only the page shows it. Commands a job generated are folded away
  // there (consecutive ones together), shown on request.
  void command(const std::string& text, bool generated = false);
  void table(const zorvhost::OutputTable& table);
  // A chart of `procedure`: the SVG goes into the page, a chart event (title only) to the events,
  // and a line to the terminal saying where to see it.
  void chart(const std::string& procedure, const std::string& title, const std::string& svg, bool announce = true);
  // The active dataset after a command changed it: a line, an event, a page message.
  void dataset(const zorvhost::DatasetInfo& info);
  // A job's dataset, once named: its per-sample table, its values as an event, overview charts.
  void qcDataset(const std::string& name, const zorvhost::DatasetData& data);
  void jobStart(const std::string& job, bool started);
  void jobEnd(const std::string& job, const std::string& syntax, const std::string& csv,
              int32_t workbook, int32_t paragraph);

  // A one-line status (no line break) that the next output replaces; ignored unless allowed.
  void status(const std::string& text);
  void clearStatus();
  // Ends a line that something else (the module's diagnostics) may have left open on the terminal.
  void endForeignLine();
  // Writes the prompt text as it stands (no line break).
  void prompt(const std::string& text);

  // The session's page: header, every fragment so far, footer.
  std::string htmlPage() const;

 private:
  void humanLine(const std::string& text);
  // Wipes a status line, and the prompt line a line of output is about to replace.
  void startLine();
  // Adds a fragment to the page, closing an open fold of generated commands first.
  void page(std::string fragment);
  // A heading or table the outline links to; returns its anchor id.
  std::string anchor(int level, const std::string& text);

  struct OutlineEntry {
    int level;  // 1 job, 2 procedure or dataset, 3 table or chart
    std::string id, text;
  };
  std::vector<OutlineEntry> outline_;
  bool foldOpen_ = false;

  std::ostream& human_;
  std::ostream& errors_;
  EventLog& events_;
  bool interactive_ = false;
  bool statusAllowed_ = false;
  bool statusShown_ = false;
  bool editing_ = false;
  bool colour_ = false;
  std::string lastProcedure_;  // the page opens a procedure heading when it changes
  std::vector<std::string> html_;
};

}  // namespace zorv
