// n7util demo: the library's main job end to end on the default setup, one step per service.

#include <iostream>
#include <iterator>
#include <string_view>
#include <vector>

#include "args.h"
#include "command.h"
#include "demo_steps.h"

namespace n7util {
namespace {

// One step: writes what it does to `out`, reports what went wrong with print_error(), and
// returns whether the library behaved as expected.
struct DemoStep {
  std::string_view title;
  bool (*run)(std::ostream& out);
};

constexpr DemoStep kSteps[] = {
    {"scheduler: timed tasks on the process-wide dispatch thread", scheduler_step},
    {"passwords: a stored password value and its checks", password_step},
    {"login: an SRP-6a login against a freshly stored password blob", login_step},
    {"dates: a date read from text, a month added, its day of the week", date_step},
    {"thread pool: units of work handed to two pooled workers", pool_step},
    {"registry: a volatile key, typed values and a change notification", registry_step},
    {"event log: a source registered, an event reported, the registration read back",
     eventlog_step},
    {"resources: a string of the library's own string table", resources_step},
    {"error pools: a module's error texts, and a code it never defined", errorpool_step},
};

int run_demo(const std::vector<std::string_view>& args) {
  Args(args, {}).expect_operands(0, 0);
  std::cout << "n7util demo: the library's services on the default setup, step by step\n";
  const std::size_t count = std::size(kSteps);
  for (std::size_t i = 0; i < count; ++i) {
    std::cout << '\n' << '[' << i + 1 << '/' << count << "] " << kSteps[i].title << std::endl;
    if (!kSteps[i].run(std::cout)) return kExitFailure;
  }
  std::cout << "\nn7util demo: every step behaved as expected\n";
  return kExitOk;
}

constexpr std::string_view kUsage =
    "Usage: n7util demo\n"
    "\n"
    "Runs the library's main job end to end on the default setup, one step per service, saying\n"
    "what each step does as it goes and checking that the library behaves as expected:\n"
    "  scheduler  schedules tasks at a time, after delays, at once, metered, and one that is\n"
    "             descheduled before it is due; prints each run with the seconds since they\n"
    "             were scheduled and checks they come in the expected order (about 5 s)\n"
    "  passwords  stores a user's password value and checks passwords against it: as typed,\n"
    "             with the user ID in another case, as keypad digits, and two that must fail\n"
    "  login      stores a new password blob and runs an SRP-6a login against it, client and\n"
    "             server side, with the right password (accepted) and a wrong one (refused)\n"
    "  dates      reads 31 January 2016 from text, adds a month (the day becomes the 29th) and\n"
    "             names the day of the week\n"
    "  pool       hands five units of work to two pooled workers, one unit throwing, and shuts\n"
    "             the pool down\n"
    "  registry   creates a volatile key, writes and reads typed values and waits for a change\n"
    "             notification (the registry store is in N7_REGISTRY_DIR when it is set)\n"
    "  event log  registers the source \"n7util demo\" in the registry, reports an event (to\n"
    "             the system log, or to the file N7_EVENTLOG_FILE names) and reads the\n"
    "             registration back\n"
    "  resources  loads a string of the library's own string table from its resources\n"
    "  errors     fills a module's error pool, reads a message back and shows the message\n"
    "             of a code the module never defined (on standard error)\n"
    "\n"
    "The scheduler's trace lines go to standard error (or the file N7_TRACE_FILE names) unless\n"
    "N7_TRACE sets the trace levels.\n"
    "\n"
    "Exit status: 0 when every step behaved as expected, 1 when one did not.\n";

}  // namespace

extern const Command demo_command = {
    "demo", "Runs the library's main job end to end, step by step", kUsage, run_demo, {}};

}  // namespace n7util
