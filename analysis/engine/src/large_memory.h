// The allocator of the engine's largest tables: the per-position counters and the text of long
// reads. Blocks of 2 MB and more come from the platform layer, which backs them with large pages
// where the system has them; smaller ones from the ordinary heap, where a large page would be
// mostly waste.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace genostat {

void* allocateLargeBlock(std::size_t bytes);
void releaseLargeBlock(void* block, std::size_t bytes) noexcept;

template <class T>
class LargeAllocator {
 public:
  using value_type = T;
  static constexpr std::size_t kLargeBytes = std::size_t{2} << 20;

  LargeAllocator() = default;
  template <class U>
  LargeAllocator(const LargeAllocator<U>& /*other*/) noexcept {}  // NOLINT: rebinding is implicit

  T* allocate(std::size_t n) {
    if (n * sizeof(T) < kLargeBytes) return std::allocator<T>().allocate(n);
    return static_cast<T*>(allocateLargeBlock(n * sizeof(T)));
  }
  void deallocate(T* block, std::size_t n) noexcept {
    if (n * sizeof(T) < kLargeBytes) {
      std::allocator<T>().deallocate(block, n);
    } else {
      releaseLargeBlock(block, n * sizeof(T));
    }
  }

  friend bool operator==(const LargeAllocator&, const LargeAllocator&) { return true; }
  friend bool operator!=(const LargeAllocator&, const LargeAllocator&) { return false; }
};

template <class T>
using LargeVector = std::vector<T, LargeAllocator<T>>;

}  // namespace genostat
