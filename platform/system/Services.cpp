#include "n7utility/platform/system/Services.h"

#include <systemd/sd-bus.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "n7utility/platform/base/HandleTable_internal.h"
#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/base/ServiceMutex.h"
#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/LocalSystem_internal.h"
#include "n7utility/platform/system/Services_internal.h"

namespace n7platform::internal {
namespace {

constexpr char kDestination[] = "org.freedesktop.systemd1";
constexpr char kManagerPath[] = "/org/freedesktop/systemd1";
constexpr char kManagerInterface[] = "org.freedesktop.systemd1.Manager";
constexpr char kUnitInterface[] = "org.freedesktop.systemd1.Unit";
constexpr std::size_t kMaxUnitName = 255;  // systemd's limit

// Owns an sd_bus_error and frees it.
struct BusError {
  BusError() = default;
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;
  ~BusError() { sd_bus_error_free(&error); }
  bool Is(const char* name) const { return sd_bus_error_has_name(&error, name) != 0; }
  sd_bus_error error{};  // SD_BUS_ERROR_NULL, which is a C compound literal
};

struct MessageUnref {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

struct BusUnref {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusUnref>;

DWORD ErrorOfCall(const BusError& error) {
  if (error.Is("org.freedesktop.systemd1.NoSuchUnit")) return ERROR_SERVICE_DOES_NOT_EXIST;
  if (error.Is(SD_BUS_ERROR_INVALID_ARGS)) return ERROR_INVALID_NAME;
  if (error.Is(SD_BUS_ERROR_ACCESS_DENIED)) return ERROR_ACCESS_DENIED;
  // Without a reply from the manager (the bus went away, a time-out, ...).
  return RPC_S_SERVER_UNAVAILABLE;
}

// systemd's D-Bus interface. One sd_bus object is not safe for concurrent use, so calls on a
// connection take turns.
class BusConnection final : public ServiceManagerConnection {
 public:
  explicit BusConnection(Bus bus) : bus_(std::move(bus)) {}

  DWORD FindUnit(const std::string& unit, std::string* id) override {
    ServiceGuard lock(section_);
    BusError error;
    sd_bus_message* reply = nullptr;
    if (sd_bus_call_method(bus_.get(), kDestination, kManagerPath, kManagerInterface, "LoadUnit",
                           &error.error, &reply, "s", unit.c_str()) < 0) {
      return ErrorOfCall(error);
    }
    const Message owned_reply(reply);
    const char* path = nullptr;
    if (sd_bus_message_read(reply, "o", &path) < 0) return RPC_S_SERVER_UNAVAILABLE;
    std::optional<std::string> load_state;
    const DWORD result = Property(path, "LoadState", &load_state);
    if (result != ERROR_SUCCESS) return result;
    // LoadUnit answers for any valid name; a unit without a file is "not-found".
    if (!load_state || *load_state == "not-found") return ERROR_SERVICE_DOES_NOT_EXIST;
    *id = path;
    return ERROR_SUCCESS;
  }

  DWORD QueryState(const std::string& id, UnitState* state) override {
    ServiceGuard lock(section_);
    std::optional<std::string> active, freezer;
    DWORD result = Property(id.c_str(), "ActiveState", &active);
    if (result == ERROR_SUCCESS) result = Property(id.c_str(), "FreezerState", &freezer);
    if (result != ERROR_SUCCESS) return result;
    if (!active) return RPC_S_SERVER_UNAVAILABLE;
    *state = {std::move(*active), freezer.value_or("")};
    return ERROR_SUCCESS;
  }

 private:
  // A string property of a unit; `value` stays empty when the manager does not know the property
  // (older versions have no FreezerState).
  DWORD Property(const char* path, const char* name, std::optional<std::string>* value)
      REQUIRES(section_) {
    BusError error;
    char* text = nullptr;
    if (sd_bus_get_property_string(bus_.get(), kDestination, path, kUnitInterface, name,
                                   &error.error, &text) < 0) {
      return error.Is(SD_BUS_ERROR_UNKNOWN_PROPERTY) ? ERROR_SUCCESS : ErrorOfCall(error);
    }
    *value = text;
    std::free(text);  // NOLINT(cppcoreguidelines-no-malloc): allocated by sd-bus
    return ERROR_SUCCESS;
  }

  ServiceMutex section_;
  const Bus bus_ PT_GUARDED_BY(section_);
};

class BusBackend final : public ServiceBackend {
 public:
  std::unique_ptr<ServiceManagerConnection> Connect(DWORD* error) override {
    sd_bus* bus = nullptr;
    const int result = sd_bus_open_system(&bus);
    if (result < 0) {
      *error =
          result == -EACCES || result == -EPERM ? ERROR_ACCESS_DENIED : RPC_S_SERVER_UNAVAILABLE;
      return nullptr;
    }
    // A manager that stops answering makes each query fail after this long instead of the bus
    // library's default of 25 seconds.
    sd_bus_set_method_call_timeout(bus, kCallTimeoutMicroseconds);
    return std::make_unique<BusConnection>(Bus(bus));
  }

