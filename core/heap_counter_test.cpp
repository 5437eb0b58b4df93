// The counting operator new and delete behind heap_counter_test.h. They live in a file of their own
// so that no caller sees their bodies: g++ would otherwise take the malloc/free inside them for a
// mismatch with the new-expressions it inlines them into.

#include "n7utility/core/heap_counter_test.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define N7_COUNTS_ALLOCATIONS 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define N7_COUNTS_ALLOCATIONS 0
#endif
#endif
#ifndef N7_COUNTS_ALLOCATIONS
#define N7_COUNTS_ALLOCATIONS 1
#endif

namespace {

thread_local std::size_t t_allocations = 0;
std::atomic<std::size_t> g_live_bytes{0};
std::atomic<n7testing::FreedBlockObserver> g_freed_block_observer{nullptr};

}  // namespace

namespace n7testing {

bool CountsAllocations() { return N7_COUNTS_ALLOCATIONS != 0; }
std::size_t AllocationsOnThisThread() { return t_allocations; }
std::size_t LiveHeapBytes() { return g_live_bytes.load(std::memory_order_relaxed); }
void SetFreedBlockObserver(FreedBlockObserver observer) { g_freed_block_observer.store(observer); }

}  // namespace n7testing

#if N7_COUNTS_ALLOCATIONS
namespace {

void* CountedMalloc(std::size_t size) noexcept {
  void* block = std::malloc(size == 0 ? 1 : size);  // NOLINT(cppcoreguidelines-no-malloc)
  if (block != nullptr) {
    ++t_allocations;
    g_live_bytes.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
  }
  return block;
}

void* CountedAlignedMalloc(std::size_t size, std::align_val_t alignment) noexcept {
  const auto align = static_cast<std::size_t>(alignment);
  void* block = std::aligned_alloc(align, (size + align - 1) / align * align);
  if (block != nullptr) {
    ++t_allocations;
    g_live_bytes.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
  }
  return block;
}

void CountedFree(void* block) noexcept {
  if (block == nullptr) return;
  const std::size_t size = malloc_usable_size(block);
  if (const n7testing::FreedBlockObserver observer = g_freed_block_observer.load()) {
    observer(block, size);
  }
  g_live_bytes.fetch_sub(size, std::memory_order_relaxed);
  std::free(block);  // NOLINT(cppcoreguidelines-no-malloc)
}

}  // namespace

// The C++ library defines the array and nothrow forms of new and delete in terms of these, so
// they are counted too. The sized deletes are here as well because g++ asks for them alongside the
// unsized ones.
void* operator new(std::size_t size) {
  if (void* block = CountedMalloc(size)) return block;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  if (void* block = CountedAlignedMalloc(size, alignment)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { CountedFree(block); }
void operator delete(void* block, std::size_t) noexcept { CountedFree(block); }
void operator delete(void* block, std::align_val_t) noexcept { CountedFree(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { CountedFree(block); }
#endif
