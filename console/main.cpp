// zorv: the console client. Sets up the reference host as the host application would (folders,
// language, datasets, the client connection), loads the module and hands over to the Console.
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>

#include "console.h"
#include "events.h"
#include "options.h"
#include "zorvhost/client.h"

#ifndef ZORV_DEFAULT_INSTALL_DIR
#define ZORV_DEFAULT_INSTALL_DIR ""
#endif

namespace {

int g_wakeWriteFd = -1;

extern "C" void onSignal(int) {
  // Only async-signal-safe work here: the main loop sees the byte and quits.
  if (g_wakeWriteFd >= 0) {
    char q = 'q';
    ssize_t ignored = write(g_wakeWriteFd, &q, 1);
    (void)ignored;
  }
}

int fail(const std::string& message) {
  std::cerr << "zorv: " << message << std::endl;
  return 2;
}

bool isFolder(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Removes the temporary folder zorv made, whatever the jobs left in it.
struct TempFolder {
  std::string path;
  bool owned = false;
  ~TempFolder() {
    if (!owned) return;
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
};

}  // namespace

int main(int argc, char** argv) {
  zorv::Options options;
  std::string error;
  if (!zorv::parseOptions(argc, argv, options, error)) return fail(error);
  if (options.help) {
    std::cout << zorv::usageText();
    return 0;
  }

  // Events: with "-" they keep the real standard output and every other write of the process,
  // the module's and the children's included, goes to standard error.
  std::FILE* eventsFile = nullptr;
  if (options.eventsPath == "-") {
    int fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (fd < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
      return fail(std::string("cannot set up --events -: ") + std::strerror(errno));
    }
    eventsFile = fdopen(fd, "w");
  } else if (!options.eventsPath.empty()) {
    eventsFile = std::fopen(options.eventsPath.c_str(), "we");
    if (eventsFile == nullptr) {
      return fail("cannot write events to " + options.eventsPath + ": " + std::strerror(errno));
    }
  }
  zorv::EventLog events(eventsFile);

  // The page is written at the end; find out now whether it can be.
  if (!options.outputPath.empty()) {
    std::FILE* page = std::fopen(options.outputPath.c_str(), "we");
    if (page == nullptr) {
      return fail("cannot write the output page " + options.outputPath + ": " + std::strerror(errno));
    }
    std::fclose(page);
  }

  std::string installDir = options.installDir.empty() ? ZORV_DEFAULT_INSTALL_DIR : options.installDir;
  if (!isFolder(installDir)) return fail("installation folder not found: " + installDir);

  TempFolder temp;
  if (!options.tempDir.empty()) {
    if (!isFolder(options.tempDir)) return fail("temporary folder not found: " + options.tempDir);
    temp.path = options.tempDir;
  } else {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/zorv-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      return fail("cannot create a temporary folder " + pattern + ": " + std::strerror(errno));
    }
    temp.path = pattern;
    temp.owned = true;
  }

  int wake[2];
  if (pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) {
    return fail(std::string("cannot create a pipe: ") + std::strerror(errno));
  }
  g_wakeWriteFd = wake[1];
  struct sigaction sa {};
  sa.sa_handler = onSignal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);

  zorv::ModuleEntry module;
  if (!zorv::loadModule(module, error)) return fail(error);

  zorvhost::setLanguage(options.language);
  zorvhost::setInstallPath(installDir);
  zorvhost::setTempPath(temp.path);
  for (const auto& name : options.datasets) zorvhost::openDataset(name);

  int status;
  {
    zorv::Console console(options, module, events, wake[0], wake[1], std::cout, std::cerr);
    console.setStatusLine(isatty(STDOUT_FILENO) != 0);
    zorvhost::attachClient(!options.batch, [box = console.mailbox()](int32_t id,
                                                                    const void* message) {
      box->post(id, message);
    });
    status = console.run();
    zorvhost::detachClient();
  }
  return status;
}
