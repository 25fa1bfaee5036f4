// What a failed analysis leaves for the user: the job marked failed, its partial result removed,
// the failure syntax sent to the client, and the failure text filled from the script's details
// and kept until the /PRINT of that job asks for it.
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include "jobs/GenoStatAlgoManager.h"
#include "results/PostJobSyntax.h"

namespace {
constexpr uint32_t kFailedCodeBase = 200;  // messageCode of a failed run: 200 plus the exit code
}  // namespace

bool GenoStatAlgoManager::handlePythonError(int32_t exitCode, GenoJobSettings* job) {
  if (exitCode == 0 || job == nullptr) return false;
  job->jobStatus.store(JobStatus::Failed);
  job->sampleCount = 0;
  job->variableCount = 0;
  // Unsigned, so that no exit code can overflow the sum.
  job->messageCode = static_cast<int32_t>(static_cast<uint32_t>(exitCode) + kFailedCodeBase);

  // The details file lies beside the result and goes with it; its text is kept before the client
  // hears of the end, so the /PRINT the client runs next finds it.
  const rapidjson::Document details = readErrorDetails(job->csvFilePath);
  storeFailureMessage(genostat::results::syntaxJobName(job->jobName), job->messageCode,
                      replacePlaceholders(getErrorMessageTemplate(exitCode), details));
  if (fileExists(job->csvFilePath)) std::remove(job->csvFilePath.c_str());

  std::string syntax;
  preparePostJobSyntax(job, syntax, true);
  sendEndGenomicsJobMessage(job, syntax);
  return true;
}

void GenoStatAlgoManager::storeFailureMessage(const std::string& printJobName, int32_t messageCode,
                                              const std::string& text) {
  std::lock_guard<std::mutex> lock(m_queueMutex);
  m_failureMessages[std::make_pair(printJobName, messageCode)].push_back(text);
}

bool GenoStatAlgoManager::takeFailureMessage(const std::string& printJobName, int32_t messageCode,
                                             std::string& text) {
  std::lock_guard<std::mutex> lock(m_queueMutex);
  auto it = m_failureMessages.find(std::make_pair(printJobName, messageCode));
  if (it == m_failureMessages.end()) return false;
  text = std::move(it->second.front());
  it->second.pop_front();
  // An emptied key goes, so the map holds only texts still waiting for their /PRINT.
  if (it->second.empty()) m_failureMessages.erase(it);
  return true;
}
