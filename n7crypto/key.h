// n7crypto::Key: the byte buffer that holds every secret of the engine (private exponents, derived
// keys, digests, PBKDF2 output).
//
// The buffer is allocated in whole multiples of 8 bytes and zero-filled. Every byte it ever held
// is overwritten before the memory goes back to the heap: on destruction, on move assignment and
// when growing moves the bytes to a larger buffer. Shrinking zeroes the bytes given up, so the
// bytes between size() and capacity() are always zero unless written through data().
#pragma once

#include <cstddef>
#include <cstdint>

#include "n7utility/platform/base/Export.h"

namespace n7crypto {

class N7_EXPORT Key {
 public:
  // No buffer: size, capacity and data are 0, 0 and null.
  Key() noexcept = default;
  // `size` zero bytes. Sizes above 4 GiB - 8 throw "error.n7core.safeCast.valueTruncated"; a
  // failed allocation throws "error.n7core.winerror" (Windows error 14).
  explicit Key(std::size_t size);
  // Takes the buffer; the source is left with none.
  Key(Key&& other) noexcept;
  Key& operator=(Key&& other) noexcept;
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key();

  std::size_t size() const noexcept { return size_; }
  std::size_t capacity() const noexcept { return capacity_; }
  unsigned char* data() noexcept { return data_; }
  const unsigned char* data() const noexcept { return data_; }

  // Keeps the first min(size, size()) bytes. Growing beyond capacity() moves them to a new
  // zero-filled buffer and wipes the old one; shrinking zeroes the bytes from `size` on.
  void resize(std::size_t size);

 private:
  void release() noexcept;

  std::uint32_t capacity_ = 0;
  std::uint32_t size_ = 0;
  unsigned char* data_ = nullptr;
};

}  // namespace n7crypto
