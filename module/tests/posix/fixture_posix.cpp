// The POSIX side of the module tests' fixtures: an installation folder whose launcher runs the
// Python stand-in, process liveness through /proc, and the exports of the built library through nm.
#include <sys/stat.h>

#include <cstdio>
#include <sstream>

#include "module_test_support.h"
#include "platform/posix/process_tree.h"

namespace mt {

void install(const std::string& base, Launcher launcher, bool scriptInScripts) {
  std::filesystem::create_directories(base + "/scripts");
  const std::string script = scriptInScripts ? base + "/scripts/genostat.pyc" : base + "/genostat.pyc";
  std::filesystem::copy_file(GENOSTAT_STANDIN_PYC, script, std::filesystem::copy_options::overwrite_existing);
  if (launcher == Launcher::Missing) return;
  const std::string path = base + "/statisticspython3";
  std::ofstream(path) << "#!/bin/sh\nexec \"" GENOSTAT_TEST_PYTHON "\" -S \"$@\"\n";
  ::chmod(path.c_str(), launcher == Launcher::Runs ? 0755 : 0644);
}

bool processGone(int pid) { return !genostat::platform::posix::processAlive(static_cast<pid_t>(pid)); }

std::string hostPath(const std::string& path) { return path; }

std::set<std::string> exportedNames(const std::string& library, std::string& error) {
  std::set<std::string> names;
  FILE* pipe = ::popen(("nm -D --defined-only '" + library + "' 2>&1").c_str(), "r");
  if (pipe == nullptr) {
    error = "cannot run nm";
    return names;
  }
  std::string output;
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, n);
  if (::pclose(pipe) != 0) error = "nm failed: " + output;
  std::istringstream lines(output);
  // "<address> <type> <name>": the name is the last field.
  for (std::string line; std::getline(lines, line);) names.insert(line.substr(line.rfind(' ') + 1));
  return names;
}

}  // namespace mt
