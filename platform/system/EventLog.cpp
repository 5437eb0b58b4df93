#include "n7utility/platform/system/EventLog.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "n7utility/platform/base/EscapedText.h"
#include "n7utility/platform/base/HandleTable_internal.h"
#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/EventLog_internal.h"
#include "n7utility/platform/system/LocalSystem_internal.h"

namespace n7platform::internal {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

std::string Hex(std::span<const BYTE> data) {
  std::string out;
  out.reserve(2 * data.size());
  for (const BYTE byte : data) {
    out += kHexDigits[byte >> 4];
    out += kHexDigits[byte & 0x0F];
  }
  return out;
}

// `text` as a JSON string, quotes included. The text is UTF-8 already, so only quotes,
// backslashes and control characters need escapes.
void AppendJsonString(std::string& out, std::string_view text) {
  out += '"';
  AppendEscaped(out, text, ControlEscape::kUnicode, '"');
  out += '"';
}

// UTC with milliseconds: "2026-01-31T12:00:00.123Z".
std::string IsoTime(std::chrono::system_clock::time_point time) {
  const auto since_epoch = time.time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since_epoch);
  const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(since_epoch - seconds);
  const std::time_t whole = seconds.count();
  std::tm parts{};
  gmtime_r(&whole, &parts);
  char text[40];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(millis.count()));
  return text;
}

// The syslog time stamp, "Nov  4 09:05:01". The month is named in English whatever locale the
// host installed (strftime's %b would follow it).
std::string SyslogStamp(const std::tm& parts) {
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "%s %2d %02d:%02d:%02d", kMonths[parts.tm_mon % 12],
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  return stamp;
}

int SyslogPriority(WORD type) {
  switch (type) {
    case EVENTLOG_ERROR_TYPE:
      return LOG_ERR;
    case EVENTLOG_WARNING_TYPE:
      return LOG_WARNING;
    case EVENTLOG_AUDIT_FAILURE:
      return LOG_NOTICE;
    default:
      return LOG_INFO;
  }
}

bool IsEventType(WORD type) {
  return type == EVENTLOG_SUCCESS || type == EVENTLOG_ERROR_TYPE || type == EVENTLOG_WARNING_TYPE ||
         type == EVENTLOG_INFORMATION_TYPE || type == EVENTLOG_AUDIT_SUCCESS ||
         type == EVENTLOG_AUDIT_FAILURE;
}

// Where a source's events go. Write returns ERROR_SUCCESS or the error to report; it may be
// called from several threads at once.
class EventSink {
 public:
  virtual ~EventSink() = default;
  virtual DWORD Write(const LogEvent& event) const = 0;
};

// Appends JSON lines to a file opened for appending: one write per line keeps lines whole.
class FileSink final : public EventSink {
 public:
  explicit FileSink(int fd) : fd_(fd) {}
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;
  ~FileSink() override { close(fd_); }

  DWORD Write(const LogEvent& event) const override {
    const std::string line = FormatJsonLine(event);
    ssize_t written = 0;
    do {
      written = write(fd_, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    if (written < 0) return Win32ErrorOfErrno(errno);
    // A short write only happens when the disk is full.
    return static_cast<std::size_t>(written) == line.size() ? ERROR_SUCCESS : ERROR_DISK_FULL;
  }

 private:
  const int fd_;
};

// The system log: the journal through its native protocol when it runs, else a syslog datagram on
// the syslog socket. A socket named by N7_SYSLOG_SOCKET is always written to as a syslog socket.
class SystemLogSink final : public EventSink {
 public:
  // `socket_path` empty: the journal or /dev/log, whichever runs when an event is reported.
  explicit SystemLogSink(std::string socket_path) : socket_path_(std::move(socket_path)) {}

  DWORD Write(const LogEvent& event) const override {
    bool sent = false;
    if (!socket_path_.empty()) {
      sent = WriteToSyslogSocket(socket_path_.c_str(), event);
    } else if (access(kJournalSocket, W_OK) == 0) {
      // The journal's client drops messages silently when the journal does not run; ask first.
      sent = WriteToJournal(event);
    } else {
      sent = WriteToSyslogSocket(kSyslogSocket, event);
    }
    return sent ? ERROR_SUCCESS : ERROR_EVENTLOG_CANT_START;
  }

 private:
  static constexpr char kJournalSocket[] = "/run/systemd/journal/socket";
  static constexpr char kSyslogSocket[] = "/dev/log";
  // How long a report waits for a syslog daemon whose queue is full before it fails. A daemon that
  // keeps up drains its queue in far less; one that hangs must not hang its clients.
  static constexpr timeval kSendTimeout{2, 0};

  static bool WriteToJournal(const LogEvent& event) {
    std::vector<std::string> fields = {
        "MESSAGE=" + FormatLogMessage(event),
        "PRIORITY=" + std::to_string(SyslogPriority(event.type)),
        "SYSLOG_IDENTIFIER=" + std::string(event.source),
        "N7_EVENT_ID=" + std::to_string(event.id),
        "N7_EVENT_TYPE=" + std::to_string(event.type),
        "N7_EVENT_CATEGORY=" + std::to_string(event.category),
    };
    if (!event.data.empty()) fields.push_back("N7_EVENT_DATA=" + Hex(event.data));
    std::vector<iovec> parts;
    parts.reserve(fields.size());
    for (std::string& field : fields) parts.push_back({field.data(), field.size()});
    return sd_journal_sendv(parts.data(), static_cast<int>(parts.size())) >= 0;
  }

  // One datagram to the syslog socket at `path`; false when no daemon takes it in time. A blocking
  // send, so that a busy daemon slows reports down instead of losing them, bounded by
  // kSendTimeout.
  static bool WriteToSyslogSocket(const char* path, const LogEvent& event) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof address.sun_path) return false;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    const std::string datagram = FormatSyslogDatagram(event, getpid());
    ssize_t sent = -1;
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kSendTimeout, sizeof kSendTimeout) == 0) {
      do {
        sent = sendto(fd, datagram.data(), datagram.size(), MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&address), sizeof address);
      } while (sent < 0 && errno == EINTR);
    }
    close(fd);
    return sent >= 0;
  }

  const std::string socket_path_;
};

