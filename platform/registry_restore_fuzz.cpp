// libFuzzer target: arbitrary saved-key files restored over a key of a registry store in a
// temporary directory. The last 8 bytes of the input are replaced by the checksum of the rest,
// so that the fuzzer reaches the records behind the file's self-check.
//
// A restore that fails must change nothing: the whole of HKEY_CURRENT_USER reads the same before
// and after. A restore that succeeds must leave a tree that reads consistently:
//   - every key's subkeys and values enumerate to exactly the counts RegQueryInfoKeyW gives, each
//     name, class and data within its maximum lengths, and those maxima reached;
//   - names hold no U+0000 (a C-string call could not reach them) and every subkey opens by its
//     name and has the class it enumerated with; every value reads back with its type and data;
//   - saving the restored key and restoring that into another key gives the same tree;
//   - every subkey and value can be deleted by its name.
// The target key then goes back to its starting content for the next input.
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

#include "platform/Registry.h"
#include "platform/RegistryStore_internal.h"
#include "platform/fuzz_check.h"

namespace {

using n7fuzz::check;

// The registry's own cap on nesting; the walk follows it.
constexpr int kMaxDepth = 600;

std::wstring Widen(const std::string& text) { return {text.begin(), text.end()}; }

// An open key handle, closed on destruction.
class Key {
 public:
  Key() = default;
  ~Key() {
    if (handle_ != nullptr) RegCloseKey(handle_);
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  HKEY* out() { return &handle_; }
  operator HKEY() const { return handle_; }  // NOLINT(google-explicit-constructor)

 private:
  HKEY handle_ = nullptr;
};

struct Info {
  std::wstring class_name;
  DWORD sub_keys = 0;
  DWORD max_sub_key_length = 0;
  DWORD max_class_length = 0;
  DWORD values = 0;
  DWORD max_value_name_length = 0;
  DWORD max_value_length = 0;
};

Info QueryInfo(HKEY key) {
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
void CheckName(const std::vector<wchar_t>& buffer, DWORD length, DWORD max_length) {
  check(length <= max_length, "an enumerated name is longer than the maximum");
  check(std::wcslen(buffer.data()) == length, "an enumerated name holds U+0000");
}

void AppendDump(std::wstring* dump, std::wstring_view what, std::wstring_view text) {
  dump->append(what).append(text).push_back(L'\n');
}

// Checks the values of `key` against `info` and appends them to `dump`.
void WalkValues(HKEY key, const Info& info, std::wstring* dump) {
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
void WalkSubkeys(HKEY key, const Info& info, int depth, std::wstring* dump) {
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

void Walk(HKEY key, int depth, std::wstring* dump) {
  check(depth <= kMaxDepth, "the tree is deeper than the registry allows");
  const Info info = QueryInfo(key);
  AppendDump(dump, L"class ", info.class_name);
  WalkValues(key, info, dump);
  WalkSubkeys(key, info, depth, dump);
}

std::wstring Dump(HKEY key) {
  std::wstring dump;
  Walk(key, 0, &dump);
  return dump;
}

// The name at index 0 of the subkeys or values, by the enumeration `enumerate`.
template <typename Enumerate>
std::vector<wchar_t> FirstName(DWORD max_length, Enumerate enumerate) {
  std::vector<wchar_t> name(max_length + 1);
  DWORD length = max_length + 1;
  check(enumerate(name.data(), &length) == ERROR_SUCCESS, "the first name does not enumerate");
  return name;
}

// Deletes every subkey and value of `key` by the names the enumerations give.
void DeleteContents(HKEY key) {
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

// The temporary store, the key restored over and the files the target writes.
class Fixture {
 public:
  Fixture() {
    std::string pattern = (std::filesystem::temp_directory_path() / "n7regfuzz.XXXXXX").string();
    check(mkdtemp(pattern.data()) != nullptr, "no temporary directory");
    directory_ = pattern;
    const n7platform::internal::StoreSettings settings{directory_, "boot-1"};
    n7platform::internal::UseRegistryStore(&settings);
    input_ = directory_ + "/input.reg";
    baseline_ = Widen(directory_ + "/baseline.reg");
    MakeBaseline();
  }
  ~Fixture() {
    n7platform::internal::UseRegistryStore(nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  Fixture(const Fixture&) = delete;
  Fixture& operator=(const Fixture&) = delete;

  void Run(std::string_view input);
  void WriteSeeds(const std::filesystem::path& directory);

 private:
  void MakeBaseline();
  void WriteInput(std::string_view input) const;
  void CheckRestored();

  std::string directory_;
  std::string input_;
  std::wstring baseline_;
  Key target_;
};

// The target key starts with a value and a subkey with a class and a value of its own.
void Fixture::MakeBaseline() {
  check(RegCreateKeyW(HKEY_CURRENT_USER, L"Fuzz\\Target", target_.out()) == ERROR_SUCCESS,
        "no target key");
  const wchar_t text[] = L"start";
  check(RegSetValueExW(target_, L"Base", 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                       sizeof text) == ERROR_SUCCESS,
        "no starting value");
  Key child;
  wchar_t class_name[] = L"class";
  check(RegCreateKeyExW(target_, L"Child", 0, class_name, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                        nullptr, child.out(), nullptr) == ERROR_SUCCESS,
        "no starting subkey");
  const DWORD number = 7;
  check(RegSetValueExW(child, L"Number", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                       sizeof number) == ERROR_SUCCESS,
        "no starting subkey value");
  check(RegSaveKeyW(target_, baseline_.c_str(), nullptr) == ERROR_SUCCESS, "no baseline file");
}

// Writes the input with its last 8 bytes replaced by the FNV-1a checksum of the rest.
void Fixture::WriteInput(std::string_view input) const {
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
  std::ofstream out(input_, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  check(out.good(), "the input file could not be written");
}

void Fixture::CheckRestored() {
  const std::wstring restored = Dump(target_);
  const std::wstring resaved = Widen(directory_ + "/resaved.reg");
  std::filesystem::remove(directory_ + "/resaved.reg");
  check(RegSaveKeyW(target_, resaved.c_str(), nullptr) == ERROR_SUCCESS,
        "a restored key does not save");
  Key copy;
  check(RegCreateKeyW(HKEY_CURRENT_USER, L"Fuzz\\Copy", copy.out()) == ERROR_SUCCESS,
        "no key to copy into");
  check(RegRestoreKeyW(copy, resaved.c_str(), 0) == ERROR_SUCCESS,
        "the save of a restored key does not restore");
  check(Dump(copy) == restored, "save and restore changed a restored tree");
  DeleteContents(copy);
  check(RegDeleteKeyW(HKEY_CURRENT_USER, L"Fuzz\\Copy") == ERROR_SUCCESS, "the copy stays");
  DeleteContents(target_);
}

void Fixture::Run(std::string_view input) {
  WriteInput(input);
  const std::wstring before = Dump(HKEY_CURRENT_USER);
  const std::wstring path = Widen(input_);
  if (RegRestoreKeyW(target_, path.c_str(), 0) != ERROR_SUCCESS) {
    check(Dump(HKEY_CURRENT_USER) == before, "a failed restore changed the registry");
    return;
  }
  CheckRestored();
  check(RegRestoreKeyW(target_, baseline_.c_str(), 0) == ERROR_SUCCESS &&
            Dump(HKEY_CURRENT_USER) == before,
        "the target does not go back to its starting content");
}

void SetValue(HKEY key, const wchar_t* name, DWORD type, std::string_view data) {
  check(RegSetValueExW(key, name, 0, type, reinterpret_cast<const BYTE*>(data.data()),
                       static_cast<DWORD>(data.size())) == ERROR_SUCCESS,
        "a seed value could not be set");
}

// Saves `key` as the seed `name`.
void SaveSeed(HKEY key, const std::filesystem::path& directory, const char* name) {
  const std::filesystem::path file = directory / name;
  std::filesystem::remove(file);
  check(RegSaveKeyW(key, Widen(file.string()).c_str(), nullptr) == ERROR_SUCCESS,
        "a seed could not be saved");
}

// Seeds: the starting content, an empty key, and a tree of three levels with classes, the
// default value, non-ASCII names and values of several types.
void Fixture::WriteSeeds(const std::filesystem::path& directory) {
  SaveSeed(target_, directory, "start");
  Key empty;
  check(RegCreateKeyW(HKEY_CURRENT_USER, L"Seeds\\Empty", empty.out()) == ERROR_SUCCESS,
        "no seed key");
  SaveSeed(empty, directory, "empty");
  Key tree;
  wchar_t class_name[] = L"Klasse \u00e9";
  check(RegCreateKeyExW(HKEY_CURRENT_USER, L"Seeds\\Tree", 0, class_name, REG_OPTION_NON_VOLATILE,
                        KEY_ALL_ACCESS, nullptr, tree.out(), nullptr) == ERROR_SUCCESS,
        "no seed key");
  SetValue(tree, L"", REG_SZ, std::string_view("d\0\0\0\0\0\0\0", 8));
  SetValue(tree, L"Gr\u00fc\u00dfe", REG_BINARY, std::string_view("\x01\x02\xff", 3));
  SetValue(tree, L"Empty", REG_NONE, "");
  Key deep;
  check(RegCreateKeyExW(tree, L"A\\B\\C", 0, class_name, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                        nullptr, deep.out(), nullptr) == ERROR_SUCCESS,
        "no nested seed key");
  SetValue(deep, L"Q", REG_QWORD, std::string_view("\x01\0\0\0\0\0\0\x80", 8));
  SaveSeed(tree, directory, "tree");
}

void WriteSeeds(const std::filesystem::path& directory) {
  Fixture fixture;
  fixture.WriteSeeds(directory);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  n7fuzz::write_seeds_if_asked(WriteSeeds);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Fixture fixture;
  fixture.Run(n7fuzz::as_text(data, size));
  return 0;
}
