// n7util probe: the library's probes of the machine.
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "args.h"
#include "command.h"
#include "n7utility/Utility/SystemProbes.h"
#include "n7utility/core/text.h"

namespace n7util {
namespace {

// The one operand of a subcommand that takes exactly one.
std::wstring only_operand(const std::vector<std::string_view>& args) {
  const Args parsed(args, {});
  parsed.expect_operands(1, 1);
  return n7core::to_wstring(parsed.operands()[0]);
}

// Prints `yes` or `no` for the answer; a negative answer is exit status 1.
int answer(bool positive, std::string_view yes, std::string_view no) {
  std::cout << (positive ? yes : no) << '\n';
  return positive ? kExitOk : kExitFailure;
}

int temp(const std::vector<std::string_view>& args) {
  Args(args, {}).expect_operands(0, 0);
  CString directory;
  const bool found = GetValidTempDir(directory);
  std::cout << n7core::to_string(directory.str()) << '\n';
  if (!found) print_error("no writable temporary directory");
  return found ? kExitOk : kExitFailure;
}

int writable(const std::vector<std::string_view>& args) {
  return answer(IsWritableDir(CString(only_operand(args))), "writable", "not writable");
}

int service(const std::vector<std::string_view>& args) {
  return answer(IsServiceRunning(only_operand(args).c_str()) != 0, "running", "not running");
}

int dcom(const std::vector<std::string_view>& args) {
  const Args parsed(args, {});
  parsed.expect_operands(0, 1);
  if (parsed.operands().empty()) return answer(IsDCOMEnabled() != 0, "enabled", "disabled");
  const std::string_view setting = parsed.operands()[0];
  if (setting != "on" && setting != "off") throw UsageError("dcom takes 'on' or 'off'");
  if (DCOMEnables(setting == "on" ? 1 : 0) == 0) {
    print_error("cannot write the DCOM switch (does the key SOFTWARE\\Microsoft\\Ole exist?)");
    return kExitFailure;
  }
  return answer(IsDCOMEnabled() != 0, "enabled", "disabled");
}

// The group's subcommands; the shell completion lists them from here too.
constexpr Subcommand kSubcommands[] = {
    {"temp", temp}, {"writable", writable}, {"service", service}, {"dcom", dcom}};

int run_probe(const std::vector<std::string_view>& args) {
  return run_subcommand(kSubcommands, args);
}

constexpr std::string_view kUsage =
    "Usage: n7util probe temp\n"
    "       n7util probe writable DIR\n"
    "       n7util probe service NAME\n"
    "       n7util probe dcom [on|off]\n"
    "\n"
    "  temp      prints the temporary directory to use: the first of TMPDIR, TMP and TEMP if it\n"
    "            is writable, else /tmp; it ends in '/'\n"
    "  writable  whether a file can be created and written in DIR (the probe file is removed)\n"
    "  service   whether the systemd service NAME (the unit NAME.service) is running, starting,\n"
    "            stopping or resuming; 'not running' also when there is no service manager or\n"
    "            it does not answer within 5 seconds (asked on the system bus;\n"
    "            DBUS_SYSTEM_BUS_ADDRESS names another bus)\n"
    "  dcom      whether DCOM is switched on (EnableDCOM under HKEY_LOCAL_MACHINE\\SOFTWARE\\\n"
    "            Microsoft\\Ole is Y); with on or off, switches it first (the key must exist)\n"
    "\n"
    "Exit status: 0 a positive answer, 1 a negative answer or failure, 2 usage error.\n";

}  // namespace

extern const Command probe_command = {"probe",
                                      "Probes temporary directories, directories and services",
                                      kUsage, run_probe, kSubcommands};

}  // namespace n7util
