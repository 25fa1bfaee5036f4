// Host dataset manager: the datasets that are open in the host.
#pragma once

#include <string>
#include <vector>

#include "host/host_api.h"

class ZORV_HOST_API SvrDMDataset {
 public:
  virtual ~SvrDMDataset();
  // The dataset's name as the user sees it (the handle that DATASET NAME gave it).
  virtual void GetHandle(std::string& name) const = 0;
};

class ZORV_HOST_API ServerDataManager {
 public:
  static ServerDataManager* GetInstance();
  virtual ~ServerDataManager();
  // Replaces `list` with the open datasets. The pointers stay valid until the host's command
  // thread runs its next command. Call from the host's command thread.
  virtual void GetAllDatasets(std::vector<SvrDMDataset*>& list) = 0;
};
