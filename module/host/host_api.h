// Visibility of the host libraries' symbols as the module sees them.
//
// The module is built with hidden visibility, so every host class and function it calls must be
// declared with default visibility (POSIX) or imported from the host DLLs (Windows); the reference
// host defines ZORVHOST_BUILDING while it builds itself.
#pragma once

#if defined(_WIN32)
#if defined(ZORVHOST_BUILDING)
#define ZORV_HOST_API __declspec(dllexport)
#else
#define ZORV_HOST_API __declspec(dllimport)
#endif
#else
#define ZORV_HOST_API __attribute__((visibility("default")))
#endif
