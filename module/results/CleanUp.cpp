// GENOSTAT /DELETE: the job's result CSV goes once the host has imported it.
#include <cstdio>

#include "jobs/GenoStatAlgoManager.h"
#include "platform/platform.h"

void GenoStatAlgoManager::cleanUpCSVFileCreated(GenoJobSettings* settings) {
  if (!settings) return;
  const genostat::platform::PathAttributes attributes =
      genostat::platform::pathAttributes(settings->csvFilePath);
  // A missing path or a folder is not ours to remove; nothing is reported either way.
  if (!attributes.exists || attributes.directory) return;
  std::remove(settings->csvFilePath.c_str());
}
