// Test helper: bytes as lower-case hexadecimal, the way digest test vectors are written.
#pragma once

#include <cstddef>
#include <string>

namespace n7crypto::test_support {

inline std::string hex(const unsigned char* data, std::size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text.push_back(kDigits[data[i] >> 4]);
    text.push_back(kDigits[data[i] & 15]);
  }
  return text;
}

}  // namespace n7crypto::test_support
