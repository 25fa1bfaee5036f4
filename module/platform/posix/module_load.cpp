// The POSIX counterpart of DllMain's process attach: runs when the loader maps the module.
#include <dlfcn.h>

#include "jobs/ModuleLoad.h"

namespace {

__attribute__((constructor)) void genostatModuleLoaded() {
  // A Windows module handle is the address the module was loaded at; dladdr of one of our own
  // functions gives the same for the ELF object that holds it, without taking a reference on it.
  Dl_info info{};
  void* handle = nullptr;
  if (::dladdr(reinterpret_cast<void*>(&genostatModuleLoaded), &info) != 0) handle = info.dli_fbase;
  genostat::load::onModuleLoad(handle);
}

}  // namespace
