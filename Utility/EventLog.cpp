#include "n7utility/Utility/EventLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <string>
#include <string_view>

#include "n7utility/core/error.h"
#include "n7utility/core/text.h"
#include "n7utility/core/trace.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/Registry.h"

namespace {

constexpr char kSourceFile[] = "Utility/EventLog";
constexpr std::int8_t kErrorLevel = 11;
constexpr int kErrorSubtype = 4;
constexpr std::int8_t kWarningLevel = 21;
constexpr int kWarningSubtype = 3;
constexpr DWORD kMaxVariableStrings = 16;

constexpr wchar_t kSourceKeyPrefix[] =
    L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\";
constexpr wchar_t kMessageFileValue[] = L"EventMessageFile";
constexpr wchar_t kTypesValue[] = L"TypesSupported";
constexpr DWORD kDefaultTypes =
    EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;
// The message file is read into a buffer of this many characters, terminator included.
constexpr std::size_t kMessageFileCapacity = 512;
constexpr char kAddLabel[] = "AddEventSource()";
constexpr char kQueryLabel[] = "QueryEventMessageFile()";

// The family's topic handle. Until the first call asks for the topic, it is the trace system's
// own. Every call stores the same handle, so a relaxed atomic is all the sharing needs.
n7trace::intTopicHdl* SystemTopic() noexcept {
  try {
    return n7trace::get_system_topic_handle();
  } catch (...) {
    return nullptr;  // no trace manager: the family traces nothing until it has its topic
  }
}

std::atomic<n7trace::intTopicHdl*> g_topic{SystemTopic()};

n7trace::intTopicHdl* Topic() {
  n7trace::intTopicHdl* topic = n7trace::get_trace_mgr().topic_handle("EventLog", 0, -127);
  g_topic.store(topic, std::memory_order_relaxed);
  return topic;
}

// Wide text for a trace argument: UTF-8, with "?" for what is not Unicode (a trace must not
// throw); null gives "".
std::string TraceText(const wchar_t* text) {
  try {
    return n7core::to_string(text);
  } catch (const n7core::ErrorException&) {
  }
  std::string out;
  for (; *text != L'\0'; ++text) {
    try {
      out += n7core::to_string(std::wstring_view(text, 1));
    } catch (const n7core::ErrorException&) {
      out += '?';
    }
  }
  return out;
}

WORD EventTypeOf(DWORD event_id) {
  switch (event_id >> 30) {
    case 2:
      return EVENTLOG_WARNING_TYPE;
    case 3:
      return EVENTLOG_ERROR_TYPE;
    default:  // success and informational
      return EVENTLOG_INFORMATION_TYPE;
  }
}

std::string Hex8(DWORD value) {
  char text[9];
  std::snprintf(text, sizeof text, "%08x", value);
  return text;
}

// The registry key of a source: the prefix and the name. False when the name is null or longer
// than the key path buffer allows (counted in UTF-16 units, as that buffer is).
bool SourceKeyPath(const wchar_t* source_name, std::wstring* path) {
  if (source_name == nullptr) return false;
  const std::wstring_view name(source_name);
  std::size_t utf16_units = 0;
  for (const wchar_t c : name) utf16_units += static_cast<std::uint32_t>(c) > 0xFFFF ? 2 : 1;
  if (utf16_units > kMaxEventSourceName) return false;
  *path = kSourceKeyPrefix;
  *path += name;
  return true;
}

// Traces a failure of one of the free functions and returns its error code.
DWORD TraceFailure(n7trace::intTopicHdl* topic, const char* label, const char* format,
                   const wchar_t* source_name, LSTATUS error) {
  const auto code = static_cast<DWORD>(error);
  N7_TRACE_MESSAGE(topic, kErrorLevel, kErrorSubtype, label, kSourceFile, format)
      << TraceText(source_name) << code;
  return code;
}

// Opens (`create` false) or creates the source's key; a name that does not fit is refused with
// ERROR_INVALID_PARAMETER before the registry is touched.
LSTATUS OpenSourceKey(const wchar_t* source_name, bool create, HKEY* key) {
  std::wstring path;
  if (!SourceKeyPath(source_name, &path)) return static_cast<LSTATUS>(ERROR_INVALID_PARAMETER);
  return create ? RegCreateKeyW(HKEY_LOCAL_MACHINE, path.c_str(), key)
                : RegOpenKeyW(HKEY_LOCAL_MACHINE, path.c_str(), key);
}

const BYTE* Bytes(const void* data) { return static_cast<const BYTE*>(data); }

}  // namespace

