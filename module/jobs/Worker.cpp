// The worker thread: runs the queued jobs one at a time, in submission order, until the manager
// stops it.
#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "host/paths.h"
#include "host/strings.h"
#include "jobs/GenoStatAlgoManager.h"

namespace {
constexpr int kInstallFolderKind = 3;  // the host folder of the launcher, the scripts and the tables
constexpr char kProcedureName[] = "GENOSTAT";
}  // namespace

void GenoStatAlgoManager::processJobs() {
  if (m_stringTable.load() == nullptr) {
    try {
      const PathFinder* finder = PathFactory::getPathInstance(kInstallFolderKind);
      if (finder != nullptr) {
        const std::string folder = finder->getPath();
        std::unique_ptr<FacSTDictionary> table(new FacSTDictionary(folder));
        // Filled before it is published: other threads look texts up as soon as they see it.
        table->SetProcedure(kProcedureName);
        table->SetGlobalStringTable(folder);
        m_stringTable.store(table.release());
      }
    } catch (const std::exception&) {
      // Without a table every text is its key, which is still a readable English text.
    }
  }

  for (;;) {
    GenoJobSettings* job = nullptr;
    bool dropped = false;
    {
      std::unique_lock<std::mutex> lock(m_queueMutex);
      m_queueCondition.wait(lock, [this] { return m_stop.load() || !m_jobQueue.empty(); });
      // Jobs still queued at a stop stay for the destructor to free.
      if (m_stop.load()) break;
      job = m_jobQueue.front();
      m_jobQueue.pop_front();
      // A job cancelled while queued has had its end message; it is dropped without ever becoming
      // the running job, so no cancel can reach it while it is being freed. Its status only
      // changes under this lock, so the check is final.
      dropped = job == nullptr || job->jobStatus.load() == JobStatus::Cancelled;
      if (!dropped) {
        m_currentJob.store(job);
        m_currentJobEnded.store(false);
        // Posted under the take lock, where a cancel posts its end message too: the client never
        // sees this job end before it has started. A post that throws costs the message, never
        // the worker (an exception leaving this thread would end the host).
        try {
          sendStartGenomicsJobMessage(job, true);
        } catch (...) {
        }
      }
    }
    if (dropped) {
      delete job;
    } else {
      launchPythonProcess(job);  // owns the record from here on and releases it on every path
    }
    if (m_stop.load()) break;
  }

  delete m_stringTable.exchange(nullptr);
  std::lock_guard<std::mutex> lock(m_queueMutex);
  m_workerRunning = false;
}

void GenoStatAlgoManager::releaseJob(GenoJobSettings* job) {
  {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    if (m_currentJob.load() == job) {
      m_currentJob.store(nullptr);
      m_currentJobEnded.store(false);
    }
  }
  delete job;
}
