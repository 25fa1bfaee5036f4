// zorv's command line: what to run and how the console is set up.
#pragma once

#include <string>
#include <vector>

namespace zorv {

// One source of syntax, run in command-line order.
struct Source {
  enum class Kind { File, Text, StandardInput };
  Kind kind;
  std::string value;  // the file's path or the -e text; empty for standard input
};

struct Options {
  std::vector<Source> sources;         // empty: standard input
  bool batch = false;                  // command-line mode: no interactive client
  std::string eventsPath;              // "" none, "-" standard output, else a file
  std::string outputPath;              // "" none, else the session's HTML page
  std::string installDir;              // "": zorv-install beside zorv's folder, else the build's
  std::string tempDir;                 // "" a new folder under $TMPDIR or /tmp
  std::string metadataJson;            // handed to the module before each user GENOSTAT
  bool haveMetadata = false;
  std::vector<std::string> datasets;   // opened before the first command
  std::string language = "en";         // string tables to use
  bool waitForJobs = true;             // at the end of input: wait (true) or cancel (false)
  bool help = false;
};

// Reads argv[1..argc). On a mistake returns false and puts one line (without "zorv: ") in `error`.
bool parseOptions(int argc, const char* const* argv, Options& options, std::string& error);

// The text printed by --help.
std::string usageText();

}  // namespace zorv
