// The registry walk of the fuzz targets that restore saved keys: a temporary store, a saved-key
// file from fuzzer bytes, and a walk of a key's tree that checks every enumeration against
// RegQueryInfoKeyW while it records the tree as text.
//
// The walk checks, for each key: its subkeys and values enumerate to exactly the counts
// RegQueryInfoKeyW gives, each name, class and data within its maximum lengths and those maxima
// reached; names hold no U+0000 (a C-string call could not reach them); every subkey opens by its
// name and has the class it enumerated with; every value reads back by its name.
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/platform/base/Check_fuzz.h"
#include "n7utility/platform/system/Registry.h"
#include "n7utility/platform/system/RegistryStore_internal.h"
#include "n7utility/platform/system/ScopedKey_internal.h"

namespace n7fuzz::registry {

// The registry's own cap on nesting; the walk follows it.
constexpr int kMaxDepth = 600;

inline std::wstring Widen(const std::string& text) { return {text.begin(), text.end()}; }

using Key = n7platform::internal::ScopedKey;

struct Info {
  std::wstring class_name;
  DWORD sub_keys = 0;
  DWORD max_sub_key_length = 0;
  DWORD max_class_length = 0;
  DWORD values = 0;
  DWORD max_value_name_length = 0;
  DWORD max_value_length = 0;
};

inline Info QueryInfo(HKEY key) {
  Info info;
  DWORD class_length = 0;
  check(RegQueryInfoKeyW(key, nullptr, &class_length, nullptr, &info.sub_keys,
                         &info.max_sub_key_length, &info.max_class_length, &info.values,
                         &info.max_value_name_length, &info.max_value_length, nullptr,
                         nullptr) == ERROR_SUCCESS,
        "RegQueryInfoKeyW failed");
  std::vector<wchar_t> class_name(class_length + 1);
  DWORD room = class_length + 1;
  check(RegQueryInfoKeyW(key, class_name.data(), &room, nullptr, nullptr, nullptr, nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS,
        "RegQueryInfoKeyW failed for a class buffer of the length it gave");
  check(room == class_length, "the class length changed between two queries");
  info.class_name.assign(class_name.data(), room);
  return info;
}

// A name as enumerated: its length must be that of the C string a caller would pass back.
inline void CheckName(const std::vector<wchar_t>& buffer, DWORD length, DWORD max_length) {
  check(length <= max_length, "an enumerated name is longer than the maximum");
  check(std::wcslen(buffer.data()) == length, "an enumerated name holds U+0000");
}

inline void AppendDump(std::wstring* dump, std::wstring_view what, std::wstring_view text) {
  dump->append(what).append(text).push_back(L'\n');
}

// Checks the values of `key` against `info` and appends them to `dump`.
inline void WalkValues(HKEY key, const Info& info, std::wstring* dump) {
  DWORD longest_name = 0;
  DWORD longest_data = 0;
  DWORD index = 0;
  for (;; ++index) {
    std::vector<wchar_t> name(info.max_value_name_length + 1);
    std::vector<BYTE> data(info.max_value_length + 1);
    DWORD name_length = info.max_value_name_length + 1;
    DWORD type = 0;
    DWORD size = info.max_value_length;
    const LSTATUS status =
        RegEnumValueW(key, index, name.data(), &name_length, nullptr, &type, data.data(), &size);
    if (status == ERROR_NO_MORE_ITEMS) break;
    check(status == ERROR_SUCCESS, "RegEnumValueW failed within the value count");
    CheckName(name, name_length, info.max_value_name_length);
    longest_name = std::max(longest_name, name_length);
    longest_data = std::max(longest_data, size);
    std::vector<BYTE> read(size + 1);
    DWORD read_type = 0;
    DWORD read_size = size + 1;
    check(RegQueryValueExW(key, name.data(), nullptr, &read_type, read.data(), &read_size) ==
                  ERROR_SUCCESS &&
              read_type == type && read_size == size &&
              std::equal(data.begin(), data.begin() + size, read.begin()),
          "an enumerated value does not read back the same by its name");
    AppendDump(dump, L"value ",
               std::wstring(name.data(), name_length) + L" " + std::to_wstring(type) + L" " +
                   std::wstring(data.begin(), data.begin() + size));
  }
  check(index == info.values, "RegEnumValueW does not enumerate the value count");
  check(longest_name == info.max_value_name_length && longest_data == info.max_value_length,
        "the value maxima are not those of the values");
}

void Walk(HKEY key, int depth, std::wstring* dump);

// Checks the subkeys of `key` against `info`, walks each and appends them to `dump`.
inline void WalkSubkeys(HKEY key, const Info& info, int depth, std::wstring* dump) {
  DWORD longest_name = 0;
  DWORD longest_class = 0;
  DWORD index = 0;
  for (;; ++index) {
    std::vector<wchar_t> name(info.max_sub_key_length + 1);
    std::vector<wchar_t> class_name(info.max_class_length + 1);
    DWORD name_length = info.max_sub_key_length + 1;
    DWORD class_length = info.max_class_length + 1;
    const LSTATUS status = RegEnumKeyExW(key, index, name.data(), &name_length, nullptr,
                                         class_name.data(), &class_length, nullptr);
    if (status == ERROR_NO_MORE_ITEMS) break;
    check(status == ERROR_SUCCESS, "RegEnumKeyExW failed within the subkey count");
    CheckName(name, name_length, info.max_sub_key_length);
    check(class_length <= info.max_class_length, "a class is longer than the maximum");
    longest_name = std::max(longest_name, name_length);
    longest_class = std::max(longest_class, class_length);
    Key child;
    check(RegOpenKeyExW(key, name.data(), 0, KEY_ALL_ACCESS, child.out()) == ERROR_SUCCESS,
          "an enumerated subkey does not open by its name");
    check(QueryInfo(child).class_name == std::wstring(class_name.data(), class_length),
          "a subkey's class differs from the one it enumerated with");
    AppendDump(dump, L"key ", std::wstring(name.data(), name_length));
    Walk(child, depth + 1, dump);
    AppendDump(dump, L"end", L"");
  }
  check(index == info.sub_keys, "RegEnumKeyExW does not enumerate the subkey count");
  check(longest_name == info.max_sub_key_length && longest_class == info.max_class_length,
        "the subkey maxima are not those of the subkeys");
}

inline void Walk(HKEY key, int depth, std::wstring* dump) {
  check(depth <= kMaxDepth, "the tree is deeper than the registry allows");
  const Info info = QueryInfo(key);
  AppendDump(dump, L"class ", info.class_name);
  WalkValues(key, info, dump);
  WalkSubkeys(key, info, depth, dump);
}

inline std::wstring Dump(HKEY key) {
  std::wstring dump;
  Walk(key, 0, &dump);
  return dump;
}

// The name at index 0 of the subkeys or values, by the enumeration `enumerate`.
template <typename Enumerate>
inline std::vector<wchar_t> FirstName(DWORD max_length, Enumerate enumerate) {
  std::vector<wchar_t> name(max_length + 1);
  DWORD length = max_length + 1;
  check(enumerate(name.data(), &length) == ERROR_SUCCESS, "the first name does not enumerate");
  return name;
}

// Deletes every subkey and value of `key` by the names the enumerations give.
inline void DeleteContents(HKEY key) {
  const Info info = QueryInfo(key);
  for (DWORD i = 0; i < info.sub_keys; ++i) {
    const std::vector<wchar_t> name =
        FirstName(info.max_sub_key_length, [key](wchar_t* buffer, DWORD* length) {
          return RegEnumKeyExW(key, 0, buffer, length, nullptr, nullptr, nullptr, nullptr);
        });
    {
      Key child;
      check(RegOpenKeyExW(key, name.data(), 0, KEY_ALL_ACCESS, child.out()) == ERROR_SUCCESS,
            "an enumerated subkey does not open to be deleted");
      DeleteContents(child);
    }
    check(RegDeleteKeyW(key, name.data()) == ERROR_SUCCESS, "an emptied subkey does not delete");
  }
  for (DWORD i = 0; i < info.values; ++i) {
    const std::vector<wchar_t> name =
        FirstName(info.max_value_name_length, [key](wchar_t* buffer, DWORD* length) {
          return RegEnumValueW(key, 0, buffer, length, nullptr, nullptr, nullptr, nullptr);
        });
    check(RegDeleteValueW(key, name.data()) == ERROR_SUCCESS, "a value does not delete by name");
  }
  const Info emptied = QueryInfo(key);
  check(emptied.sub_keys == 0 && emptied.values == 0, "deleting every name left something");
}

// A registry store in a temporary directory for the object's lifetime.
class TemporaryStore {
 public:
  TemporaryStore() {
    std::string pattern = (std::filesystem::temp_directory_path() / "n7regfuzz.XXXXXX").string();
    check(mkdtemp(pattern.data()) != nullptr, "no temporary directory");
    directory_ = pattern;
    const n7platform::internal::StoreSettings settings{directory_, "boot-1"};
    n7platform::internal::UseRegistryStore(&settings);
  }
  ~TemporaryStore() {
    n7platform::internal::UseRegistryStore(nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  TemporaryStore(const TemporaryStore&) = delete;
  TemporaryStore& operator=(const TemporaryStore&) = delete;
  const std::string& directory() const { return directory_; }

 private:
  std::string directory_;
};

// Writes fuzzer bytes as a saved-key file, the last 8 bytes replaced by the FNV-1a checksum of
// the rest, so that the fuzzer reaches the records behind the file's self-check.
inline void WriteSavedKeyFile(const std::string& path, std::string_view input) {
  std::string bytes(input);
  if (bytes.size() >= 8) {
    std::uint64_t hash = 0xCBF29CE484222325ull;
    for (std::size_t i = 0; i + 8 < bytes.size(); ++i) {
      hash = (hash ^ static_cast<unsigned char>(bytes[i])) * 0x100000001B3ull;
    }
    for (std::size_t i = 0; i < 8; ++i) {
      bytes[bytes.size() - 8 + i] = static_cast<char>(hash >> (8 * i));
    }
  }
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  check(out.good(), "the input file could not be written");
}

}  // namespace n7fuzz::registry
