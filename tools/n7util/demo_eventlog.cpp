// n7util demo, the event log: a source registered, an event reported, the registration read back.

#include <cstdlib>
#include <string>

#include "command.h"
#include "demo_steps.h"
#include "n7utility/Utility/EventLog.h"
#include "n7utility/core/text.h"

namespace n7util {

bool eventlog_step(std::ostream& out) {
  const wchar_t* const source = L"n7util demo";
  const wchar_t* const message_file = L"/usr/share/n7utility/demo-messages";
  const DWORD added = AddEventSource(source, message_file, 0);
  if (added != ERROR_SUCCESS) {
    print_error("event log: AddEventSource failed with error " + std::to_string(added));
    return false;
  }
  const char* registry = std::getenv("N7_REGISTRY_DIR");  // NOLINT(concurrency-mt-unsafe)
  out << "  AddEventSource(\"n7util demo\") registered the source in the registry ("
      << (registry != nullptr ? registry : "the default store") << ")\n";

  CEventLog log(source);
  log.LogMessage(0x40000001u, 0, nullptr, 1, L"the demo reports an event");
  const char* file = std::getenv("N7_EVENTLOG_FILE");  // NOLINT(concurrency-mt-unsafe)
  out << "  LogMessage(0x40000001, \"the demo reports an event\"): information, to "
      << (file != nullptr ? file : "the system log") << '\n';

  CString stored;
  DWORD types = 0;
  const DWORD queried = QueryEventMessageFile(source, stored, &types);
  out << "  QueryEventMessageFile read back \"" << n7core::to_string(stored.str()) << "\", types "
      << types << '\n';
  if (queried != ERROR_SUCCESS || !(stored == message_file) || types != 7) {
    print_error("event log: the registration read back is not what was written (error " +
                std::to_string(queried) + ")");
    return false;
  }
  return true;
}

// ---- Registry ----

}  // namespace n7util
