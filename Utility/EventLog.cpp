#include "Utility/EventLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "core/error.h"
#include "core/text.h"
#include "core/trace.h"
#include "platform/KernelObjects.h"

namespace {

constexpr char kSourceFile[] = "Utility/EventLog";
constexpr std::int8_t kErrorLevel = 11;
constexpr int kErrorSubtype = 4;
constexpr std::int8_t kWarningLevel = 21;
constexpr int kWarningSubtype = 3;
constexpr DWORD kMaxVariableStrings = 16;

// The family's topic handle. Until the first call asks for the topic, it is the trace system's
// own. Every call stores the same handle, so a relaxed atomic is all the sharing needs.
std::atomic<n7trace::intTopicHdl*> g_topic{n7trace::get_system_topic_handle()};

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

}  // namespace

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
  for (DWORD i = 0; i < string_count; ++i) strings[i] = va_arg(arguments, LPCWSTR);
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
