// zorv: the console client. Sets up the reference host as the host application would (folders,
// language, datasets, the client connection), loads the module and hands over to the Console.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "console.h"
#include "events.h"
#include "options.h"
#include "platform/platform.h"
#include "texts.h"
#include "zorvhost/client.h"

#ifndef ZORV_DEFAULT_INSTALL_DIR
#define ZORV_DEFAULT_INSTALL_DIR ""
#endif

namespace {

int fail(const std::string& message) {
  std::cerr << "zorv: " << message << std::endl;
  return 2;
}

bool isFolder(const std::string& path) {
  std::error_code ec;
  return !path.empty() && std::filesystem::is_directory(std::filesystem::u8path(path), ec);
}

// Without --install-dir: zorv-install beside the folder that holds zorv (bin/../zorv-install), as
// both the build tree and a copied installation are laid out; else the folder of the build.
std::string defaultInstallDir() {
  const std::string folder = zorv::platform::programFolder();
  if (!folder.empty()) {
    const std::filesystem::path bin = std::filesystem::u8path(folder).parent_path();
    const std::string beside = (bin.parent_path() / "zorv-install").u8string();
    if (isFolder(beside)) return beside;
  }
  return ZORV_DEFAULT_INSTALL_DIR;
}

// Removes the temporary folder zorv made, whatever the jobs left in it.
struct TempFolder {
  std::string path;
  bool owned = false;
  ~TempFolder() {
    if (!owned) return;
    std::error_code ec;
    std::filesystem::remove_all(std::filesystem::u8path(path), ec);
  }
};

}  // namespace

int zorv::consoleMain(int argc, char** argv) {
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
    eventsFile = platform::takeStandardOutput(error);
    if (eventsFile == nullptr) return fail("cannot set up --events -: " + error);
  } else if (!options.eventsPath.empty()) {
    eventsFile = platform::openForWriting(options.eventsPath);
    if (eventsFile == nullptr) {
      return fail("cannot write events to " + options.eventsPath + ": " + std::strerror(errno));
    }
  }
  zorv::EventLog events(eventsFile);

  // The page is written at the end; find out now whether it can be.
  if (!options.outputPath.empty()) {
    std::FILE* page = platform::openForWriting(options.outputPath);
    if (page == nullptr) {
      return fail("cannot write the output page " + options.outputPath + ": " + std::strerror(errno));
    }
    std::fclose(page);
  }

  std::string installDir = options.installDir.empty() ? defaultInstallDir() : options.installDir;
  if (!isFolder(installDir)) return fail("installation folder not found: " + installDir);

  TempFolder temp;
  if (!options.tempDir.empty()) {
    if (!isFolder(options.tempDir)) return fail("temporary folder not found: " + options.tempDir);
    temp.path = options.tempDir;
  } else {
    if (!platform::makeTemporaryFolder(temp.path, error)) return fail(error);
    temp.owned = true;
  }

  // The channel lives as long as the process: an interrupt may come until the very end.
  std::shared_ptr<platform::WakeChannel> wake;
  try {
    static platform::WakeChannel* const channel = new platform::WakeChannel();
    wake = std::shared_ptr<platform::WakeChannel>(channel, [](platform::WakeChannel*) {});
  } catch (const std::runtime_error& e) {
    return fail(e.what());
  }
  if (!platform::catchInterrupts(*wake, error)) return fail(error);

  zorv::ModuleEntry module;
  if (!zorv::loadModule(module, error)) return fail(error);

  zorvhost::setLanguage(options.language);
  zorvhost::setInstallPath(installDir);
  zorv::loadTexts(installDir);
  zorvhost::setTempPath(temp.path);
  for (const auto& name : options.datasets) zorvhost::openDataset(name);

  int status;
  {
    zorv::Console console(options, module, events, wake, std::cout, std::cerr);
    console.setStatusLine(platform::standardOutputIsTerminal());
    zorvhost::attachClient(!options.batch, [box = console.mailbox()](int32_t id,
                                                                    const void* message) {
      box->post(id, message);
    });
    status = console.run();
    zorvhost::detachClient();
  }
  return status;
}
