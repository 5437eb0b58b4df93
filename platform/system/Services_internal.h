// The seam under the service control manager: the functions of platform/system/Services.h talk to a
// replaceable backend. The default one speaks to systemd over D-Bus; tests install their own.
#pragma once

#include <memory>
#include <string>

#include "n7utility/platform/base/WindowsTypes.h"

namespace n7platform::internal {

// A unit's state as systemd names it ("active", "frozen", ...); freezer is empty when the manager
// does not report it.
struct UnitState {
  std::string active;
  std::string freezer;
};

// One connection to the service manager. Its members may be called from several threads at once.
class ServiceManagerConnection {
 public:
  virtual ~ServiceManagerConnection() = default;
  // Finds the unit (UTF-8 name such as "cron.service"); ERROR_SUCCESS with an id that
  // QueryState accepts, ERROR_SERVICE_DOES_NOT_EXIST, ERROR_INVALID_NAME, or another error.
  virtual DWORD FindUnit(const std::string& unit, std::string* id) = 0;
  virtual DWORD QueryState(const std::string& id, UnitState* state) = 0;
};

class ServiceBackend {
 public:
  virtual ~ServiceBackend() = default;
  // A new connection, or null with the error to report in `error`.
  virtual std::unique_ptr<ServiceManagerConnection> Connect(DWORD* error) = 0;
};

// Installs `backend` (not owned; must outlive its use) for the following OpenSCManagerW calls;
// null restores the D-Bus backend. Handles opened before keep their connection.
void SetServiceBackend(ServiceBackend* backend);

// The service state of a unit state (see the table in platform/system/Services.h).
DWORD ServiceStateOf(const UnitState& state);

}  // namespace n7platform::internal
