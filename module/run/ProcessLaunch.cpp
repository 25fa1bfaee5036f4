// One job's run on the worker thread: the result CSV's name, the analysis process, the wait, and
// what the job's outcome sends to the client.
#include <chrono>
#include <cstdio>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "entry/Texts.h"
#include "host/paths.h"
#include "jobs/GenoStatAlgoManager.h"
#include "platform/platform.h"

namespace {

constexpr int kInstallFolderKind = 3;
constexpr char kScriptsFolder[] = "scripts";
constexpr char kScriptName[] = "genostat.pyc";

// Runs `release` on every way out of the run.
template <typename Release>
class ScopeExit {
 public:
  explicit ScopeExit(Release release) : release_(release) {}
  ~ScopeExit() { release_(); }
  ScopeExit(const ScopeExit&) = delete;
  ScopeExit& operator=(const ScopeExit&) = delete;

 private:
  Release release_;
};

// The launcher and the script as the launch names them, from the host's installation folder.
void launchPaths(std::string& launcher, std::string& script) {
  const PathFinder* finder = PathFactory::getPathInstance(kInstallFolderKind);
  const std::string base = finder != nullptr ? finder->getPath() : std::string();
  script = base + kScriptsFolder + genostat::platform::pathSeparator() + kScriptName;
  // The fallback is not checked: a script that is not there fails in the launcher.
  const genostat::platform::PathAttributes found = genostat::platform::pathAttributes(script);
  if (!found.exists || found.directory) script = base + kScriptName;
  launcher = base + genostat::platform::launcherFileName();
}

// A killed process may hold the file a moment longer on Windows, where the end of a terminated
// process is asynchronous and an open file cannot be removed: a few tries, half a second at most.
bool removeSoon(const std::string& path) {
  for (int attempt = 0; attempt < 10; ++attempt) {
    if (std::remove(path.c_str()) == 0) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

}  // namespace

std::string GenoStatAlgoManager::launchTooLong(const GenoJobSettings* settings) {
  if (settings == nullptr) return std::string();
  // The result's name is chosen at run time; the longest one it can take stands in for it.
  GenoJobSettings probe;
  probe.fastqFiles = settings->fastqFiles;
  probe.fastqFolder = settings->fastqFolder;
  probe.adapterType = settings->adapterType;
  probe.customAdapterSequence = settings->customAdapterSequence;
  const char* temp = GetZorvTempPath();
  probe.csvFilePath = joinPath(temp != nullptr ? temp : "", std::string(20, '9') + "_999.csv");
  std::string json;
  generateParameterJSON(&probe, json);
  const size_t payload = base64_encode(json).size();
  std::string launcher;
  std::string script;
  launchPaths(launcher, script);
  const size_t line = launcher.size() + script.size() + payload + 8;  // three quoted parts, two blanks
  const genostat::platform::CommandLineLimits limits = genostat::platform::commandLineLimits();
  if (payload <= limits.argument && line <= limits.line) return std::string();
  const size_t limit = payload > limits.argument ? limits.argument : limits.line;
  const size_t needed = payload > limits.argument ? payload : line;
  return std::to_string(settings->fastqFiles.size()) + " input files make a command line of " +
         std::to_string(needed) + " bytes, above this system's limit of " + std::to_string(limit) +
         "; put the files in one folder and name it with FOLDER='...' instead";
}

bool GenoStatAlgoManager::launchPythonProcess(GenoJobSettings* settings) {
  if (settings == nullptr) return false;
  const auto releaseRecord = [this, settings] { releaseJob(settings); };
  const ScopeExit<decltype(releaseRecord)> release(releaseRecord);

  // Only a job nobody has cancelled becomes Running: a cancel between the worker taking the job
  // and this point must not be overwritten.
  JobStatus expected = JobStatus::Pending;
  settings->jobStatus.compare_exchange_strong(expected, JobStatus::Running);

  int pid = -1;
  try {
    const char* temp = GetZorvTempPath();
    const std::string tempFolder = temp != nullptr ? temp : "";
    const std::string csv = generateUniqueFilename(tempFolder, settings->jobName);
    if (csv.empty()) return false;  // no temporary folder: the job is dropped, as it always was
    {
      // A cancel of the running job sends this path to the client under the lock.
      std::lock_guard<std::mutex> lock(m_queueMutex);
      settings->csvFilePath = csv;
    }

    std::string launcher;
    std::string script;
    launchPaths(launcher, script);

    std::string json;
    generateParameterJSON(settings, json);
    const std::string payload = base64_encode(json);
    pid = genostat::platform::startProcess(launcher, {script, payload});
  } catch (const std::exception&) {
    return false;
  }
  if (pid < 0) return false;  // no child could be created: silent, as the run has nothing to report

  m_processId.store(pid);
  // A cancel that came before the id was stored killed nothing; this one is then the only kill.
  // (Both atomics are sequentially consistent: the cancel either sees the id or is seen here.)
  if (settings->jobStatus.load() == JobStatus::Cancelled) killProcess(pid);

  const int exitCode = genostat::platform::waitForExitKeepingId(pid);
  {
    // The ended process still holds its id, so no cancel can kill a stranger that inherits it.
    // From here on no cancel reaches the job and its status is final; it leaves the running job
    // only when its record is released, after its end message.
    std::lock_guard<std::mutex> lock(m_queueMutex);
    m_processId.store(-1);
    if (m_currentJob.load() == settings) m_currentJobEnded.store(true);
  }
  genostat::platform::reapProcess(pid);

  try {
    if (settings->jobStatus.load() == JobStatus::Cancelled) {
      // The cancel has told the client already; only the partial result goes: the CSV and the
      // ".part" file the script writes it as until it is complete.
      for (const std::string& path : {settings->csvFilePath, settings->csvFilePath + ".part"}) {
        if (fileExists(path) && !removeSoon(path)) std::perror(texts::kFileDeletionFailed);
      }
      return true;
    }
    if (handlePythonError(exitCode, settings)) return true;

    settings->jobStatus.store(JobStatus::Completed);
    std::string syntax;
    if (fileExists(settings->csvFilePath)) {
      int32_t rows = 0;
      int32_t columns = 0;
      parseCSVForCounts(settings->csvFilePath, rows, columns);
      // A CSV without data rows keeps the record's counts and code as they were.
      if (rows > 0) {
        settings->sampleCount = rows;
        settings->variableCount = columns - 2;  // the sample name and the adapter are not metrics
        settings->messageCode = 100;
      }
      preparePostJobSyntax(settings, syntax, false);
    } else {
      settings->sampleCount = 0;
      settings->variableCount = 0;
      settings->messageCode = 101;
      preparePostJobSyntax(settings, syntax, true);
    }
    sendEndGenomicsJobMessage(settings, syntax);
  } catch (const std::exception&) {
    // Out of memory while building texts: the job ends without its message, the worker goes on.
  }
  return true;
}
