// n7util eventlog: registers event sources and reports events through the library's event log.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "args.h"
#include "command.h"
#include "n7utility/Utility/EventLog.h"
#include "n7utility/core/text.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/EventLog.h"
#include "n7utility/platform/system/Registry.h"

namespace n7util {
namespace {

// The event type CEventLog reports for an identifier: its top two bits are the severity.
WORD event_type(DWORD id) {
  constexpr WORD kTypes[] = {EVENTLOG_INFORMATION_TYPE, EVENTLOG_INFORMATION_TYPE,
                             EVENTLOG_WARNING_TYPE, EVENTLOG_ERROR_TYPE};
  return kTypes[id >> 30];
}

// Decimal, or hexadecimal after "0x", within 32 bits.
DWORD parse_event_id(std::string_view text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string digits(hex ? text.substr(2) : text);
  char* end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(digits.c_str(), &end, hex ? 16 : 10);
  if (digits.empty() || *end != '\0' || digits[0] == '-' || digits[0] == '+' || errno != 0 ||
      value > 0xFFFFFFFFull) {
    throw UsageError("invalid event id '" + std::string(text) + "'");
  }
  return static_cast<DWORD>(value);
}

std::vector<BYTE> parse_hex(std::string_view text) {
  const auto nibble = [&](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    throw UsageError("invalid hexadecimal data '" + std::string(text) + "'");
  };
  if (text.size() % 2 != 0) throw UsageError("hexadecimal data needs an even number of digits");
  std::vector<BYTE> bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    bytes.push_back(static_cast<BYTE>(nibble(text[i]) * 16 + nibble(text[i + 1])));
  }
  return bytes;
}

std::string destination() {
  const char* file = std::getenv("N7_EVENTLOG_FILE");  // NOLINT(concurrency-mt-unsafe)
  if (file != nullptr && *file != '\0') return file;
  const char* socket = std::getenv("N7_SYSLOG_SOCKET");  // NOLINT(concurrency-mt-unsafe)
  if (socket != nullptr && *socket != '\0') return std::string("the syslog socket ") + socket;
  return "the system log";
}

int report(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"data", true}, {"server", true}});
  if (parsed.operands().size() < 2) throw UsageError("report needs SOURCE and ID");
  const std::wstring source = n7core::to_wstring(parsed.operands()[0]);
  const DWORD id = parse_event_id(parsed.operands()[1]);
  std::vector<std::wstring> texts;
  for (std::size_t i = 2; i < parsed.operands().size(); ++i) {
    texts.push_back(n7core::to_wstring(parsed.operands()[i]));
  }
  if (texts.size() > 0xFFFF) throw UsageError("too many strings");
  std::vector<LPCWSTR> strings;
  strings.reserve(texts.size());
  for (const std::wstring& text : texts) strings.push_back(text.c_str());
  std::vector<BYTE> data = parse_hex(parsed.value("data").value_or(""));
  std::optional<std::wstring> server;
  if (const auto name = parsed.value("server")) server = n7core::to_wstring(*name);

  // The platform's calls rather than CEventLog's, which only trace their failures.
  HANDLE log = RegisterEventSourceW(server ? server->c_str() : nullptr, source.c_str());
  if (log == nullptr) {
    print_error("cannot register the event source (error " + std::to_string(GetLastError()) + ")");
    return kExitFailure;
  }
  const BOOL reported = ReportEventW(
      log, event_type(id), 0, id, nullptr, static_cast<WORD>(strings.size()),
      static_cast<DWORD>(data.size()), strings.data(), data.empty() ? nullptr : data.data());
  const DWORD error = GetLastError();
  DeregisterEventSource(log);
  if (reported == FALSE) {
    print_error("cannot report the event (error " + std::to_string(error) + ")");
    return kExitFailure;
  }
  std::cout << "event " << parsed.operands()[1] << " reported to " << destination() << '\n';
  return kExitOk;
}

int add_source(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"types", true}});
  parsed.expect_operands(2, 2);
  const auto types = static_cast<DWORD>(
      parse_integer(parsed.value("types").value_or("0"), 0, 0xFFFFFFFF, "type flags"));
  const DWORD error = AddEventSource(n7core::to_wstring(parsed.operands()[0]).c_str(),
                                     n7core::to_wstring(parsed.operands()[1]).c_str(), types);
  if (error != ERROR_SUCCESS) {
    print_error("cannot register the event source (error " + std::to_string(error) + ")");
    return kExitFailure;
  }
  return kExitOk;
}

int query(const std::vector<std::string_view>& args) {
  const Args parsed(args, {});
  parsed.expect_operands(1, 1);
  CString file;
  DWORD types = 0;
  const DWORD error =
      QueryEventMessageFile(n7core::to_wstring(parsed.operands()[0]).c_str(), file, &types);
  if (error != ERROR_SUCCESS) {
    print_error(error == ERROR_FILE_NOT_FOUND
                    ? "no such event source"
                    : "cannot read the event source (error " + std::to_string(error) + ")");
    return kExitFailure;
  }
  std::cout << "EventMessageFile: " << n7core::to_string(file.str()) << '\n'
            << "TypesSupported: " << types << '\n';
  return kExitOk;
}

// The group's subcommands; the shell completion lists them from here too.
constexpr Subcommand kSubcommands[] = {
    {"add-source", add_source}, {"query", query}, {"report", report}};

int run_eventlog(const std::vector<std::string_view>& args) {
  return run_subcommand(kSubcommands, args);
}

constexpr std::string_view kUsage =
    "Usage: n7util eventlog add-source SOURCE MESSAGE_FILE [--types FLAGS]\n"
    "       n7util eventlog query SOURCE\n"
    "       n7util eventlog report SOURCE ID [STRING...] [--data HEX] [--server NAME]\n"
    "\n"
    "  add-source  registers SOURCE in the registry with its message file and the event types\n"
    "              it reports (FLAGS: 1 error, 2 warning, 4 information; 0 or none: 7)\n"
    "  query       prints a registration: its message file and type flags\n"
    "  report      reports event ID (decimal, or hexadecimal after 0x) as SOURCE with the given\n"
    "              strings and raw data; the event type comes from the top two bits of ID\n"
    "              (00 and 01 information, 10 warning, 11 error). Only this machine can be named\n"
    "              as --server.\n"
    "\n"
    "Registrations live in the registry's HKEY_LOCAL_MACHINE store (N7_REGISTRY_DIR names its\n"
    "directory). Events go to the system log (the journal, else /dev/log; N7_SYSLOG_SOCKET names\n"
    "another syslog socket), or, when N7_EVENTLOG_FILE names a file, are appended to it as one\n"
    "JSON object per line.\n"
    "\n"
    "Exit status: 0 success, 1 failure, 2 usage error.\n";

}  // namespace

extern const Command eventlog_command = {"eventlog", "Registers event sources and reports events",
                                         kUsage, run_eventlog, kSubcommands};

}  // namespace n7util
