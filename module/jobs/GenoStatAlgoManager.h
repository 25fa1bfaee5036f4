// The module's one job manager: the job queue, the worker thread that runs jobs one at a time, the
// running job's analysis process, and the helpers of the analysis run and its results.
//
// Threads that enter here:
//   [command] the host's command thread: the GENOSTAT entry, /PRINT, /DELETE, automatic names;
//   [client]  the host client's thread: getGenoManagerInstance, cancelGenoJob;
//   [worker]  the manager's own worker thread.
// One mutex (m_queueMutex) guards the queue and the worker state. Methods marked [locks] hold it
// for their whole body, including the client messages they post and, in cancelJob, the process
// kill; the worker holds it only while it waits and takes the next job.
#pragma once

#include <rapidjson/document.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "entry/GenoJobSettings.h"
#include "jobs/export.h"

class BpProcedure;
class FacSTDictionary;

class GENOSTAT_API GenoStatAlgoManager {
 public:
  // Jobs that may wait in the queue at once; the entry refuses the next command.
  static constexpr size_t kQueueLimit = 10;

  // [command] Why the launch of `settings` would not fit this system's command line (the count of
  // files, the size, the limit and what to do instead), or empty when it fits. The parameters are
  // the analysis's contract and are never cut, so a job that would not fit is refused up front.
  static std::string launchTooLong(const GenoJobSettings* settings);

  // [any] The one instance, created on first call; null when it cannot be allocated.
  static GenoStatAlgoManager* getManagerInstance();
  // [any] The instance if it has been created, else null; never creates it.
  static GenoStatAlgoManager* existingInstance();

  // Stops and joins the worker (a running job finishes first) and frees the queued records
  // without any message. The module itself never deletes the manager. Throws std::system_error
  // (resource_deadlock_would_occur) when called on the worker thread, which cannot join itself.
  ~GenoStatAlgoManager() noexcept(false);
  GenoStatAlgoManager(const GenoStatAlgoManager&) = delete;
  GenoStatAlgoManager& operator=(const GenoStatAlgoManager&) = delete;

  // [command][locks] Takes ownership of `job`, queues it as Pending and tells the client.
  void addJobToQueue(GenoJobSettings* job);
  // [any][locks] True when 10 or more jobs are queued (the running job does not count).
  bool isQueueFull();
  // [any][locks] True when the running job, or a queued Pending/Running job, bears `name` exactly.
  bool isJobPendingOrRunning(const std::string& name);
  // [client][locks] Cancels the running or a queued job by exact name; true when one was found.
  bool cancelJob(const std::string& name);
  // [client][locks] Cancels and frees every queued job; the running job is not touched.
  void cancellAllJobsPending();

  // [command] A name of the form <Genomic_analysis_job>_<n> that no open dataset and no pending or
  // running job bears; "" without a manager. Throws GenomicParserException (code 16) after 100.
  static std::string generateUniqueJobName();

  // [command] GENOSTAT /PRINT: the job's summary in the host's output.
  void postOutputToDisplay(GenoJobSettings* settings, BpProcedure* procedure);
  // [command] GENOSTAT /DELETE: removes the job's result CSV, if it is a file.
  void cleanUpCSVFileCreated(GenoJobSettings* settings);

 private:
  friend class GenoStatAlgoManagerTestPeer;  // unit tests reach the private helpers through it

  GenoStatAlgoManager();

  // ---- worker ----
  void processJobs();  // [worker]
  bool launchPythonProcess(GenoJobSettings* settings);  // [worker] owns and frees `settings`
  // [worker][locks] Stops treating `job` as the running job, then frees it: a cancel that found it
  // running has finished with it once this holds the lock.
  void releaseJob(GenoJobSettings* job);

  // ---- texts and messages ----
  std::string getLocalizedString(const std::string& key) const;
  void sendStartGenomicsJobMessage(GenoJobSettings* job, bool started);
  void sendEndGenomicsJobMessage(GenoJobSettings* job, const std::string& message);
  void generateMessageString(GenoJobSettings* settings);

  // ---- paths and file names ----
  static std::string joinPath(const std::string& base, const std::string& name);
  static std::string getFolderPath(const std::string& path);
  static bool fileExists(const std::string& path);
  static bool directoryExists(const std::string& path);
  static std::string generateUniqueFilename(const std::string& folder, std::string& hint);

  // ---- parameter JSON ----
  static void generateParameterJSON(const GenoJobSettings* settings, std::string& out);
  static std::string base64_encode(const std::string& data);
  std::string escapeJsonForCommandLine(const std::string& json) const;

  // ---- process supervision ----
  bool killProcess(int pid);
  int waitForPythonProcessToEnd();

  // ---- results ----
  bool parseCSVForCounts(const std::string& path, int32_t& samples, int32_t& variables);
  static void preparePostJobSyntax(const GenoJobSettings* settings, std::string& out, bool failed);

  // ---- analysis errors ----
  bool handlePythonError(int32_t exitCode, GenoJobSettings* job);
  std::string getErrorMessageTemplate(int32_t exitCode) const;
  rapidjson::Document readErrorDetails(const std::string& resultPath);
  static std::string replacePlaceholders(const std::string& text, const rapidjson::Document& details);
  std::string getTranslatedErrorMessage(const std::string& key) const;
  // [worker][locks] Keeps the filled failure text of an ended job for its /PRINT.
  void storeFailureMessage(const std::string& printJobName, int32_t messageCode, const std::string& text);
  // [command][locks] The kept text for the /PRINT of that name and code, forgotten once taken (FIFO per key).
  bool takeFailureMessage(const std::string& printJobName, int32_t messageCode, std::string& text);

  static std::once_flag m_initFlag;
  static std::atomic<GenoStatAlgoManager*> m_pAlgoMgr;

  // State below is guarded by m_queueMutex unless it says otherwise.
  std::list<GenoJobSettings*> m_jobQueue;
  std::mutex m_queueMutex;
  std::condition_variable m_queueCondition;
  std::thread m_workerThread;
  std::atomic<bool> m_stop{false};          // read by the worker without the lock after a job
  bool m_workerRunning = false;
  // Written by the worker, read by cancelJob. Set back to -1 under the lock as soon as the job's
  // process has ended, before its id can be given to another process.
  std::atomic<int32_t> m_processId{-1};
  // Set by the worker under the lock when it takes a job; cleared under the lock before the record
  // is freed, so a cancel never reads a freed record.
  std::atomic<GenoJobSettings*> m_currentJob{nullptr};
  // Set under the lock once the current job's process has ended. The job still counts as running
  // for name checks until its end message is out (a client that finds it neither queued nor
  // running must be able to trust that its end message has come), but no cancel reaches it.
  std::atomic<bool> m_currentJobEnded{false};
  // Filled failure texts waiting for their /PRINT, keyed by the job name as the /PRINT command spells
  // it (blanks as '_') and the message code; oldest first within a key.
  std::map<std::pair<std::string, int32_t>, std::deque<std::string>> m_failureMessages;
  // Created and deleted by the worker, read by every thread that builds texts.
  std::atomic<FacSTDictionary*> m_stringTable{nullptr};
};

// Exported C functions of the module.
extern "C" {
// The host's command processor calls this for every GENOSTAT command.
GENOSTAT_API void GENOSTAT();
// [client] The manager, created on first use.
GENOSTAT_API GenoStatAlgoManager* getGenoManagerInstance();
// [client] Cancels the job named `jobName`; false for a null manager or an unknown name.
GENOSTAT_API bool cancelGenoJob(GenoStatAlgoManager* manager, const char* jobName);
}
