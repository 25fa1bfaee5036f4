// The host's own commands that a job's syntax runs, as zorv runs them on the host's command
// thread: the data import (GET DATA /TYPE=TXT), the dataset commands (DATASET NAME, DATASET
// ACTIVATE), the settings (SET DECIMAL, PRESERVE, RESTORE), the no-ops of a data pass (CACHE,
// EXECUTE), and the statistics procedures on the active dataset (zorvhost/stats.h): their tables,
// charts and notes go to the sink.
//
// Every command is first checked against its grammar in the host's catalogue; a fault is reported
// by the parser (zorvhost::reportCommandError) and nothing runs. A command's own failures are
// reported the same way, under the command's name, so the console reads every error in one place.
//
// Threads: the console's main thread only.
#pragma once

#include <string>
#include <vector>

#include "sink.h"

class CommandSpec;

namespace zorv {

class HostCommands {
 public:
  explicit HostCommands(OutputSink& sink) : sink_(sink) {}

  // True for the names run() knows (upper case, as commandNameOf gives them).
  static bool knows(const std::string& name);
  // True for the statistics procedures.
  static bool isStatistics(const std::string& name);

  // Runs `text`, a command named `name`. Errors go to zorvhost::reportCommandError.
  void run(const std::string& name, const std::string& text);

  char decimal() const { return settings_.decimal; }

 private:
  struct Settings {
    char decimal = '.';
  };

  void getData(const CommandSpec& spec);
  void statistics(const std::string& name, const CommandSpec& spec);

  OutputSink& sink_;
  Settings settings_;
  std::vector<Settings> preserved_;
};

}  // namespace zorv
