// The engine's one way to wipe a secret that is not held in a Key: passwords, stored password
// values and their base64 or wide forms as they pass through strings, vectors and streams.
//
// - wipe(text) overwrites a string's or vector's whole buffer, including the bytes beyond its
//   size and the inline buffer of a short string, which a later free would otherwise keep.
// - WipeOnExit wipes a container when the scope ends, whichever way it ends.
// - SecretString, SecretWString and SecretBytes are containers whose every heap block is wiped
//   before it goes back to the heap: as they grow, and when they die. Text that is built up a
//   piece at a time goes into one of them, never into a plain string that leaves copies behind.
// - SecretOStream is an output stream that writes into a SecretString.
#pragma once

#include <cstddef>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/platform/base/Export.h"

namespace n7crypto {

// Overwrites `size` bytes at `data` in a way the compiler does not optimise away.
N7_EXPORT void wipe(void* data, std::size_t size) noexcept;

// Overwrites every byte a string or vector owns: its capacity, not only its size.
template <typename Container>
void wipe(Container& container) noexcept {
  wipe(container.data(), container.capacity() * sizeof(typename Container::value_type));
}

// Wipes `container` when the scope ends.
template <typename Container>
class WipeOnExit {
 public:
  explicit WipeOnExit(Container& container) noexcept : container_(container) {}
  ~WipeOnExit() { wipe(container_); }
  WipeOnExit(const WipeOnExit&) = delete;
  WipeOnExit& operator=(const WipeOnExit&) = delete;

 private:
  Container& container_;
};

// An allocator that wipes each block before it gives it back.
template <typename T>
struct WipingAllocator {
  using value_type = T;

  WipingAllocator() noexcept = default;
  template <typename U>
  explicit WipingAllocator(const WipingAllocator<U>& /*other*/) noexcept {}

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* block, std::size_t count) noexcept {
    wipe(block, count * sizeof(T));
    std::allocator<T>().deallocate(block, count);
  }

  template <typename U>
  bool operator==(const WipingAllocator<U>& /*other*/) const noexcept {
    return true;
  }
};

// A string whose heap blocks are wiped as they are given back, and whose inline buffer is wiped
// when it dies.
template <typename Char>
class BasicSecretString
    : public std::basic_string<Char, std::char_traits<Char>, WipingAllocator<Char>> {
 public:
  using Base = std::basic_string<Char, std::char_traits<Char>, WipingAllocator<Char>>;
  using Base::Base;
  BasicSecretString(const BasicSecretString&) = default;
  BasicSecretString(BasicSecretString&&) noexcept = default;
  BasicSecretString& operator=(const BasicSecretString&) = default;
  BasicSecretString& operator=(BasicSecretString&&) noexcept = default;
  ~BasicSecretString() { wipe(*static_cast<Base*>(this)); }

  std::basic_string_view<Char> view() const noexcept { return {this->data(), this->size()}; }
};

using SecretString = BasicSecretString<char>;
using SecretWString = BasicSecretString<wchar_t>;
using SecretBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

// An output stream that writes into a SecretString, for text built with stream operators. Numbers
// are written in the classic locale, whatever the program's global locale is.
class N7_EXPORT SecretOStream : public std::ostream {
 public:
  SecretOStream();
  SecretOStream(const SecretOStream&) = delete;
  SecretOStream& operator=(const SecretOStream&) = delete;
  ~SecretOStream() override;

  const SecretString& text() const noexcept { return buffer_.text; }

 private:
  struct Buffer : std::streambuf {
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* data, std::streamsize count) override;
    SecretString text;
  };
  Buffer buffer_;
};

}  // namespace n7crypto