struct EventSource {
  std::string name;  // UTF-8
  std::unique_ptr<EventSink> sink;
};

HandleTable<EventSource>& Sources() {
  static NoDestructor<HandleTable<EventSource>> sources(HandleKind::kEventSource);
  return *sources;
}

// The sink N7_EVENTLOG_FILE (or else N7_SYSLOG_SOCKET) chooses; null with the last error set when
// the file cannot be opened.
std::unique_ptr<EventSink> OpenSink() {
  // Read at each registration, so that a process (or a test) can switch backends between sources.
  const char* path = std::getenv("N7_EVENTLOG_FILE");  // NOLINT(concurrency-mt-unsafe)
  if (path == nullptr || *path == '\0') {
    const char* socket_path = std::getenv("N7_SYSLOG_SOCKET");  // NOLINT(concurrency-mt-unsafe)
    return std::make_unique<SystemLogSink>(socket_path != nullptr ? socket_path : "");
  }
  const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) {
    SetLastError(Win32ErrorOfErrno(errno));
    return nullptr;
  }
  return std::make_unique<FileSink>(fd);
}

// The strings of a report in UTF-8; nothing when one is not Unicode.
std::optional<std::vector<std::string>> Utf8Strings(const LPCWSTR* strings, WORD count) {
  std::vector<std::string> out;
  out.reserve(count);
  for (WORD i = 0; i < count; ++i) {
    std::optional<std::string> text = codec::ToUtf8(strings[i] != nullptr ? strings[i] : L"");
    if (!text) return std::nullopt;
    out.push_back(std::move(*text));
  }
  return out;
}

BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

std::string FormatJsonLine(const LogEvent& event) {
  std::string line = "{\"time\":\"" + IsoTime(event.time) + "\",\"source\":";
  AppendJsonString(line, event.source);
  line += ",\"type\":" + std::to_string(event.type) +
          ",\"category\":" + std::to_string(event.category) +
          ",\"id\":" + std::to_string(event.id) + ",\"strings\":[";
  for (std::size_t i = 0; i < event.strings.size(); ++i) {
    if (i > 0) line += ',';
    AppendJsonString(line, event.strings[i]);
  }
  line += "],\"data\":\"" + Hex(event.data) + "\"}\n";
  return line;
}

std::string FormatSyslogDatagram(const LogEvent& event, pid_t pid) {
  const std::time_t now = std::chrono::system_clock::to_time_t(event.time);
  std::tm parts{};
  localtime_r(&now, &parts);
  return "<" + std::to_string(LOG_USER | SyslogPriority(event.type)) + ">" + SyslogStamp(parts) +
         " " + std::string(event.source) + "[" + std::to_string(pid) +
         "]: " + FormatLogMessage(event);
}

std::string FormatLogMessage(const LogEvent& event) {
  char head[48];
  std::snprintf(head, sizeof head, "event 0x%08X, category %u", event.id,
                static_cast<unsigned>(event.category));
  std::string message = head;
  for (std::size_t i = 0; i < event.strings.size(); ++i) {
    message += i == 0 ? ": " : " | ";
    message += event.strings[i];
  }
  return message;
}

}  // namespace n7platform::internal

using n7platform::internal::EventSink;
using n7platform::internal::EventSource;
using n7platform::internal::Fail;
using n7platform::internal::LogEvent;
using n7platform::internal::Sources;

HANDLE RegisterEventSourceW(LPCWSTR server_name, LPCWSTR source_name) {
  if (!n7platform::internal::IsLocalMachine(server_name)) {
    SetLastError(RPC_S_SERVER_UNAVAILABLE);
    return nullptr;
  }
  std::optional<std::string> name;
  if (source_name != nullptr) name = n7platform::codec::ToUtf8(source_name);
  if (!name || name->empty()) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  std::unique_ptr<EventSink> sink = n7platform::internal::OpenSink();
  if (sink == nullptr) return nullptr;
  HANDLE handle = Sources().Insert(
      std::make_shared<EventSource>(EventSource{std::move(*name), std::move(sink)}));
  if (handle == nullptr) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return handle;
}

BOOL DeregisterEventSource(HANDLE event_log) {
  if (Sources().Remove(event_log) != nullptr) return TRUE;
  return Fail(ERROR_INVALID_HANDLE);
}

BOOL ReportEventW(HANDLE event_log, WORD type, WORD category, DWORD event_id, PSID /*user_sid*/,
                  WORD string_count, DWORD data_size, LPCWSTR* strings, LPVOID raw_data) {
  const auto source = Sources().Find(event_log);
  if (!source) return Fail(ERROR_INVALID_HANDLE);
  if (!n7platform::internal::IsEventType(type) || (strings == nullptr && string_count > 0) ||
      (raw_data == nullptr && data_size > 0)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  std::optional<std::vector<std::string>> texts =
      n7platform::internal::Utf8Strings(strings, string_count);
  if (!texts) return Fail(ERROR_INVALID_PARAMETER);
  const LogEvent event{source->name,
                       type,
                       category,
                       event_id,
                       std::move(*texts),
                       {static_cast<const BYTE*>(raw_data), data_size},
                       std::chrono::system_clock::now()};
  const DWORD error = source->sink->Write(event);
  return error == ERROR_SUCCESS ? TRUE : Fail(error);
}
