// The POSIX counterpart of DllMain's process attach: runs when the loader maps the module.
#include <dlfcn.h>

#include "jobs/ModuleLoad.h"

namespace {

__attribute__((constructor)) void genostatModuleLoaded() {
  // dladdr of a function of this module names the module's own file; reopening it with
  // RTLD_NOLOAD gives its handle without taking a new reference that would pin it forever.
  Dl_info info{};
  void* handle = nullptr;
  if (::dladdr(reinterpret_cast<void*>(&genostatModuleLoaded), &info) != 0 && info.dli_fname != nullptr) {
    handle = ::dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    // RTLD_NOLOAD still counts a reference; give it back at once so unloading stays possible.
    if (handle != nullptr) ::dlclose(handle);
  }
  genostat::load::onModuleLoad(handle);
}

}  // namespace
