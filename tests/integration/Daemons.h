// Real daemons started as children of a test: a syslog daemon and a message bus, each on a private
// socket in a temporary directory, and the processes around them. Every child is stopped and reaped
// when its object goes, so a test leaves no process behind.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "n7utility/platform/base/TempDir_test.h"

namespace n7test {

// How long a test waits for a daemon to become ready or to deliver what it was sent. Generous:
// the machine may be busy building, and the waits end as soon as the condition holds.
inline constexpr std::chrono::seconds kDaemonDeadline{60};

using n7platform::test_support::TempDir;

// A child process with its standard output on a pipe. Stop() (or the destructor) kills it and
// waits for it.
class ChildProcess {
 public:
  // Starts `argv` with `environment` ("NAME=value") added to this process's environment; throws
  // std::runtime_error when it cannot be started.
  explicit ChildProcess(const std::vector<std::string>& argv,
                        const std::vector<std::string>& environment = {});
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  // The next line of its output without the newline; nothing at end of output or after `timeout`.
  std::optional<std::string> ReadLine(std::chrono::milliseconds timeout);
  // Everything it writes until it exits, and its exit status (-1 when killed by a signal).
  std::pair<std::string, int> Finish();
  // Whether it has exited; reaps it if so.
  bool HasExited();
  void Signal(int signal) const;
  // Kills it (SIGKILL after SIGCONT, so that a stopped child dies too) and reaps it.
  void Stop();

 private:
  pid_t pid_ = -1;
  int output_ = -1;
  std::string buffered_;
};

// rsyslogd listening on DIR/log.sock and writing each message it receives to DIR/messages as one
// line: "SEVERITY FACILITY PROGRAMNAME|MESSAGE".
class SyslogDaemon {
 public:
  // One message as the daemon recorded it.
  struct Record {
    int severity;
    int facility;
    std::string identifier;
    std::string message;
  };

  explicit SyslogDaemon(const std::filesystem::path& directory);
  std::string socket_path() const { return (directory_ / "log.sock").string(); }
  // Waits until at least `count` records from clients (not the daemon's own) are written; all of
  // them, or what there is when the deadline passes. A partly written last line is left out.
  std::vector<Record> WaitForRecords(std::size_t count) const;
  ChildProcess& process() { return process_; }

 private:
  std::filesystem::path directory_;
  ChildProcess process_;
};

// dbus-daemon listening on a socket in DIR; address() is its address, ready for clients.
class MessageBus {
 public:
  explicit MessageBus(const std::filesystem::path& directory);
  const std::string& address() const { return address_; }
  ChildProcess& process() { return process_; }

 private:
  ChildProcess process_;
  std::string address_;
};

}  // namespace n7test
