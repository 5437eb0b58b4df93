// libFuzzer target: `n7util reg restore KEY FILE` with arbitrary saved-key files (checksum fixed
// up), into a key that does not exist yet, in a registry store in a temporary directory. The
// command creates the key and restores into it. When it fails, the registry must read as it did
// before: no key left behind. When it succeeds, the new key's tree must pass the registry walk's
// checks; it is then deleted for the next input.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"
#include "n7utility/platform/base/Check_fuzz.h"
#include "n7utility/platform/system/Registry.h"
#include "n7utility/platform/system/RegistryWalk_fuzz.h"

namespace n7util {
extern const Command reg_command;
}  // namespace n7util

namespace {

using n7fuzz::check;
using n7fuzz::registry::Dump;

constexpr char kKeyPath[] = "HKCU\\Fuzz\\Restored";
constexpr wchar_t kSubKey[] = L"Fuzz\\Restored";

// Runs the command; false when it reports a failure.
bool RestoreWithTheTool(const std::string& file) {
  try {
    return n7util::reg_command.run({"restore", kKeyPath, file}) == n7util::kExitOk;
  } catch (const std::runtime_error&) {
    return false;
  }
}

void RemoveRestoredKey() {
  n7fuzz::registry::Key restored;
  check(
      RegOpenKeyExW(HKEY_CURRENT_USER, kSubKey, 0, KEY_ALL_ACCESS, restored.out()) == ERROR_SUCCESS,
      "the restored key does not open");
  (void)Dump(restored);
  n7fuzz::registry::DeleteContents(restored);
  check(RegDeleteKeyW(HKEY_CURRENT_USER, kSubKey) == ERROR_SUCCESS, "the restored key stays");
}

// The store, with the parent of the key the command creates already there.
const n7fuzz::registry::TemporaryStore& Store() {
  static const n7fuzz::registry::TemporaryStore store;
  static const bool has_parent = [] {
    n7fuzz::registry::Key parent;
    return RegCreateKeyW(HKEY_CURRENT_USER, L"Fuzz", parent.out()) == ERROR_SUCCESS;
  }();
  check(has_parent, "no parent key");
  return store;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const n7fuzz::registry::TemporaryStore& store = Store();
  const std::string file = store.directory() + "/input.reg";
  n7fuzz::registry::WriteSavedKeyFile(file, n7fuzz::as_text(data, size));
  const std::wstring before = Dump(HKEY_CURRENT_USER);
  if (RestoreWithTheTool(file)) RemoveRestoredKey();
  check(Dump(HKEY_CURRENT_USER) == before, "a restore left the registry changed");
  return 0;
}
