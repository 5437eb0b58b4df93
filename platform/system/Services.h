// The service control manager, for asking whether a service runs.
//
// Services are systemd units: the service NAME is the unit "NAME.service" (a NAME that already
// ends in ".service" is taken as it is). The manager is reached over systemd's D-Bus interface on
// the system bus (the address in DBUS_SYSTEM_BUS_ADDRESS, by default
// unix:path=/run/dbus/system_bus_socket); a call the manager does not answer within 5 seconds
// fails with RPC_S_SERVER_UNAVAILABLE. A unit's state maps to a service state as follows:
//
//   unit ActiveState            freezer state (FreezerState)   service state
//   active, reloading,          running (or not reported)      SERVICE_RUNNING
//   refreshing                  freezing                       SERVICE_PAUSE_PENDING
//                               frozen                         SERVICE_PAUSED
//                               thawing                        SERVICE_CONTINUE_PENDING
//   activating                                                 SERVICE_START_PENDING
//   deactivating                                               SERVICE_STOP_PENDING
//   inactive, failed, maintenance, anything else               SERVICE_STOPPED
//
// Only this machine's manager can be opened. Only status queries are offered; access masks are
// accepted and not enforced. Any thread may call any function; handles may be shared between
// threads. Failures set the calling thread's last error.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

// An opaque reference to the service manager or a service (never dereferenced).
using SC_HANDLE = struct N7ServiceControlHandle*;

struct SERVICE_STATUS {
  DWORD dwServiceType;
  DWORD dwCurrentState;
  DWORD dwControlsAccepted;
  DWORD dwWin32ExitCode;
  DWORD dwServiceSpecificExitCode;
  DWORD dwCheckPoint;
  DWORD dwWaitHint;
};
using LPSERVICE_STATUS = SERVICE_STATUS*;

// Service states.
inline constexpr DWORD SERVICE_STOPPED = 1;
inline constexpr DWORD SERVICE_START_PENDING = 2;
inline constexpr DWORD SERVICE_STOP_PENDING = 3;
inline constexpr DWORD SERVICE_RUNNING = 4;
inline constexpr DWORD SERVICE_CONTINUE_PENDING = 5;
inline constexpr DWORD SERVICE_PAUSE_PENDING = 6;
inline constexpr DWORD SERVICE_PAUSED = 7;

// The type every service reports: a program of its own.
inline constexpr DWORD SERVICE_WIN32_OWN_PROCESS = 0x00000010;

// Access rights.
inline constexpr DWORD SC_MANAGER_CONNECT = 0x0001;
inline constexpr DWORD SC_MANAGER_ENUMERATE_SERVICE = 0x0004;
inline constexpr DWORD SERVICE_QUERY_CONFIG = 0x0001;
inline constexpr DWORD SERVICE_QUERY_STATUS = 0x0004;

inline constexpr DWORD ERROR_SERVICE_DOES_NOT_EXIST = 1060;
inline constexpr DWORD ERROR_DATABASE_DOES_NOT_EXIST = 1065;

// A handle to the local service manager; null on failure: RPC_S_SERVER_UNAVAILABLE for another
// machine or when the manager cannot be reached (no system bus), ERROR_DATABASE_DOES_NOT_EXIST
// for a database other than null or "ServicesActive", ERROR_ACCESS_DENIED when the bus refuses us.
N7_EXPORT SC_HANDLE OpenSCManagerW(LPCWSTR machine_name, LPCWSTR database_name, DWORD access);

// A handle to one service; null on failure: ERROR_INVALID_HANDLE, ERROR_INVALID_NAME (null, empty
// or not a valid unit name), ERROR_SERVICE_DOES_NOT_EXIST (no such unit), or the manager's error.
N7_EXPORT SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR service_name, DWORD access);

// The service's current state, type SERVICE_WIN32_OWN_PROCESS, the other fields 0. FALSE on
// failure: ERROR_INVALID_HANDLE (also for a manager handle), ERROR_INVALID_PARAMETER (null
// status), or the manager's error.
N7_EXPORT BOOL QueryServiceStatus(SC_HANDLE service, LPSERVICE_STATUS status);

// Closes a manager or service handle. A service handle stays usable after its manager's handle is
// closed.
N7_EXPORT BOOL CloseServiceHandle(SC_HANDLE handle);
