#include "Daemons.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX leaves it undeclared

namespace n7test {
namespace {

using Clock = std::chrono::steady_clock;

// The interval at which readiness and delivery are polled: only for conditions outside this
// process that offer no notification (a socket file appearing, a daemon's output file growing).
constexpr std::chrono::milliseconds kPollInterval{20};

void PollPause() {
  pollfd none{};
  poll(&none, 0, static_cast<int>(kPollInterval.count()));
}

void WriteFile(const std::filesystem::path& path, const std::string& text) {
  std::ofstream out(path);
  out << text;
  if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

// The configuration of a syslog daemon that needs no privileges: its own socket (no rate limit,
// so that bursts arrive whole), its own work directory, long messages, one line per message.
std::vector<std::string> RsyslogArguments(const std::filesystem::path& directory) {
  const std::string dir = directory.string();
  WriteFile(directory / "rsyslog.conf",
            "global(workDirectory=\"" + dir +
                "\" maxMessageSize=\"64k\")\n"
                "module(load=\"imuxsock\" SysSock.Use=\"off\")\n"
                "input(type=\"imuxsock\" Socket=\"" +
                dir +
                "/log.sock\" RateLimit.Interval=\"0\")\n"
                "template(name=\"record\" type=\"string\"\n"
                "         string=\"%syslogseverity% %syslogfacility% %programname%|%msg%\\n\")\n"
                "*.* action(type=\"omfile\" file=\"" +
                dir + "/messages\" template=\"record\")\n");
  return {N7_RSYSLOGD, "-n", "-f", dir + "/rsyslog.conf", "-i", dir + "/rsyslogd.pid"};
}

// A bus that lets anyone connect, own any name and call anything: only the test's processes reach
// its socket.
std::vector<std::string> DbusDaemonArguments(const std::filesystem::path& directory) {
  const std::string dir = directory.string();
  WriteFile(directory / "bus.conf",
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
            " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
            "<busconfig>\n"
            "  <type>custom</type>\n"
            "  <listen>unix:path=" +
                dir +
                "/system_bus_socket</listen>\n"
                "  <auth>EXTERNAL</auth>\n"
                "  <policy context=\"default\">\n"
                "    <allow user=\"*\"/>\n"
                "    <allow own=\"*\"/>\n"
                "    <allow send_destination=\"*\"/>\n"
                "    <allow receive_sender=\"*\"/>\n"
                "  </policy>\n"
                "</busconfig>\n");
  return {N7_DBUS_DAEMON, "--config-file=" + dir + "/bus.conf", "--nofork", "--nopidfile",
          "--print-address=1"};
}

std::optional<SyslogDaemon::Record> ParseRecord(const std::string& line) {
  std::istringstream in(line);
  SyslogDaemon::Record record;
  if (!(in >> record.severity >> record.facility)) return std::nullopt;
  in.get();
  std::string rest;
  std::getline(in, rest);
  const std::size_t bar = rest.find('|');
  if (bar == std::string::npos) return std::nullopt;
  record.identifier = rest.substr(0, bar);
  // The daemon keeps the space that follows "TAG:" as part of the message.
  record.message = rest.substr(bar + 1);
  if (record.message.starts_with(' ')) record.message.erase(0, 1);
  return record;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& argv,
                           const std::vector<std::string>& environment) {
  int pipe_ends[2];
  if (pipe2(pipe_ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  // The added entries first: a name that is also inherited takes the first value.
  std::vector<char*> env;
  env.reserve(environment.size() + 1);
  for (const std::string& entry : environment) env.push_back(const_cast<char*>(entry.c_str()));
  for (char** entry = environ; *entry != nullptr; ++entry) env.push_back(*entry);
  env.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_ends[1], STDOUT_FILENO);
  const int error = posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), env.data());
  posix_spawn_file_actions_destroy(&actions);
  close(pipe_ends[1]);
  output_ = pipe_ends[0];
  if (error != 0) {
    close(output_);
    throw std::runtime_error("cannot start " + argv[0] + ": " +
                             std::strerror(error));  // NOLINT(concurrency-mt-unsafe)
  }
}

ChildProcess::~ChildProcess() {
  Stop();
  close(output_);
}

std::optional<std::string> ChildProcess::ReadLine(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  for (;;) {
    const std::size_t newline = buffered_.find('\n');
    if (newline != std::string::npos) {
      std::string line = buffered_.substr(0, newline);
      buffered_.erase(0, newline + 1);
      return line;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd readable{output_, POLLIN, 0};
    if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0) {
      return std::nullopt;
    }
    char chunk[4096];
    const ssize_t got = read(output_, chunk, sizeof chunk);
    if (got <= 0) return std::nullopt;
    buffered_.append(chunk, static_cast<std::size_t>(got));
  }
}

std::pair<std::string, int> ChildProcess::Finish() {
  std::string output = std::move(buffered_);
  char chunk[4096];
  ssize_t got = 0;
  while ((got = read(output_, chunk, sizeof chunk)) > 0) {
    output.append(chunk, static_cast<std::size_t>(got));
  }
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return {output, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

bool ChildProcess::HasExited() {
  if (pid_ < 0) return true;
  int status = 0;
  if (waitpid(pid_, &status, WNOHANG) != pid_) return false;
  pid_ = -1;
  return true;
}

void ChildProcess::Signal(int signal) const {
  if (pid_ > 0) kill(pid_, signal);
}

void ChildProcess::Stop() {
  if (pid_ < 0) return;
  kill(pid_, SIGKILL);
  kill(pid_, SIGCONT);
  while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
}

SyslogDaemon::SyslogDaemon(const std::filesystem::path& directory)
    : directory_(directory), process_(RsyslogArguments(directory)) {
  const auto deadline = Clock::now() + kDaemonDeadline;
  while (!std::filesystem::exists(socket_path())) {
    if (process_.HasExited()) throw std::runtime_error("rsyslogd exited while starting");
    if (Clock::now() > deadline) throw std::runtime_error("rsyslogd did not open its socket");
    PollPause();
  }
}

std::vector<SyslogDaemon::Record> SyslogDaemon::WaitForRecords(std::size_t count) const {
  const auto deadline = Clock::now() + kDaemonDeadline;
  for (;;) {
    std::ifstream in(directory_ / "messages");
    std::vector<Record> records;
    std::string line;
    // A last line without its newline is still being written: it is left for the next round.
    while (std::getline(in, line) && !in.eof()) {
      std::optional<Record> record = ParseRecord(line);
      if (record && record->identifier != "rsyslogd") records.push_back(std::move(*record));
    }
    if (records.size() >= count || Clock::now() > deadline) return records;
    PollPause();
  }
}

MessageBus::MessageBus(const std::filesystem::path& directory)
    : process_(DbusDaemonArguments(directory)) {
  // The daemon prints its address once it accepts connections.
  std::optional<std::string> address = process_.ReadLine(kDaemonDeadline);
  if (!address || address->empty()) throw std::runtime_error("dbus-daemon did not start");
  address_ = *address;
}

}  // namespace n7test
