// The event log's parts, open to tests: an event as the backends receive it and its two written
// forms.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/platform/base/WindowsTypes.h"

namespace n7platform::internal {

struct LogEvent {
  std::string_view source;  // UTF-8, as every text here
  WORD type;
  WORD category;
  DWORD id;
  std::vector<std::string> strings;
  std::span<const BYTE> data;
  std::chrono::system_clock::time_point time;
};

// The line the file backend appends, with its newline.
std::string FormatJsonLine(const LogEvent& event);

// The datagram sent to a syslog socket as syslog(3) writes it, "<PRI>Mmm dd hh:mm:ss TAG[PID]:
// MSG", with the source as TAG and facility user.
std::string FormatSyslogDatagram(const LogEvent& event, pid_t pid);

// The message text of the system log: "event 0x%08X, category N: s1 | s2".
std::string FormatLogMessage(const LogEvent& event);

}  // namespace n7platform::internal
