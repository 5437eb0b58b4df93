// n7util demo, the registry: a volatile key, typed values and a change notification.

#include <string>

#include "command.h"
#include "demo_steps.h"
#include "n7utility/Utility/RegistryKey.h"
#include "n7utility/core/text.h"
#include "n7utility/platform/kernel/KernelObjects.h"

namespace n7util {
namespace {

// Reports a failed registry operation; false.
bool registry_failed(const char* what, const CRegistryKey& key) {
  print_error(std::string("registry: ") + what + " failed with error " +
              std::to_string(key.GetLastError()));
  return false;
}

}  // namespace

bool registry_step(std::ostream& out) {
  CRegistryKey key;
  const LONG disposition =
      key.Create(HKEY_CURRENT_USER, L"n7util demo", 1, KEY_ALL_ACCESS, nullptr);
  if (disposition < 0) return registry_failed("creating a volatile key", key);
  out << "  HKCU\\n7util demo " << (disposition == 1 ? "created" : "opened")
      << " (volatile: gone after a restart)\n";
  const std::wstring greeting = L"hello";
  if (key.SetValue(L"Greeting", REG_SZ, reinterpret_cast<const BYTE*>(greeting.c_str()),
                   static_cast<DWORD>((greeting.size() + 1) * sizeof(wchar_t))) != 0)
    return registry_failed("writing a text", key);
  CString text;
  if (key.GetValue(L"GREETING", text) != 0) return registry_failed("reading the text", key);
  out << "  Greeting read back (name in another case): " << n7core::to_string(text.GetString())
      << '\n';

  HANDLE changed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  const DWORD count = 3;
  const bool notified =
      key.NotifyChange(REG_NOTIFY_CHANGE_LAST_SET, FALSE, changed) == 0 &&
      key.SetValue(L"Count", REG_DWORD, reinterpret_cast<const BYTE*>(&count), sizeof count) == 0 &&
      WaitForSingleObject(changed, 30000) == WAIT_OBJECT_0;
  CloseHandle(changed);
  if (!notified) return registry_failed("watching for a change", key);
  DWORD read = 0;
  if (key.GetValue(L"Count", read) != 0 || read != count)
    return registry_failed("reading the number", key);
  out << "  change notification signalled by writing Count = " << read << '\n';

  key.Close();
  CRegistryKey root;
  if (root.Open(HKEY_CURRENT_USER, L"", KEY_ALL_ACCESS) != 0 || root.DeleteKey(L"n7util demo") != 0)
    return registry_failed("deleting the key", root);
  out << "  key deleted\n";
  return true;
}

// ---- The demo ----

}  // namespace n7util
