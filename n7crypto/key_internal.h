// The allocation of the engine's secret buffers, and a seam through which tests watch every
// buffer being released.
#pragma once

#include <cstddef>

namespace n7crypto::impl {

// Called with each buffer of a Key after it was wiped and before it is freed.
using ReleaseObserver = void (*)(const unsigned char* data, std::size_t size);

// Installs `observer` for the whole process (null removes it). For tests: it lets them check that
// every released buffer was wiped without reading freed memory.
void set_release_observer(ReleaseObserver observer) noexcept;

// `size` zero bytes (null for 0). A failed allocation throws "error.n7core.winerror" with Windows
// error 14 (ERROR_OUTOFMEMORY).
unsigned char* allocate_zeroed(std::size_t size);
// Overwrites `size` bytes at `data` and frees them; null does nothing.
void wipe_and_free(unsigned char* data, std::size_t size) noexcept;

}  // namespace n7crypto::impl
