// n7util demo: the library's main job end to end on the default setup, as a list of steps that
// each say what they do as they go and check that the library behaved as expected.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Utility/Authentication.h"
#include "Utility/Date.h"
#include "Utility/EventLog.h"
#include "Utility/RegistryKey.h"
#include "Utility/Scheduler.h"
#include "Utility/StringTable.h"
#include "Utility/ThreadPool.h"
#include "args.h"
#include "command.h"
#include "core/text.h"
#include "core/trace.h"
#include "platform/KernelObjects.h"
#include "platform/N7DateTime.h"
#include "platform/NoDestructor.h"
#include "srp_login.h"

namespace n7util {
namespace {

using SteadyClock = std::chrono::steady_clock;

// One step: writes what it does to `out`, reports what went wrong with print_error(), and
// returns whether the library behaved as expected.
struct DemoStep {
  std::string_view title;
  bool (*run)(std::ostream& out);
};

// ---- Scheduler ----

// The scheduler step's tasks, all on one callback object and one context. Ids follow the order of
// scheduling. All are scheduled within one second, so each falls due exactly its delay after the
// first; tasks due in the same second run in id order.
enum TaskId : unsigned long {
  kAtOnce = 1,         // ScheduleTaskForSec 0
  kMetered,            // ScheduleTaskMetered, period 2: at once, then again from its callback
  kAfterOneSecond,     // ScheduleTaskForSec 1
  kAtTime,             // ScheduleTaskAt now + 2 s
  kDescheduled,        // ScheduleTaskForSec 2, descheduled at once: never runs
  kAfterThreeSeconds,  // ScheduleTaskForSec 3
};

constexpr int kMeteredPeriod = 2;
constexpr auto kSchedulerTimeout = std::chrono::seconds(30);

// The runs in the order they must come: the second metered run is due 2 s after the first, in
// the same second as kAtTime, and has the smaller id.
constexpr unsigned long kExpectedRuns[] = {kAtOnce,  kMetered, kAfterOneSecond,
                                           kMetered, kAtTime,  kAfterThreeSeconds};

const char* describe(unsigned long id) {
  switch (id) {
    case kAtOnce:
      return "at once";
    case kMetered:
      return "metered";
    case kAfterOneSecond:
      return "after 1 s";
    case kAtTime:
      return "at now + 2 s";
    case kDescheduled:
      return "descheduled";
    case kAfterThreeSeconds:
      return "after 3 s";
    default:
      return "unknown task";
  }
}

struct Run {
  unsigned long id;
  double seconds;  // since the tasks were scheduled
};

std::string format_run(const Run& run) {
  char line[96];
  std::snprintf(line, sizeof line, "  +%.2f s  task %lu ran (%s)", run.seconds, run.id,
                describe(run.id));
  return line;
}

// The callback object: records every run; the metered task meters itself once more from inside
// its first run.
class DemoTasks final : public ASchedulerCallback {
 public:
  DemoTasks() : ASchedulerCallback("n7util demo") {}

  void MarkStart() {
    std::lock_guard lock(mutex_);
    start_ = SteadyClock::now();
  }

  // Waits until more than `seen` runs are recorded or `deadline` passes; returns the runs so far.
  std::vector<Run> WaitForMoreThan(std::size_t seen, SteadyClock::time_point deadline) {
    std::unique_lock lock(mutex_);
    runs_changed_.wait_until(lock, deadline, [&] { return runs_.size() > seen; });
    return runs_;
  }

