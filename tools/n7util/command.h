// The interface between n7util's main() and its command groups.
//
// A group is `n7util NAME [ARGS...]`. It lives in NAME.cpp, which defines
//
//   extern const n7util::Command NAME_command = {"NAME", "one-line summary", kUsage, Run,
//                                                kSubcommands};
//
// and is listed in tools/n7util/CMakeLists.txt. main() handles `--help` / `-h` among ARGS (it
// prints `usage`), a UsageError thrown by `run` (exit 2) and any other exception (exit 1), so a
// group only parses its arguments and does its work.
#pragma once

#include <span>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace n7util {

// n7util's exit codes.
enum ExitCode : int {
  kExitOk = 0,
  kExitFailure = 1,  // a negative answer, or the work failed
  kExitUsage = 2,    // a malformed command line (or, for some groups, unreadable input)
};

// One subcommand of a group: `n7util GROUP NAME [ARGS...]`.
struct Subcommand {
  std::string_view name;
  int (*run)(const std::vector<std::string_view>& args);  // given the arguments after NAME
};

struct Command {
  std::string_view name;
  std::string_view summary;  // one line, for `n7util --help`
  std::string_view usage;    // the whole help text, for `n7util NAME --help`
  // Runs the group on the arguments after its name; returns an ExitCode.
  int (*run)(const std::vector<std::string_view>& args);
  // The subcommands `run` dispatches on (none for a group without them), for the shell
  // completion (`n7util --commands`).
  std::span<const Subcommand> subcommands;
};

// Thrown for a malformed command line; main() reports it with a pointer to the group's help and
// exits with kExitUsage.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Runs the subcommand that names itself in args[0]; UsageError when it is missing or unknown.
int run_subcommand(std::span<const Subcommand> subcommands,
                   const std::vector<std::string_view>& args);

// Every group, in the order `n7util --help` lists them.
std::span<const Command* const> commands();

// Writes "n7util: MESSAGE" and a newline to standard error.
void print_error(std::string_view message);

}  // namespace n7util
