// The module's load hook on Windows.
//
// TO BE COMPLETED BY THE WINDOWS ISSUE: not compiled or run yet (see platform_win32.cpp).
#include <windows.h>

#include "jobs/ModuleLoad.h"

BOOL APIENTRY DllMain(HMODULE module, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) genostat::load::onModuleLoad(module);
  // Loading never fails; nothing else starts here (the manager and its worker start on first use).
  return TRUE;
}
