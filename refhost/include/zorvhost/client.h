// The reference host's client side: what the host's own command processor and client do around a
// procedure call, offered to the console (and to tests) as plain functions.
//
// The module never includes this header; it sees only module/host/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/host_api.h"

namespace zorvhost {

// ---- Command being run (host command thread) ------------------------------------------------

// The text of the command the host runs next; ZORV_TokenSequence(true) reads it.
ZORV_HOST_API void setCommandText(const std::string& text);
ZORV_HOST_API const std::string& commandText();

// ---- Errors reported for the command (host command thread) ----------------------------------

struct CommandError {
  std::string command;  // the command's name as the procedure or the parser named it
  std::string text;     // the error's text, with its position where the parser gave one
};

// Records an error of the command being run (ParserMessage and the parser call this).
ZORV_HOST_API void reportCommandError(const std::string& command, const std::string& text);
// Returns the errors recorded since the last call, oldest first, and forgets them.
ZORV_HOST_API std::vector<CommandError> takeCommandErrors();

// ---- Client connection (any thread) ---------------------------------------------------------

// Called synchronously on the posting thread for every message of the host message bus.
using MessageHandler = std::function<void(int32_t id, const void* message)>;

// Attaches a client: GetAdapter() then returns an adapter whose isInteractiveClient() answers
// `interactive` and whose postClientMessage() calls `handler`. Replaces any earlier client.
ZORV_HOST_API void attachClient(bool interactive, MessageHandler handler);
// Detaches the client: GetAdapter() returns null again.
ZORV_HOST_API void detachClient();

// ---- Job metadata, folders ------------------------------------------------------------------

ZORV_HOST_API void setMetadataJson(const std::string& json);
ZORV_HOST_API void setTempPath(const std::string& folder);
// The installation folder (path kind 3); a missing trailing separator is added.
ZORV_HOST_API void setInstallPath(const std::string& folder);
ZORV_HOST_API std::string installPath();

// ---- Datasets (host command thread) ---------------------------------------------------------
//
// The registry holds the open datasets in the order they were opened. A dataset has a name or
// none (an import makes an unnamed one); ServerDataManager::GetAllDatasets() lists the named ones,
// which is where the module looks for names a job may not take. At most one dataset is active:
// the one the host's commands work on.

// One variable (column) of a dataset. A numeric variable keeps one number per case, NaN standing
// for a missing value; a string variable keeps one text per case.
struct Variable {
  enum class Type { Numeric, String };
  std::string name;
  Type type = Type::Numeric;
  std::vector<double> numbers;       // Numeric: one per case
  std::vector<std::string> strings;  // String: one per case
};

struct DatasetData {
  std::vector<Variable> variables;
  size_t cases = 0;
};

struct DatasetInfo {
  std::string name;  // "" for an unnamed dataset
  bool active = false;
  size_t cases = 0;
  size_t variables = 0;
};

// Opens a named, empty dataset (as if the user had opened one before the first command). It does
// not become the active dataset.
ZORV_HOST_API void openDataset(const std::string& name);
// Closes every dataset whose name equals `name` case-insensitively; true when one was closed.
ZORV_HOST_API bool closeDataset(const std::string& name);
ZORV_HOST_API void closeAllDatasets();
// The names of the named datasets, in registry order.
ZORV_HOST_API std::vector<std::string> datasetNames();
// Every open dataset, named or not, in registry order.
ZORV_HOST_API std::vector<DatasetInfo> datasets();

// Adds `data` as a new unnamed dataset and makes it the active one. An active dataset that has no
// name is replaced (nothing could reach it any more); a named one stays open.
ZORV_HOST_API void addImportedDataset(DatasetData data);
// Gives the active dataset the name `name` (kept as written). A dataset that held the name before
// (compared ignoring case) loses it and, unless it is the active one, is closed. False with the
// reason in `error` when there is no active dataset or the name is not a valid dataset name.
ZORV_HOST_API bool nameActiveDataset(const std::string& name, std::string& error);
// Makes the dataset named `name` (ignoring case) the active one; an unnamed dataset that was
// active is closed. False with the reason in `error` when no dataset bears that name.
ZORV_HOST_API bool activateDataset(const std::string& name, std::string& error);
// The active dataset's description; false when none is active.
ZORV_HOST_API bool activeDataset(DatasetInfo& info);
// A copy of the active dataset's data; false when none is active.
ZORV_HOST_API bool activeDatasetData(DatasetData& data);
// A copy of the data of the dataset named `name` (ignoring case); false when there is none.
ZORV_HOST_API bool datasetData(const std::string& name, DatasetData& data);

// ---- Delimited text import (import.cpp) ------------------------------------------------------

// One variable as GET DATA /VARIABLES declares it: a name and a format word. AUTO lets the data
// decide the type; A<width> makes a string variable, F<width>[.<decimals>] a numeric one.
struct ImportVariable {
  std::string name;
  std::string format;
};

struct TextImportSettings {
  std::string encoding = "UTF8";    // UTF8 (or UTF-8) only
  std::string delimiters = ",";     // each character separates fields; "\t" stands for a tab
  std::string qualifier;            // one character that may enclose a field, or "" for none
  int firstCase = 1;                // the line on which the cases begin (1-based)
  double typeMinPercentage = 95.0;  // AUTO: numeric when at least this share of the non-empty
                                    // values are numbers
  char decimal = '.';               // the decimal mark of the numbers ('.' or ',')
  // The variables in column order. Empty: named after the line before the first case, or
  // V1, V2, ... when the cases begin on line 1.
  std::vector<ImportVariable> variables;
};

// Reads delimited text into `data`. A value that does not fit its variable's type becomes missing
// and is counted in `notes` (one line per variable). On failure returns false with `error` naming
// the line and what is wrong; `data` is then left as it was.
ZORV_HOST_API bool importDelimitedText(const std::string& content, const TextImportSettings& settings,
                                       DatasetData& data, std::vector<std::string>& notes,
                                       std::string& error);
// The same for a file; a file that cannot be read is an error naming it.
ZORV_HOST_API bool importDelimitedFile(const std::string& path, const TextImportSettings& settings,
                                       DatasetData& data, std::vector<std::string>& notes,
                                       std::string& error);

// ---- String tables (strings.cpp) ------------------------------------------------------------

// The language whose tables FacSTDictionary loads from <installFolder>/strings/<code>/; "en" until
// set. A dictionary reads it when it loads a table, so set it before the first job runs.
ZORV_HOST_API void setLanguage(const std::string& code);
ZORV_HOST_API std::string language();

// A line of a string table that was left out, and why.
struct StringTableIssue {
  int line;             // 1-based
  std::string problem;  // e.g. "no tab between key and text"
};

// Reads a string table's text (the format is described in refhost/core/strings.cpp) into `table`.
// Lines that break the format are left out and listed in `issues`; the other lines still load.
// Returns true when no line was left out.
ZORV_HOST_API bool parseStringTable(const std::string& text,
                                    std::map<std::string, std::string>& table,
                                    std::vector<StringTableIssue>& issues);

}  // namespace zorvhost
