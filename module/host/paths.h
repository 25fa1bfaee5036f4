// Host path service.
#pragma once

#include <string>

#include "host/host_api.h"

// The host's temporary folder as a NUL-terminated narrow string (without guarantee of a trailing
// separator). The pointer stays valid until the host changes its temporary folder. Thread-safe.
extern "C" ZORV_HOST_API const char* GetZorvTempPath();

// One of the host's well-known folders.
class ZORV_HOST_API PathFinder {
 public:
  virtual ~PathFinder();
  // The folder's path, ending in a separator. The module relies on this being the second virtual
  // operation of the class (after the destructor).
  virtual const std::string& getPath() const = 0;
};

class ZORV_HOST_API PathFactory {
 public:
  // Kind 3: the host installation folder that holds the Python launcher, the `scripts` folder and
  // the string tables. Returns null for an unknown kind. The object belongs to the host and lives
  // as long as the process. Thread-safe.
  static PathFinder* getPathInstance(int kind);
};