 private:
  static constexpr std::uint64_t kCallTimeoutMicroseconds = 5'000'000;
};

std::atomic<ServiceBackend*> installed_backend{nullptr};

ServiceBackend& Backend() {
  static NoDestructor<BusBackend> bus_backend;
  ServiceBackend* backend = installed_backend.load(std::memory_order_acquire);
  return backend != nullptr ? *backend : *bus_backend;
}

// What a manager or service handle stands for. Service handles share their manager's connection,
// which lives as long as any of them.
struct ServiceControlObject {
  std::shared_ptr<ServiceManagerConnection> connection;
  std::optional<std::string> unit_id;  // set for a service handle
};

HandleTable<ServiceControlObject>& Handles() {
  static NoDestructor<HandleTable<ServiceControlObject>> handles(HandleKind::kServiceControl);
  return *handles;
}

bool IsUnitNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ':' ||
         c == '_' || c == '.' || c == '-' || c == '@' || c == '\\';
}

// "NAME.service" for a service name; nothing when the name cannot be a unit's.
std::optional<std::string> UnitName(LPCWSTR service) {
  if (service == nullptr || *service == L'\0') return std::nullopt;
  std::optional<std::string> unit = codec::ToUtf8(service);
  if (!unit) return std::nullopt;
  for (const char c : *unit) {
    if (!IsUnitNameCharacter(c)) return std::nullopt;
  }
  if (!unit->ends_with(".service")) *unit += ".service";
  if (unit->size() > kMaxUnitName) return std::nullopt;
  return unit;
}

// A new handle from the table; null, with the error set, when the table is full.
SC_HANDLE ToHandle(void* handle) {
  if (handle == nullptr) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return static_cast<SC_HANDLE>(handle);
}

SC_HANDLE Fail(DWORD error) {
  SetLastError(error);
  return nullptr;
}

}  // namespace

void SetServiceBackend(ServiceBackend* backend) {
  installed_backend.store(backend, std::memory_order_release);
}

DWORD ServiceStateOf(const UnitState& state) {
  const std::string_view active = state.active;
  if (active == "activating") return SERVICE_START_PENDING;
  if (active == "deactivating") return SERVICE_STOP_PENDING;
  if (active != "active" && active != "reloading" && active != "refreshing") {
    return SERVICE_STOPPED;
  }
  const std::string_view freezer = state.freezer;
  if (freezer == "freezing") return SERVICE_PAUSE_PENDING;
  if (freezer == "frozen") return SERVICE_PAUSED;
  if (freezer == "thawing") return SERVICE_CONTINUE_PENDING;
  return SERVICE_RUNNING;
}

}  // namespace n7platform::internal

using n7platform::internal::Backend;
using n7platform::internal::Fail;
using n7platform::internal::Handles;
using n7platform::internal::IsLocalMachine;
using n7platform::internal::ServiceControlObject;
using n7platform::internal::ServiceManagerConnection;
using n7platform::internal::ServiceStateOf;
using n7platform::internal::ToHandle;
using n7platform::internal::UnitName;
using n7platform::internal::UnitState;

SC_HANDLE OpenSCManagerW(LPCWSTR machine_name, LPCWSTR database_name, DWORD /*access*/) {
  if (!IsLocalMachine(machine_name)) return Fail(RPC_S_SERVER_UNAVAILABLE);
  if (database_name != nullptr && std::wstring_view(database_name) != L"ServicesActive") {
    return Fail(ERROR_DATABASE_DOES_NOT_EXIST);
  }
  DWORD error = ERROR_SUCCESS;
  std::shared_ptr<ServiceManagerConnection> connection = Backend().Connect(&error);
  if (connection == nullptr) return Fail(error);
  return ToHandle(Handles().Insert(std::make_shared<ServiceControlObject>(
      ServiceControlObject{std::move(connection), std::nullopt})));
}

SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR service_name, DWORD /*access*/) {
  const auto found = Handles().Find(manager);
  if (!found) return Fail(ERROR_INVALID_HANDLE);
  if (found->unit_id) return Fail(ERROR_INVALID_HANDLE);
  const std::optional<std::string> unit = UnitName(service_name);
  if (!unit) return Fail(ERROR_INVALID_NAME);
  std::string id;
  const DWORD error = found->connection->FindUnit(*unit, &id);
  if (error != ERROR_SUCCESS) return Fail(error);
  return ToHandle(Handles().Insert(std::make_shared<ServiceControlObject>(
      ServiceControlObject{found->connection, std::move(id)})));
}

BOOL QueryServiceStatus(SC_HANDLE service, LPSERVICE_STATUS status) {
  const auto found = Handles().Find(service);
  if (!found || !found->unit_id) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  if (status == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  UnitState state;
  const DWORD error = found->connection->QueryState(*found->unit_id, &state);
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return FALSE;
  }
  *status = SERVICE_STATUS{};
  status->dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status->dwCurrentState = ServiceStateOf(state);
  return TRUE;
}

BOOL CloseServiceHandle(SC_HANDLE handle) {
  if (Handles().Remove(handle) != nullptr) return TRUE;
  SetLastError(ERROR_INVALID_HANDLE);
  return FALSE;
}
