// The module's load hook on Windows: process attach hands the module's own handle on.
#include <windows.h>

#include "jobs/ModuleLoad.h"

BOOL APIENTRY DllMain(HMODULE module, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) genostat::load::onModuleLoad(module);
  // Loading never fails; nothing else starts here (the manager and its worker start on first use).
  return TRUE;
}
