// Unit tests reach GenoStatAlgoManager's private helpers through this one friend class.
// Forwarders are static and named after the member they reach. Append new ones at the end of the
// class; never rename existing ones (both halves of the module's tests use them).
#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "entry/GenoJobSettings.h"
#include "jobs/GenoStatAlgoManager.h"

class GenoStatAlgoManagerTestPeer {
 public:
  // A fresh manager of its own, independent of the module's singleton (m_pAlgoMgr is not touched).
  // Its worker is held: queued jobs stay in the queue, for the tests of the queue alone.
  static std::unique_ptr<GenoStatAlgoManager> make() {
    std::unique_ptr<GenoStatAlgoManager> manager(new GenoStatAlgoManager());
    manager->m_workerHeld = true;
    return manager;
  }
  // A fresh manager whose first queued job starts the worker, as in the module.
  static std::unique_ptr<GenoStatAlgoManager> makeWithWorker() {
    return std::unique_ptr<GenoStatAlgoManager>(new GenoStatAlgoManager());
  }

  // ---- singleton ----
  // Installs `manager` (may be null) as the module's instance, as seen by existingInstance(),
  // getGenoManagerInstance() after creation, and generateUniqueJobName(); returns the previous one.
  static GenoStatAlgoManager* setInstance(GenoStatAlgoManager* manager) {
    return GenoStatAlgoManager::m_pAlgoMgr.exchange(manager);
  }

  // ---- queue state ----
  static std::size_t queueSize(GenoStatAlgoManager& m) {
    std::lock_guard<std::mutex> lock(m.m_queueMutex);
    return m.m_jobQueue.size();
  }
  // The queued records in order (still owned by the manager).
  static std::list<GenoJobSettings*> queuedJobs(GenoStatAlgoManager& m) {
    std::lock_guard<std::mutex> lock(m.m_queueMutex);
    return m.m_jobQueue;
  }
  static bool workerRunning(GenoStatAlgoManager& m) {
    std::lock_guard<std::mutex> lock(m.m_queueMutex);
    return m.m_workerRunning;
  }
  // Pretends a job is running: the record (ownership stays with the caller) and its process id.
  static void setCurrentJob(GenoStatAlgoManager& m, GenoJobSettings* job, int32_t pid) {
    m.m_currentJob.store(job);
    m.m_currentJobEnded.store(false);
    m.m_processId.store(pid);
  }
  static int32_t processId(GenoStatAlgoManager& m) { return m.m_processId.load(); }

  // ---- texts and messages ----
  static void sendStartGenomicsJobMessage(GenoStatAlgoManager& m, GenoJobSettings* job, bool started) {
    m.sendStartGenomicsJobMessage(job, started);
  }
  static void sendEndGenomicsJobMessage(GenoStatAlgoManager& m, GenoJobSettings* job,
                                        const std::string& message) {
    m.sendEndGenomicsJobMessage(job, message);
  }

  // ---- paths and file names ----
  static std::string joinPath(const std::string& base, const std::string& name) {
    return GenoStatAlgoManager::joinPath(base, name);
  }
  static std::string getFolderPath(const std::string& path) { return GenoStatAlgoManager::getFolderPath(path); }
  static bool fileExists(const std::string& path) { return GenoStatAlgoManager::fileExists(path); }
  static bool directoryExists(const std::string& path) { return GenoStatAlgoManager::directoryExists(path); }
  static std::string generateUniqueFilename(const std::string& folder, std::string& hint) {
    return GenoStatAlgoManager::generateUniqueFilename(folder, hint);
  }

  // ---- parameter JSON ----
  static std::string generateParameterJSON(const GenoJobSettings* settings) {
    std::string out;
    GenoStatAlgoManager::generateParameterJSON(settings, out);
    return out;
  }
  static std::string base64_encode(const std::string& data) { return GenoStatAlgoManager::base64_encode(data); }
  static std::string escapeJsonForCommandLine(const GenoStatAlgoManager& m, const std::string& json) {
    return m.escapeJsonForCommandLine(json);
  }

  // ---- process supervision ----
  static bool killProcess(GenoStatAlgoManager& m, int pid) { return m.killProcess(pid); }
  static int waitForPythonProcessToEnd(GenoStatAlgoManager& m) { return m.waitForPythonProcessToEnd(); }

  // ---- results ----
  static bool parseCSVForCounts(GenoStatAlgoManager& m, const std::string& path, int32_t& samples,
                                int32_t& variables) {
    return m.parseCSVForCounts(path, samples, variables);
  }
  static std::string preparePostJobSyntax(const GenoJobSettings* settings, bool failed) {
    std::string out;
    GenoStatAlgoManager::preparePostJobSyntax(settings, out, failed);
    return out;
  }

  // ---- analysis errors ----
  static std::string getErrorMessageTemplate(const GenoStatAlgoManager& m, int32_t exitCode) {
    return m.getErrorMessageTemplate(exitCode);
  }
  static std::string replacePlaceholders(const std::string& text, const rapidjson::Document& details) {
    return GenoStatAlgoManager::replacePlaceholders(text, details);
  }
  static std::string getTranslatedErrorMessage(const GenoStatAlgoManager& m, const std::string& key) {
    return m.getTranslatedErrorMessage(key);
  }

  // Writes into a caller's string, for tests of what happens to its earlier contents.
  static void generateParameterJSONInto(const GenoJobSettings* settings, std::string& out) {
    GenoStatAlgoManager::generateParameterJSON(settings, out);
  }

  // ---- forwarders added by the entry/results half go below ----
  static rapidjson::Document readErrorDetails(GenoStatAlgoManager& m, const std::string& resultPath) {
    return m.readErrorDetails(resultPath);
  }

  // ---- failure texts kept for /PRINT ----
  static void storeFailureMessage(GenoStatAlgoManager& m, const std::string& printJobName, int32_t messageCode,
                                  const std::string& text) {
    m.storeFailureMessage(printJobName, messageCode, text);
  }
  static bool takeFailureMessage(GenoStatAlgoManager& m, const std::string& printJobName, int32_t messageCode,
                                 std::string& text) {
    return m.takeFailureMessage(printJobName, messageCode, text);
  }

  // ---- string table ----
  // Gives the manager `table` (may be null) as its string table, as the worker would load it; the
  // manager owns it from then on. Returns the previous table, now the caller's to delete.
  static FacSTDictionary* setStringTable(GenoStatAlgoManager& m, FacSTDictionary* table) {
    return m.m_stringTable.exchange(table);
  }

  // ---- the job run ----
  static bool launchPythonProcess(GenoStatAlgoManager& m, GenoJobSettings* settings) {
    return m.launchPythonProcess(settings);
  }
  static bool handlePythonError(GenoStatAlgoManager& m, int32_t exitCode, GenoJobSettings* job) {
    return m.handlePythonError(exitCode, job);
  }
  // True when the worker has nothing in hand: the queue is empty and no job is running.
  static bool idle(GenoStatAlgoManager& m) {
    std::lock_guard<std::mutex> lock(m.m_queueMutex);
    return m.m_jobQueue.empty() && m.m_currentJob.load() == nullptr;
  }
  static bool hasStringTable(GenoStatAlgoManager& m) { return m.m_stringTable.load() != nullptr; }
};
