// The manager's lifecycle, its queue and cancellation, the localised texts and the exported C
// functions the host's client calls.
#include "jobs/GenoStatAlgoManager.h"

#include <system_error>

#include "host/strings.h"

std::once_flag GenoStatAlgoManager::m_initFlag;
std::atomic<GenoStatAlgoManager*> GenoStatAlgoManager::m_pAlgoMgr{nullptr};

GenoStatAlgoManager::GenoStatAlgoManager() = default;

GenoStatAlgoManager* GenoStatAlgoManager::getManagerInstance() {
  // A constructor that throws leaves the flag unset, so the next caller tries again.
  std::call_once(m_initFlag, [] { m_pAlgoMgr.store(new (std::nothrow) GenoStatAlgoManager()); });
  return m_pAlgoMgr.load();
}

GenoStatAlgoManager* GenoStatAlgoManager::existingInstance() { return m_pAlgoMgr.load(); }

GenoStatAlgoManager::~GenoStatAlgoManager() noexcept(false) {
  {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    m_stop.store(true);
    m_queueCondition.notify_all();
  }
  if (m_workerThread.joinable()) {
    if (m_workerThread.get_id() == std::this_thread::get_id()) {
      throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    // A running analysis is not killed: the worker finishes the job in hand before it sees the
    // stop flag.
    m_workerThread.join();
    m_workerThread = std::thread();
  }
  std::lock_guard<std::mutex> lock(m_queueMutex);
  while (!m_jobQueue.empty()) {
    delete m_jobQueue.front();  // queued jobs end silently: no end message on shutdown
    m_jobQueue.pop_front();
  }
  delete m_stringTable.exchange(nullptr);
}

std::string GenoStatAlgoManager::getLocalizedString(const std::string& key) const {
  const FacSTDictionary* table = m_stringTable.load();
  return table != nullptr ? table->LookUp(key) : key;
}

void GenoStatAlgoManager::addJobToQueue(GenoJobSettings* job) {
  std::lock_guard<std::mutex> lock(m_queueMutex);
  m_jobQueue.push_back(job);
  if (job != nullptr) {
    job->jobStatus.store(JobStatus::Pending);
    try {
      sendStartGenomicsJobMessage(job, false);
    } catch (...) {
      // The user is told the command failed, so the job must not stay queued under its name: a
      // retry would be refused as a duplicate, and no worker may have been started for it.
      m_jobQueue.pop_back();
      delete job;
      throw;
    }
  }
  if (!m_workerRunning) {
    // A worker whose loop has ended leaves its thread object behind.
    if (m_workerThread.joinable()) {
      if (m_workerThread.get_id() == std::this_thread::get_id()) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
      }
      m_workerThread.join();
    }
    m_workerRunning = true;
    try {
      m_workerThread = std::thread(&GenoStatAlgoManager::processJobs, this);
    } catch (...) {
      // No thread: the job stays queued and the next submission tries again.
      m_workerRunning = false;
      throw;
    }
  }
  m_queueCondition.notify_one();
}

bool GenoStatAlgoManager::isQueueFull() {
  std::lock_guard<std::mutex> lock(m_queueMutex);
  return m_jobQueue.size() >= kQueueLimit;
}

bool GenoStatAlgoManager::isJobPendingOrRunning(const std::string& name) {
  std::lock_guard<std::mutex> lock(m_queueMutex);
  // The running job keeps its name whatever its status; a queued job only while it may still run.
  const GenoJobSettings* current = m_currentJob.load();
  if (current != nullptr && current->jobName == name) return true;
  for (const GenoJobSettings* job : m_jobQueue) {
    if (job != nullptr && job->jobName == name &&
        static_cast<uint32_t>(job->jobStatus.load()) < static_cast<uint32_t>(JobStatus::Completed)) {
      return true;
    }
  }
  return false;
}

bool GenoStatAlgoManager::cancelJob(const std::string& name) {
  std::lock_guard<std::mutex> lock(m_queueMutex);
  GenoJobSettings* current = m_currentJob.load();
  if (current != nullptr && current->jobName == name && !m_currentJobEnded.load()) {
    current->jobStatus.store(JobStatus::Cancelled);
    // The stored id may still be the previous job's, or -1, when this job's process has not
    // started yet; the kill is made all the same and its result does not matter here.
    killProcess(m_processId.load());
    sendEndGenomicsJobMessage(current, std::string());
    return true;
  }
  for (GenoJobSettings* job : m_jobQueue) {
    if (job == nullptr || job->jobName != name) continue;
    JobStatus expected = JobStatus::Pending;
    job->jobStatus.compare_exchange_strong(expected, JobStatus::Cancelled);
    // Every cancel of a queued job is answered, a repeated one too; the worker drops the job
    // when it reaches it.
    sendEndGenomicsJobMessage(job, std::string());
    if (m_jobQueue.size() == 1 && m_workerRunning && m_currentJob.load() == nullptr) {
      m_queueCondition.notify_all();
    }
    return true;
  }
  return false;
}

void GenoStatAlgoManager::cancellAllJobsPending() {
  std::lock_guard<std::mutex> lock(m_queueMutex);
  for (GenoJobSettings* job : m_jobQueue) {
    if (job != nullptr && job->jobStatus.load() == JobStatus::Pending) {
      job->jobStatus.store(JobStatus::Cancelled);
      sendEndGenomicsJobMessage(job, std::string());
    }
  }
  while (!m_jobQueue.empty()) {
    delete m_jobQueue.front();
    m_jobQueue.pop_front();
  }
  if (m_currentJob.load() == nullptr && m_workerRunning) m_queueCondition.notify_all();
}

extern "C" {

GenoStatAlgoManager* getGenoManagerInstance() { return GenoStatAlgoManager::getManagerInstance(); }

bool cancelGenoJob(GenoStatAlgoManager* manager, const char* jobName) {
  if (manager == nullptr) return false;
  // A null name matches no job; std::string cannot be built from it.
  if (jobName == nullptr) return false;
  return manager->cancelJob(jobName);
}

}  // extern "C"
