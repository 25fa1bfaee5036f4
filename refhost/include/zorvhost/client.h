// The reference host's client side: what the host's own command processor and client do around a
// procedure call, offered to the console (and to tests) as plain functions.
//
// The module never includes this header; it sees only module/host/.
#pragma once

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

// Opens a dataset named `name` (an empty dataset unless the host imported data into it).
ZORV_HOST_API void openDataset(const std::string& name);
// Closes every dataset whose name equals `name` case-insensitively; true when one was closed.
ZORV_HOST_API bool closeDataset(const std::string& name);
ZORV_HOST_API void closeAllDatasets();
ZORV_HOST_API std::vector<std::string> datasetNames();

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
