// The file format of a saved registry key: the key's subtree as one self-checking byte string.
//
// Layout: the 8-byte signature, the root key record, then a 64-bit FNV-1a checksum of everything
// before it. A key record is its name, class, last-write time, security descriptor, values
// (name, type, data) and subkey records; numbers are little-endian, a count or a length is 32
// bits, names are UTF-8 with a length in front.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/platform/base/WindowsTypes.h"

namespace n7platform::internal {

struct SavedValue {
  std::string name;
  DWORD type = 0;
  std::vector<BYTE> data;
};

struct SavedKey {
  std::string name;
  std::string class_name;
  std::uint64_t last_write = 0;  // FILETIME as one number
  std::vector<BYTE> security;
  std::vector<SavedValue> values;
  std::vector<SavedKey> subkeys;
};

// Saved keys nest at most this deep (the depth a key path may have).
inline constexpr int kMaxSavedDepth = 512;

std::string EncodeSavedKey(const SavedKey& key);
// False when `bytes` is not one whole saved key: wrong signature or checksum, cut short,
// trailing bytes, or nesting deeper than kMaxSavedDepth.
bool DecodeSavedKey(std::string_view bytes, SavedKey* key);

}  // namespace n7platform::internal
