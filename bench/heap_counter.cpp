#include "heap_counter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> g_live_bytes{0};

void* Allocate(std::size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  g_live_bytes.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
  return block;
}

void Release(void* block) noexcept {
  if (block == nullptr) return;
  g_live_bytes.fetch_sub(malloc_usable_size(block), std::memory_order_relaxed);
  std::free(block);
}

}  // namespace

namespace n7bench {

std::size_t LiveHeapBytes() { return g_live_bytes.load(std::memory_order_relaxed); }

}  // namespace n7bench

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void operator delete(void* block) noexcept { Release(block); }
void operator delete[](void* block) noexcept { Release(block); }
void operator delete(void* block, std::size_t) noexcept { Release(block); }
void operator delete[](void* block, std::size_t) noexcept { Release(block); }
