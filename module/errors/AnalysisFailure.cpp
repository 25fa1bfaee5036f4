// What a failed analysis leaves for the user: the filled failure text of an ended job, kept until
// the /PRINT of that job asks for it.
#include <mutex>

#include "jobs/GenoStatAlgoManager.h"

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
