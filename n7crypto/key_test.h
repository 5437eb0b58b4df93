// Test helpers: a key's bytes as a vector to compare, and a key made from given bytes.
#pragma once

#include <algorithm>
#include <vector>

#include "n7utility/n7crypto/key.h"

namespace n7crypto::test_support {

inline std::vector<unsigned char> bytes_of(const Key& key) {
  return std::vector<unsigned char>(key.data(), key.data() + key.size());
}

inline Key key_of(const std::vector<unsigned char>& bytes) {
  Key key(bytes.size());
  std::copy(bytes.begin(), bytes.end(), key.data());
  return key;
}

}  // namespace n7crypto::test_support
