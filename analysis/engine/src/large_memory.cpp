// Large blocks through the platform layer, which alone may ask the system for large pages.
#include "large_memory.h"

#include "platform/system.h"

namespace genostat {

void* allocateLargeBlock(std::size_t bytes) { return platform::allocateLarge(bytes); }

void releaseLargeBlock(void* block, std::size_t bytes) noexcept {
  platform::releaseLarge(block, bytes);
}

}  // namespace genostat