DWORD AddEventSource(const wchar_t* source_name, const wchar_t* message_file,
                     DWORD types_supported) {
  n7trace::intTopicHdl* topic = Topic();
  if (types_supported == 0) types_supported = kDefaultTypes;
  HKEY key = nullptr;
  LSTATUS error = OpenSourceKey(source_name, true, &key);
  if (error != ERROR_SUCCESS) {
    return TraceFailure(topic, kAddLabel,
                        "AddEventSource({}): Can't create event source registry key (error = {})",
                        source_name, error);
  }
  const std::wstring_view file(message_file != nullptr ? message_file : L"");
  error = RegSetValueExW(key, kMessageFileValue, 0, REG_EXPAND_SZ, Bytes(file.data()),
                         static_cast<DWORD>((file.size() + 1) * sizeof(wchar_t)));
  if (error != ERROR_SUCCESS) {
    RegCloseKey(key);
    return TraceFailure(topic, kAddLabel,
                        "AddEventSource({}): Can't set event message file (error = {})",
                        source_name, error);
  }
  error = RegSetValueExW(key, kTypesValue, 0, REG_DWORD, Bytes(&types_supported),
                         sizeof types_supported);
  RegCloseKey(key);
  if (error != ERROR_SUCCESS) {
    return TraceFailure(topic, kAddLabel,
                        "AddEventSource({}): Can't set event type flags (error = {})", source_name,
                        error);
  }
  return ERROR_SUCCESS;
}

DWORD QueryEventMessageFile(const wchar_t* source_name, CString& message_file,
                            DWORD* types_supported) {
  n7trace::intTopicHdl* topic = Topic();
  HKEY key = nullptr;
  LSTATUS error = OpenSourceKey(source_name, false, &key);
  if (error != ERROR_SUCCESS) {
    return TraceFailure(
        topic, kQueryLabel,
        "QueryEventMessageFile({}): Can't open event source registry key (error = {})", source_name,
        error);
  }
  wchar_t file[kMessageFileCapacity] = {};
  DWORD size = sizeof file;
  error = RegQueryValueExW(key, kMessageFileValue, nullptr, nullptr, reinterpret_cast<BYTE*>(file),
                           &size);
  if (error != ERROR_SUCCESS) {
    RegCloseKey(key);
    return TraceFailure(topic, kQueryLabel,
                        "QueryEventMessageFile({}): Can't get event message file (error = {})",
                        source_name, error);
  }
  // A value that fills the buffer without a terminator ends at the buffer's end.
  message_file = std::wstring(file, wcsnlen(file, size / sizeof(wchar_t)));
  if (types_supported != nullptr) {
    DWORD flags_size = sizeof *types_supported;
    error = RegQueryValueExW(key, kTypesValue, nullptr, nullptr,
                             reinterpret_cast<BYTE*>(types_supported), &flags_size);
  }
  RegCloseKey(key);
  if (error != ERROR_SUCCESS) {
    return TraceFailure(topic, kQueryLabel,
                        "QueryEventMessageFile({}): Can't get event type flags (error = {})",
                        source_name, error);
  }
  return ERROR_SUCCESS;
}

CEventLog::CEventLog(const wchar_t* source_name, const wchar_t* server_name)
    : m_strSourceName(source_name), m_hEventSource(nullptr) {
  n7trace::intTopicHdl* topic = Topic();
  m_hEventSource = RegisterEventSourceW(server_name, source_name);
  if (m_hEventSource != nullptr) return;
  const DWORD error = GetLastError();
  N7_TRACE_MESSAGE(topic, kErrorLevel, kErrorSubtype, "CEventLog::CEventLog()", kSourceFile,
                   "CEventLog({}, {}): Can't register event source (error = {})")
      << TraceText(source_name)
      << (server_name != nullptr ? TraceText(server_name) : std::string("<null>")) << error;
}

CEventLog::~CEventLog() {
  if (m_hEventSource != nullptr) DeregisterEventSource(m_hEventSource);
}

void CEventLog::LogMessage(DWORD event_id, DWORD data_size, LPVOID raw_data, DWORD string_count,
                           LPCWSTR* strings) {
  Log(event_id, 0, nullptr, data_size, raw_data, string_count, strings);
}

void CEventLog::LogMessage(DWORD event_id, DWORD data_size, LPVOID raw_data, DWORD string_count,
                           ...) {
  n7trace::intTopicHdl* topic = Topic();
  if (string_count > kMaxVariableStrings) {
    N7_TRACE_MESSAGE(topic, kWarningLevel, kWarningSubtype, "CEventLog::LogMessage()", kSourceFile,
                     "CEventLog::LogMessage(): Too many strings ({})")
        << string_count;
    string_count = kMaxVariableStrings;
  }
  LPCWSTR strings[kMaxVariableStrings] = {};
  va_list arguments;
  va_start(arguments, string_count);
  for (DWORD i = 0; i < string_count; ++i) {
    strings[i] = va_arg(arguments, LPCWSTR);  // NOLINT(clang-analyzer-valist.Uninitialized)
  }
  va_end(arguments);
  Log(event_id, 0, nullptr, data_size, raw_data, string_count, strings);
}

void CEventLog::Log(DWORD event_id, WORD category, PSID user_sid, DWORD data_size, LPVOID raw_data,
                    DWORD string_count, LPCWSTR* strings) {
  n7trace::intTopicHdl* topic = Topic();
  const WORD type = EventTypeOf(event_id);
  if (m_hEventSource == nullptr) return;
  if (ReportEventW(m_hEventSource, type, category, event_id, user_sid,
                   static_cast<WORD>(string_count), data_size, strings, raw_data) != FALSE) {
    return;
  }
  const DWORD error = GetLastError();
  N7_TRACE_MESSAGE(topic, kErrorLevel, kErrorSubtype, "CEventLog::Log()", kSourceFile,
                   "Log(0x{}): Can't report event (error = {})")
      << Hex8(event_id) << error;
}
