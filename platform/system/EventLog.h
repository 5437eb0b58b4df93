// The system's event log: event sources and the events they report.
//
// An event source is registered by name and reports events (a type, a category, an identifier,
// strings and raw data) until it is deregistered. Where the events go is chosen when the source is
// registered:
//
// - by default, the system log: the journal when it runs, else the syslog socket /dev/log; when
//   the environment variable N7_SYSLOG_SOCKET names a socket, always a syslog datagram to it. The
//   source name is the log identifier, the priority follows the event type (error -> err,
//   warning -> warning, information and audit success -> info, audit failure -> notice, success ->
//   info), and the message reads
//     event 0xC0000102, category 3: first string | second string
//   The journal also gets the fields N7_EVENT_ID, N7_EVENT_TYPE, N7_EVENT_CATEGORY and, when there
//   is raw data, N7_EVENT_DATA (hexadecimal). A syslog datagram (facility user) waits at most 2
//   seconds for a daemon whose queue is full; a report that no daemon takes in that time fails
//   with ERROR_EVENTLOG_CANT_START.
// - when the environment variable N7_EVENTLOG_FILE names a file, one JSON object per event is
//   appended to it, one line each:
//     {"time":"2026-01-31T12:00:00.123Z","source":"App","type":4,"category":0,
//      "id":1073741825,"strings":["a","b"],"data":"00ff"}
//   Each line is written with one write(2) to a file opened for appending, so lines from several
//   threads and processes never interleave.
//
// A remote server is not supported: only a null or empty server name, or this machine's own host
// name (with or without a leading "\\"), registers a source. Any thread may call any function here;
// failures set the calling thread's last error.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

using PSID = void*;

// Event types.
inline constexpr WORD EVENTLOG_SUCCESS = 0x0000;
inline constexpr WORD EVENTLOG_ERROR_TYPE = 0x0001;
inline constexpr WORD EVENTLOG_WARNING_TYPE = 0x0002;
inline constexpr WORD EVENTLOG_INFORMATION_TYPE = 0x0004;
inline constexpr WORD EVENTLOG_AUDIT_SUCCESS = 0x0008;
inline constexpr WORD EVENTLOG_AUDIT_FAILURE = 0x0010;

// The system log could not be reached (neither the journal nor the syslog socket answers).
inline constexpr DWORD ERROR_EVENTLOG_CANT_START = 1501;

// A handle for reporting events as `source_name`; null on failure, with the last error set:
// RPC_S_SERVER_UNAVAILABLE for a remote server, ERROR_INVALID_PARAMETER for a null or empty source
// name or a name that is not Unicode, or the error of opening the N7_EVENTLOG_FILE file
// (ERROR_ACCESS_DENIED, ERROR_PATH_NOT_FOUND, ...).
N7_EXPORT HANDLE RegisterEventSourceW(LPCWSTR server_name, LPCWSTR source_name);

// Releases the handle; FALSE with ERROR_INVALID_HANDLE for a handle that is not registered.
N7_EXPORT BOOL DeregisterEventSource(HANDLE event_log);

// Reports one event. `user_sid` is accepted and ignored. `strings` holds `string_count` texts
// (a null entry is reported as an empty string); `raw_data` holds `data_size` bytes (may be null
// when `data_size` is 0). FALSE on failure with the last error set: ERROR_INVALID_HANDLE,
// ERROR_INVALID_PARAMETER (a type that is not one of the event types, null arrays with a non-zero
// size or count, text that is not Unicode), ERROR_EVENTLOG_CANT_START, or the error of writing the
// file.
N7_EXPORT BOOL ReportEventW(HANDLE event_log, WORD type, WORD category, DWORD event_id,
                            PSID user_sid, WORD string_count, DWORD data_size, LPCWSTR* strings,
                            LPVOID raw_data);
