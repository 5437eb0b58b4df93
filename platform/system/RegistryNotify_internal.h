// Registry change notification: the pending RegNotifyChangeKeyValue registrations and the
// process's one notifier thread that signals them (RegistryNotify.cpp says how).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/system/RegistryStore_internal.h"

namespace n7platform::internal {

// Wakes this process's notifier after a local write.
void WakeRegistryNotifier();

// One pending RegNotifyChangeKeyValue: `event` is set by the first change committed after it
// was added that concerns `path` (or, with `subtree`, a key below it) and is of a kind in
// `filter`; the registration then ends.
struct Registration {
  std::shared_ptr<HiveStore> store;
  std::uintptr_t owner = 0;  // the key handle it was made on
  std::string path;
  bool subtree = false;
  DWORD filter = 0;
  HANDLE event = nullptr;
  std::int64_t after = 0;  // the last change of the log it has seen; set by AddRegistration
};

DWORD AddRegistration(Registration registration);
// Sets the events of the registrations made on `owner` and ends them (the handle is closing).
void EndRegistrations(std::uintptr_t owner);
// The same for every registration (the store is being replaced).
void EndAllRegistrations();

}  // namespace n7platform::internal
