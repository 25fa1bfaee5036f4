// The reference host's output, client side: the tables that procedures emit through the host
// output library (module/host/output.h), as plain values, and their renderings as text, HTML and
// one-line JSON events.
//
// The road of a table: a procedure builds Table objects on a StatJSONGenerator and adds each to
// the generator's procedure JSON; StatJSONConverter::generateOutput() reads that JSON back and
// hands every table, as an OutputTable, to the handler registered with setOutputHandler(), on the
// thread that called generateOutput() (the host's command thread). With no handler registered the
// table's text rendering goes to standard output, so no output is ever dropped.
//
// The procedure JSON (what StatJSONGenerator::getProcedureStatJSON() returns):
//
//   {"procedure": "GENOSTAT", "subtitle": "",
//    "tables": [
//      {"title": "Summary", "hideTitle": false,
//       "minDataColumnWidth": 100, "maxDataColumnWidth": 700,
//       "defaultFormat": {"type": 5, "width": 10, "decimals": 4},
//       "rowDimension": {"label": "  ", "showLabel": false},
//       "columnLabels": ["Count"],
//       "rowLabels": ["Samples", "Variables"],
//       "cells": [["3"], ["27"]]}]}
//
// "procedure", "tables" and, per table, "title", "columnLabels", "rowLabels" and "cells" are
// required; the other members take the defaults of OutputTable when absent. A member of the wrong
// type makes its table unreadable: that table is skipped and the others are still shown.
//
// Cells are texts and stay the texts the procedure wrote: the default cell format (type, width,
// decimals) is recorded and passed on, but no renderer reformats a cell by it ("3" shows as "3",
// not "3.0000"). A table shows max(column labels, longest cell row) data columns and
// max(row labels, cell rows) rows; whatever is missing shows empty.
//
// Errors: a procedure JSON that cannot be read is not shown; instead reportCommandError() (see
// zorvhost/client.h) records why, under the procedure's name, and, when no handler is registered,
// the same text goes to standard error.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/host_api.h"

namespace zorvhost {

struct OutputTable {
  std::string procedure;  // the procedure that made the table ("GENOSTAT")
  std::string title;
  bool hideTitle = false;
  std::string rowDimensionLabel;  // the label of the row categories (shown above the row labels)
  bool showRowDimensionLabel = true;
  std::vector<std::string> columnLabels;
  std::vector<std::string> rowLabels;
  std::vector<std::vector<std::string>> cells;  // one vector per row, as the procedure gave them

  // Recorded from the procedure; informative only (see above).
  std::string subtitle;
  int minDataColumnWidth = 0;  // host units (pixels); 0: none
  int maxDataColumnWidth = 0;
  int formatType = 0;  // ZORV_Format::FormatType
  int formatWidth = 0;
  int formatDecimals = 0;
};

// Registers the function that receives every table from now on (any thread may register; the
// handler runs on the thread that calls generateOutput()). An empty function restores the
// standard-output fallback. An exception thrown by the handler is reported as a command error
// and the next table is still delivered.
ZORV_HOST_API void setOutputHandler(std::function<void(const OutputTable&)> handler);

enum class TextRules { Box, Ascii };

// The table as aligned text: the title on its own line (unless hidden), then the grid drawn with
// box-drawing characters (or ASCII). Widths count displayed characters (code points; combining
// marks none, East Asian wide characters two), so "Größe" lines up with "Sizes". Numbers are
// right-aligned, other texts left-aligned; a header row whose texts are all empty is left out.
// Line breaks in a text make a taller row; other control characters show as blanks. Ends with a
// newline.
ZORV_HOST_API std::string renderTableText(const OutputTable& table);
ZORV_HOST_API std::string renderTableText(const OutputTable& table, TextRules rules);

// The table as an HTML fragment: <table class="zorv-table"> with a <caption> (unless hidden), a
// <thead> unless every header text is empty, and one <tr> per row (row label in <th scope="row">).
// Every text is escaped; bytes that are not UTF-8 become U+FFFD; line breaks become <br>.
ZORV_HOST_API std::string renderTableHtml(const OutputTable& table);

// `text` escaped for HTML element content and attribute values (& < > " '), invalid UTF-8 replaced
// by U+FFFD, control characters other than tab and line breaks dropped.
ZORV_HOST_API std::string htmlEscape(const std::string& text);

// A self-contained page (inline style, no external resources): the header opens <body>, the footer
// closes the page. Between them put renderTableHtml() fragments and paragraphs of these classes:
//   <h2 class="zorv-procedure">  a procedure's heading
//   <p class="zorv-error">       an error
//   <p class="zorv-message">     a job message or other note
//   <pre class="zorv-command">   a command as it was run
ZORV_HOST_API std::string htmlPageHeader(const std::string& title);
ZORV_HOST_API std::string htmlPageFooter();

// {"event":"table","title":...,"column_labels":[...],"row_labels":[...],"cells":[[...]]} on one
// line, no trailing newline. Texts are JSON-escaped (quotes, backslashes, control characters);
// other UTF-8 passes through unchanged, invalid bytes become U+FFFD. The cells are the rows as
// the procedure gave them (not padded).
ZORV_HOST_API std::string tableEventJson(const OutputTable& table);

}  // namespace zorvhost
