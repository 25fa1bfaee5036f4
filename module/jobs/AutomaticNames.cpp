// Names for jobs submitted with NAME='AUTO': the localised base with the first free suffix _1 ... _100.
#include <string>
#include <vector>

#include "entry/GenomicParserException.h"
#include "entry/Texts.h"
#include "host/datasets.h"
#include "host/platform.h"
#include "jobs/GenoStatAlgoManager.h"

namespace {

constexpr int kMaxAutomaticNames = 100;

// Dataset names are compared as the host compares them, without regard to case.
bool datasetBearsName(const std::string& candidate) {
  ServerDataManager* datasets = ServerDataManager::GetInstance();
  if (datasets == nullptr) return false;
  std::vector<SvrDMDataset*> list;
  datasets->GetAllDatasets(list);
  for (const SvrDMDataset* dataset : list) {
    if (dataset == nullptr) continue;
    std::string handle;
    dataset->GetHandle(handle);
    if (ZORVMBstricmp_A(handle.c_str(), candidate.c_str()) == 0) return true;
  }
  return false;
}

}  // namespace

std::string GenoStatAlgoManager::generateUniqueJobName() {
  GenoStatAlgoManager* manager = getManagerInstance();
  if (manager == nullptr) return std::string();
  const std::string base = manager->getLocalizedString(texts::kGenomicAnalysisJob);
  for (int n = 1;; ++n) {
    std::string candidate = base + "_" + std::to_string(n);
    // The dataset list is asked afresh for every candidate; among jobs the name is case-sensitive.
    if (!datasetBearsName(candidate) && !manager->isJobPendingOrRunning(candidate)) return candidate;
    if (n >= kMaxAutomaticNames) {
      throw GenomicParserException(GenomicParserException::kAutomaticNameLimit);
    }
  }
}
