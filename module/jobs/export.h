// Visibility of the module's own exports: the entry, the two C functions and the manager class.
#pragma once

#if defined(_WIN32)
#if defined(ZORVWGNM_BUILDING)
#define GENOSTAT_API __declspec(dllexport)
#else
#define GENOSTAT_API __declspec(dllimport)
#endif
#else
#define GENOSTAT_API __attribute__((visibility("default")))
#endif
