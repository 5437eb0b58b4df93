// The event-log family: registering a program as a source of the system's event log and writing
// events to it.
//
// AddEventSource and QueryEventMessageFile keep a source's registration in the registry (the key
// "SYSTEM\CurrentControlSet\Services\EventLog\Application\<source>" under HKEY_LOCAL_MACHINE, with
// the values "EventMessageFile" and "TypesSupported"). CEventLog holds a registered event source
// and reports events through it; the event type comes from the top two bits of the event
// identifier (success and informational -> information, warning -> warning, error -> error).
// Where the events end up is the platform's choice: see platform/system/EventLog.h (the system log,
// or the file N7_EVENTLOG_FILE names).
//
// Nothing here throws. Failures are traced on the topic "EventLog" and, for the two free
// functions, returned as a Win32 error code. Any thread may call any function; several threads
// may report through one CEventLog, but not while it is being built or destroyed.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/system/EventLog.h"

// The longest source name, in UTF-16 units: the key path ("SYSTEM\...\Application\" and the name)
// must fit 512 units with its terminator. A longer name is refused with ERROR_INVALID_PARAMETER
// before the registry is touched.
inline constexpr DWORD kMaxEventSourceName = 456;

// Registers `source_name` (not null) with its message file and the event types it reports
// (`types_supported` 0 means error, warning and information: 7). An existing registration's two
// values are overwritten. Returns 0 or the Win32 error of the failing call; a partial
// registration is left in place.
N7_EXPORT DWORD AddEventSource(const wchar_t* source_name, const wchar_t* message_file,
                               DWORD types_supported);

// Reads a registration back: the message file as stored (environment references unexpanded) and,
// when `types_supported` is not null, the type flags. Returns 0 or the Win32 error of the failing
// call (ERROR_FILE_NOT_FOUND for an unregistered source, ERROR_MORE_DATA for a message file longer
// than 511 characters); `message_file` changes only when the message file was read, and
// `*types_supported` only when the flags were.
N7_EXPORT DWORD QueryEventMessageFile(const wchar_t* source_name, CString& message_file,
                                      DWORD* types_supported);

// An event source held for the object's lifetime. A failed registration is traced and leaves an
// object whose reports are dropped.
class N7_EXPORT CEventLog {
 public:
  // `server_name` null means this machine.
  explicit CEventLog(const wchar_t* source_name, const wchar_t* server_name = nullptr);
  ~CEventLog();
  CEventLog(const CEventLog&) = delete;
  CEventLog& operator=(const CEventLog&) = delete;

  // Reports an event with `string_count` strings from `strings` and `data_size` bytes of raw data.
  // The count goes to the platform narrowed to 16 bits.
  void LogMessage(DWORD event_id, DWORD data_size, LPVOID raw_data, DWORD string_count,
                  LPCWSTR* strings);
  // The same with the strings as further arguments (const wchar_t*); at most 16 are reported,
  // more are traced and ignored.
  void LogMessage(DWORD event_id, DWORD data_size, LPVOID raw_data, DWORD string_count, ...);

 protected:
  void Log(DWORD event_id, WORD category, PSID user_sid, DWORD data_size, LPVOID raw_data,
           DWORD string_count, LPCWSTR* strings);

 private:
  CString m_strSourceName;
  HANDLE m_hEventSource;
};