 protected:
  void OnScheduledTask(void* context, unsigned long id) override {
    bool first_metered_run = false;
    {
      std::lock_guard lock(mutex_);
      const std::chrono::duration<double> elapsed = SteadyClock::now() - start_;
      runs_.push_back({id, elapsed.count()});
      first_metered_run = id == kMetered && ++metered_runs_ == 1;
    }
    // The scheduler holds this run back until a period after the previous one was due.
    if (first_metered_run) ScheduleTaskMetered(context, kMetered, kMeteredPeriod);
    runs_changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable runs_changed_;
  SteadyClock::time_point start_;
  std::vector<Run> runs_;
  int metered_runs_ = 0;
};

// Turns the scheduler's trace topic up so that its trace lines show, unless the user chose the
// trace levels with N7_TRACE. (Nothing in this process changes the environment, so getenv is safe.)
void show_scheduler_trace(std::ostream& out) {
  if (std::getenv("N7_TRACE") != nullptr) {  // NOLINT(concurrency-mt-unsafe)
    out << "  trace levels as N7_TRACE sets them\n";
    return;
  }
  n7trace::get_trace_mgr().topic_handle("N7Scheduler", 0, 41)->topic->set_trace_level(61);
  const char* trace_file = std::getenv("N7_TRACE_FILE");  // NOLINT(concurrency-mt-unsafe)
  out << "  trace topic N7Scheduler at level 61, to "
      << (trace_file != nullptr ? trace_file : "standard error") << '\n';
}

// Returns once the scheduler's clock has moved to a new second (giving up after 1.5 s), so that
// what is scheduled next lands within one second.
void wait_for_next_second() {
  const N7OS::CN7DateTime start = N7OS::CN7DateTime::now();
  for (int i = 0; i < 300 && N7OS::CN7DateTime::now() == start; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

// Schedules the tasks, then says what it did (output could block, and every call must land in
// the same second); false when the descheduled task does not behave.
bool schedule_tasks(DemoTasks& tasks, void* context, std::ostream& out) {
  tasks.ScheduleTaskForSec(context, kAtOnce, 0);
  tasks.ScheduleTaskMetered(context, kMetered, kMeteredPeriod);
  tasks.ScheduleTaskForSec(context, kAfterOneSecond, 1);
  tasks.ScheduleTaskAt(context, kAtTime, N7OS::CN7DateTime::now().add_seconds(2));
  tasks.ScheduleTaskForSec(context, kDescheduled, 2);
  const bool was_scheduled = tasks.IsScheduled(context, kDescheduled);
  tasks.DescheduleTask(context, kDescheduled);
  const bool still_scheduled = tasks.IsScheduled(context, kDescheduled);
  tasks.ScheduleTaskForSec(context, kAfterThreeSeconds, 3);

  out << "  task 1: ScheduleTaskForSec(0): runs at once\n"
         "  task 2: ScheduleTaskMetered(period 2): runs at once; its callback meters it again,\n"
         "          and the scheduler holds that run back until 2 s after the first\n"
         "  task 3: ScheduleTaskForSec(1)\n"
         "  task 4: ScheduleTaskAt(now + 2 s)\n"
         "  task 5: ScheduleTaskForSec(2), then DescheduleTask before it is due: must never run\n"
         "  task 6: ScheduleTaskForSec(3)\n";
  if (!was_scheduled || still_scheduled) {
    print_error("scheduler: task 5 was " + std::string(was_scheduled ? "" : "not ") +
                "pending after scheduling and " + (still_scheduled ? "" : "not ") +
                "pending after descheduling");
    return false;
  }
  return true;
}

// Prints the runs as they come until all expected runs came; false on timeout.
bool await_runs(DemoTasks& tasks, std::ostream& out) {
  const auto deadline = SteadyClock::now() + kSchedulerTimeout;
  std::vector<Run> runs;
  while (runs.size() < std::size(kExpectedRuns)) {
    std::vector<Run> now = tasks.WaitForMoreThan(runs.size(), deadline);
    for (std::size_t i = runs.size(); i < now.size(); ++i) out << format_run(now[i]) << std::endl;
    if (now.size() == runs.size()) {
      print_error("scheduler: only " + std::to_string(runs.size()) + " of " +
                  std::to_string(std::size(kExpectedRuns)) + " runs within " +
                  std::to_string(kSchedulerTimeout.count()) + " s");
      return false;
    }
    runs = std::move(now);
  }
  for (std::size_t i = 0; i < runs.size(); ++i) {
    if (runs[i].id != kExpectedRuns[i]) {
      print_error("scheduler: run " + std::to_string(i + 1) + " was task " +
                  std::to_string(runs[i].id) + ", expected task " +
                  std::to_string(kExpectedRuns[i]));
      return false;
    }
  }
  return true;
}

bool scheduler_step(std::ostream& out) {
  // Never destroyed: the last callback may still be returning when the step ends, and a callback
  // object must not be destroyed while one of its callbacks runs.
  static n7platform::NoDestructor<DemoTasks> tasks;
  static int context;  // names the tasks' context; the scheduler never dereferences it

  show_scheduler_trace(out);
  out << "  waiting for the clock's next second, to schedule all tasks within the same second\n";
  wait_for_next_second();
  tasks->MarkStart();
  if (!schedule_tasks(*tasks, &context, out)) return false;
  out << "  waiting for " << std::size(kExpectedRuns) << " runs (at most "
      << kSchedulerTimeout.count() << " s)" << std::endl;
  if (!await_runs(*tasks, out)) return false;
  out << "  all runs came in the expected order; task 5 never ran\n";
  return true;
}

// ---- Passwords ----

// One check of a password against the stored value, and the answer it must get.
struct PasswordCheck {
  const char* description;
  const wchar_t* user;
  const wchar_t* password;
  bool keypad;
  bool accepted;
};

bool password_step(std::ostream& out) {
  const std::wstring user = L"Operator", password = L"Night-Shift 7";
  const std::wstring stored = N7A::MakePassword(user, password);
  out << "  MakePassword(\"Operator\", \"Night-Shift 7\") stores " << n7core::to_string(stored)
      << "\n  (typed half, then the half of the keypad form "
      << n7core::to_string(N7A::KeyMap(password, false)) << ")\n";
  const PasswordCheck checks[] = {
      {"the password as typed", L"Operator", L"Night-Shift 7", false, true},
      {"the user ID in another case", L"OPERATOR", L"Night-Shift 7", false, true},
      {"the keypad digits, as from a telephone", L"operator", L"64448744387", true, true},
      {"a wrong password", L"Operator", L"night-shift 7", false, false},
      {"letters where the keypad needs digits", L"Operator", L"Night-Shift 7", true, false},
  };
  for (const PasswordCheck& check : checks) {
    const bool accepted = N7A::Validate(check.user, check.password, check.keypad, stored);
    out << "  Validate " << check.description << ": " << (accepted ? "accepted" : "rejected")
        << '\n';
    if (accepted != check.accepted) {
      print_error(std::string("passwords: ") + check.description + " was " +
                  (accepted ? "accepted" : "rejected"));
      return false;
    }
  }
  return true;
}

// ---- SRP login ----

const char* describe_outcome(SrpLogin::Outcome outcome) {
  switch (outcome) {
    case SrpLogin::Outcome::kAccepted:
      return "accepted, both sides hold the same session key";
    case SrpLogin::Outcome::kRefusedByServer:
      return "refused by the server (M1 does not prove the password)";
    case SrpLogin::Outcome::kRefusedByClient:
      return "refused by the client (M2 does not verify)";
  }
  return "unknown outcome";
}

// One login of `user` typing `password` against `blob`; false when it did not end as `expected`.
bool try_login(std::ostream& out, const std::string& user, const std::string& password,
               const std::string& blob, SrpLogin::Outcome expected) {
  SrpLogin login(user, blob);
  SrpLogin::Outcome outcome = login.run(password);
  if (outcome == SrpLogin::Outcome::kAccepted && !login.same_key()) {
    outcome = SrpLogin::Outcome::kRefusedByClient;
  }
  out << "  login as " << user << " with \"" << password << "\": " << describe_outcome(outcome)
      << '\n';
  if (outcome != expected) {
    print_error("login: expected \"" + std::string(describe_outcome(expected)) + "\"");
    return false;
  }
  return true;
}

bool login_step(std::ostream& out) {
  const std::string user = "Operator", password = "Night-Shift 7";
  const std::string blob = N7A::MdgM2(user, password);
  out << "  MdgM2 stores a new password blob for Operator: a fresh salt, the SRP password key\n"
         "  (PBKDF2, 1024 iterations) and the stored password value\n";
  return try_login(out, user, password, blob, SrpLogin::Outcome::kAccepted) &&
         try_login(out, user, "night-shift 7", blob, SrpLogin::Outcome::kRefusedByServer);
}

// ---- Dates ----

bool date_step(std::ostream& out) {
  CDate date(L"01/31/2016", L"MM/DD/YYYY", L"DD.MM.YYYY");
  out << "  \"01/31/2016\" read by MM/DD/YYYY: " << n7core::to_string(date) << ", a "
      << n7core::to_string(date.CDOW()) << ", day number " << date.Julian() << '\n';
  date.AddMonths(1);
  out << "  AddMonths(1) keeps the day within February of the leap year: "
      << n7core::to_string(date) << ", a " << n7core::to_string(date.CDOW()) << '\n';
  // 29 February 2016 was a Monday, day 2 of the week.
  if (date.Month() != 2 || date.Day() != 29 || date.Year() != 2016 || date.NDOW() != 2) {
    print_error("dates: 31 January 2016 plus one month gave " + n7core::to_string(date) +
                " (day of week " + std::to_string(date.NDOW()) + ")");
    return false;
  }
  return true;
}

// ---- Thread pool ----

constexpr unsigned long kPoolTimeoutMs = 10000;

// A pooled worker that adds the square of its input to a shared total; a negative input throws.
class SquaringWorker final : public APooledWorkerThread {
 public:
  SquaringWorker(CThreadPool& pool, char name, std::atomic<int>& total, std::atomic<int>& failures)
      : APooledWorkerThread(pool), name_(name), total_(total), failures_(failures) {}

  char name() const { return name_; }
  // Set before Continue(), which hands it over to the worker's thread.
  void set_input(int input) { input_ = input; }

 protected:
  unsigned int OnWork() override {
    if (input_ < 0) throw std::domain_error("no square of a negative input here");
    total_ += input_ * input_;
    return 0;
  }
  void OnException(CException* exception) override {
    ++failures_;
    APooledWorkerThread::OnException(exception);
  }

 private:
  const char name_;
  std::atomic<int> input_ = 0;
  std::atomic<int>& total_;
  std::atomic<int>& failures_;
};

// Selects every worker, so that all are known to be idle, and puts them back.
bool await_idle_workers(CThreadPool& pool, int count) {
  std::vector<APooledThread*> idle;
  for (int i = 0; i < count; ++i) {
    APooledThread* thread = pool.SelectThread(kPoolTimeoutMs);
    if (thread == nullptr) break;
    idle.push_back(thread);
  }
  for (APooledThread* thread : idle) pool.ReleaseThread(thread);
  if (idle.size() == static_cast<std::size_t>(count)) return true;
  print_error("thread pool: only " + std::to_string(idle.size()) + " of " + std::to_string(count) +
              " workers went idle");
  return false;
}

bool pool_step(std::ostream& out) {
  constexpr int kInputs[] = {1, 2, -3, 4, 5};
  std::atomic<int> total = 0;
  std::atomic<int> failures = 0;
  CThreadPool pool;
  for (char name : {'A', 'B'}) (new SquaringWorker(pool, name, total, failures))->Start();
  if (!await_idle_workers(pool, 2)) return false;
  out << "  two workers started and idle; the most recently idle one is selected first\n";
  for (int input : kInputs) {
    auto* worker = static_cast<SquaringWorker*>(pool.SelectThread(kPoolTimeoutMs));
    if (worker == nullptr) {
      print_error("thread pool: no worker became idle");
      return false;
    }
    out << "  input " << input << " -> worker " << worker->name() << std::endl;
    worker->set_input(input);
    worker->Continue();
  }
  if (!await_idle_workers(pool, 2)) return false;
  pool.Shutdown(kPoolTimeoutMs);
  out << "  sum of squares " << total << ", " << failures
      << " unit(s) failed and went to OnException; " << pool.QueryNumThreads()
      << " thread(s) left after Shutdown\n";
  if (total != 46 || failures != 1 || pool.QueryNumThreads() != 0) {
    print_error("thread pool: expected the sum 46, one failure and no thread left");
    return false;
  }
  return true;
}

// ---- Event log ----

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

// Reports a failed registry operation; false.
bool registry_failed(const char* what, const CRegistryKey& key) {
  print_error(std::string("registry: ") + what + " failed with error " +
              std::to_string(key.GetLastError()));
  return false;
}

bool registry_step(std::ostream& out) {
  CRegistryKey key;
  const LONG disposition =
      key.Create(HKEY_CURRENT_USER, L"n7util demo", 1, KEY_ALL_ACCESS, nullptr);
  if (disposition < 0) return registry_failed("creating a volatile key", key);
  out << "  HKCU\\n7util demo " << (disposition == 1 ? "created" : "opened")
      << " (volatile: gone after a restart)\n";
  const std::wstring greeting = L"hello";
  if (key.SetValue(L"Greeting", REG_SZ, reinterpret_cast<const BYTE*>(greeting.c_str()),
                   static_cast<DWORD>((greeting.size() + 1) * sizeof(wchar_t))) != 0)
    return registry_failed("writing a text", key);
  CString text;
  if (key.GetValue(L"GREETING", text) != 0) return registry_failed("reading the text", key);
  out << "  Greeting read back (name in another case): " << n7core::to_string(text.GetString())
      << '\n';

  HANDLE changed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  const DWORD count = 3;
  const bool notified =
      key.NotifyChange(REG_NOTIFY_CHANGE_LAST_SET, FALSE, changed) == 0 &&
      key.SetValue(L"Count", REG_DWORD, reinterpret_cast<const BYTE*>(&count), sizeof count) == 0 &&
      WaitForSingleObject(changed, 30000) == WAIT_OBJECT_0;
  CloseHandle(changed);
  if (!notified) return registry_failed("watching for a change", key);
  DWORD read = 0;
  if (key.GetValue(L"Count", read) != 0 || read != count)
    return registry_failed("reading the number", key);
  out << "  change notification signalled by writing Count = " << read << '\n';

  key.Close();
  CRegistryKey root;
  if (root.Open(HKEY_CURRENT_USER, L"", KEY_ALL_ACCESS) != 0 || root.DeleteKey(L"n7util demo") != 0)
    return registry_failed("deleting the key", root);
  out << "  key deleted\n";
  return true;
}

// ---- Resources ----

bool resources_step(std::ostream& out) {
  const CString text = CStringTable().Load(3);
  out << "  string 3 of the library's own string table, compiled into libn7utility.so:\n  \""
      << n7core::to_string(text.str()) << "\"\n";
  if (text.Find(L"A Win64 exception '0x%1!X!' has occurred.") != 0) {
    print_error("resources: the library's string 3 is missing or wrong");
    return false;
  }
  return true;
}

// ---- The demo ----

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
    "  event log  registers the source \"n7util demo\" in the registry, reports an event (to\n"
    "             the system log, or to the file N7_EVENTLOG_FILE names) and reads the\n"
    "             registration back (the registry store is in N7_REGISTRY_DIR when it is set)\n"
    "  resources  loads a string of the library's own string table from its resources\n"
    "\n"
    "The scheduler's trace lines go to standard error (or the file N7_TRACE_FILE names) unless\n"
    "N7_TRACE sets the trace levels.\n"
    "\n"
    "Exit status: 0 when every step behaved as expected, 1 when one did not.\n";

}  // namespace

extern const Command demo_command = {"demo", "Runs the library's main job end to end, step by step",
                                     kUsage, run_demo};

}  // namespace n7util
