// Host platform library.
#pragma once

#include "host/host_api.h"

// Case-insensitive comparison of two NUL-terminated byte strings (ASCII letters fold; other bytes
// compare as they are). Returns 0 when equal, <0 or >0 like strcmp otherwise. Thread-safe.
extern "C" ZORV_HOST_API int ZORVMBstricmp_A(const char* a, const char* b);
