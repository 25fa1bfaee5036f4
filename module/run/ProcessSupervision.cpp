// Stopping a running analysis: its launcher and everything the launcher started.
#include "jobs/GenoStatAlgoManager.h"
#include "platform/platform.h"

bool GenoStatAlgoManager::killProcess(int pid) { return genostat::platform::killProcessTree(pid); }

// Kept for the class interface; the launch waits for its process itself.
int GenoStatAlgoManager::waitForPythonProcessToEnd() { return 0; }
