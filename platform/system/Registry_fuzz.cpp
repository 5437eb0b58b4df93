// libFuzzer target: arbitrary saved-key files (checksum fixed up) restored over a key of a
// registry store in a temporary directory.
//
// A restore that fails must change nothing: the whole of HKEY_CURRENT_USER reads the same before
// and after. A restore that succeeds must leave a tree that passes the walk of
// RegistryWalk_fuzz.h; saving the restored key and restoring that into another key must give the
// same tree, and every subkey and value must delete by its name. The target key then goes back
// to its starting content for the next input.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "n7utility/platform/base/Check_fuzz.h"
#include "n7utility/platform/system/Registry.h"
#include "n7utility/platform/system/RegistryWalk_fuzz.h"

namespace {

using n7fuzz::check;
using n7fuzz::registry::DeleteContents;
using n7fuzz::registry::Dump;
using n7fuzz::registry::Key;
using n7fuzz::registry::Widen;

// The temporary store, the key restored over and the files the target writes.
class Fixture {
 public:
  Fixture() {
    input_ = store_.directory() + "/input.reg";
    baseline_ = Widen(store_.directory() + "/baseline.reg");
    MakeBaseline();
  }

  void Run(std::string_view input);
  void WriteSeeds(const std::filesystem::path& directory);

 private:
  void MakeBaseline();
  void CheckRestored();

  n7fuzz::registry::TemporaryStore store_;
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

void Fixture::CheckRestored() {
  const std::wstring restored = Dump(target_);
  const std::wstring resaved = Widen(store_.directory() + "/resaved.reg");
  std::filesystem::remove(store_.directory() + "/resaved.reg");
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
  n7fuzz::registry::WriteSavedKeyFile(input_, input);
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
