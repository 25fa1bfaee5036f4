// What the module keeps from the moment the host loads it: its own module handle and the host's
// common data blocks. The platform's load hook (a constructor function on POSIX, DllMain on
// Windows) calls onModuleLoad once, before any other code of the module runs.
#pragma once

#include <cstddef>

namespace genostat::load {

// pvGetCmnBpr ... pvGetCmnBox.
constexpr std::size_t kCommonBlockCount = 22;

// Remembers `moduleHandle` and caches the 22 common-block pointers. Never fails.
void onModuleLoad(void* moduleHandle);

// The handle given to onModuleLoad (null before it ran).
void* moduleHandle();
// The cached common-block pointer at `index` in load order; null for an index out of range.
void* commonBlock(std::size_t index);

}  // namespace genostat::load
