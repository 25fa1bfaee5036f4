// The POSIX side of the module tests' fixtures: an installation folder whose launcher runs the
// Python stand-in, process liveness through /proc, the exports of the built library through nm,
// and the free watch's operator delete.
#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "module_test_support.h"
#include "platform/posix/process_tree.h"

namespace mt {

const bool kStandInEndsBySignal = true;

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
  const std::string command = "nm -D --defined-only '" + library + "' 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) {
    error = "cannot run nm";
    return names;
  }
  std::string output;
  char buffer[4096];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
  const int status = ::pclose(pipe);
  if (status != 0) {
    error = "nm failed: " + output;
    return names;
  }
  std::istringstream lines(output);
  std::string line;
  while (std::getline(lines, line)) {
    // "<address> <type> <name>"; the name is the last field.
    const std::string::size_type blank = line.rfind(' ');
    if (blank != std::string::npos) names.insert(line.substr(blank + 1));
  }
  return names;
}

void* loadedObjectBase(const void* code) {
  Dl_info info{};
  if (::dladdr(code, &info) == 0) return nullptr;
  return info.dli_fbase;
}

}  // namespace mt

// Only delete is replaced, and it hands every pointer on to the definition it displaces (the
// standard library's, or a sanitizer's), so allocation and release stay one matched pair.
namespace {
template <typename Function>
Function nextDefinition(const char* name) {
  static_assert(sizeof(Function) == sizeof(void*), "function pointers are plain addresses here");
  void* symbol = ::dlsym(RTLD_NEXT, name);
  Function function = nullptr;
  std::memcpy(&function, &symbol, sizeof function);
  return function;
}
}  // namespace

void operator delete(void* p) noexcept {
  static const auto next = nextDefinition<void (*)(void*)>("_ZdlPv");
  mt::freewatch::noteFree(p);
  next(p);
}
void operator delete(void* p, std::size_t size) noexcept {
  static const auto next = nextDefinition<void (*)(void*, std::size_t)>("_ZdlPvm");
  mt::freewatch::noteFree(p);
  next(p, size);
}
