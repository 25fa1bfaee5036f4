// The two messages that tell the host's client about a job: queued or started (1025), ended (1026).
#include "host/messages.h"
#include "jobs/GenoStatAlgoManager.h"

void GenoStatAlgoManager::sendStartGenomicsJobMessage(GenoJobSettings* job, bool started) {
  ZorvAdapter* adapter = GetAdapter();
  if (adapter == nullptr || job == nullptr) return;  // command-line mode: nobody to tell
  const ZorvwMsgStartGenomicProcessing message(job->jobName, started);
  adapter->postClientMessage(kZorvwMsgStartGenomicProcessingId, &message);
}

void GenoStatAlgoManager::sendEndGenomicsJobMessage(GenoJobSettings* job, const std::string& message) {
  ZorvAdapter* adapter = GetAdapter();
  if (adapter == nullptr || job == nullptr) return;
  const ZorvwMsgEndGenomicProcessing end(job->jobName, message, job->csvFilePath, job->workbookId,
                                         job->paragraphId);
  adapter->postClientMessage(kZorvwMsgEndGenomicProcessingId, &end);
}
