// n7util: the command-line tool over libn7utility. Finds the command group named by the first
// argument and runs it; handles help, version and errors the same way for every group.
#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"

namespace n7util {
namespace {

// Further forms start with "  or:", which is how help2man tells them apart for the manual page's
// synopsis.
constexpr std::string_view kOverviewUsage =
    "Usage: n7util COMMAND [ARGS...]\n"
    "  or:  n7util COMMAND --help\n"
    "  or:  n7util --help | --version\n";

void print_overview(std::ostream& out) {
  std::size_t width = 0;
  for (const Command* command : commands()) width = std::max(width, command->name.size());
  out << kOverviewUsage << "\nCommands:\n";
  for (const Command* command : commands()) {
    out << "  " << command->name << std::string(width - command->name.size() + 2, ' ')
        << command->summary << '\n';
  }
  out << "\nExit status: 0 success, 1 negative answer or failure, 2 usage error.\n";
}

// `n7util --commands`, for the shell completion and the manual page: one line per group, its
// name followed by its subcommands, separated by spaces. Not in the help: it is for scripts.
void print_commands(std::ostream& out) {
  for (const Command* command : commands()) {
    out << command->name;
    for (const Subcommand& subcommand : command->subcommands) out << ' ' << subcommand.name;
    out << '\n';
  }
}

const Command* find_command(std::string_view name) {
  const auto all = commands();
  const auto found = std::find_if(all.begin(), all.end(),
                                  [name](const Command* command) { return command->name == name; });
  return found == all.end() ? nullptr : *found;
}

bool is_help(std::string_view arg) { return arg == "--help" || arg == "-h"; }

// Whether the group's arguments ask for its help: "--help" or "-h" before any "--".
bool wants_help(const std::vector<std::string_view>& args) {
  const auto options_end = std::find(args.begin(), args.end(), "--");
  return std::any_of(args.begin(), options_end, is_help);
}

// Reports a usage error, pointing at the help of `command` (empty: the tool's own help).
int usage_error(std::string_view message, std::string_view command) {
  std::string help = "n7util ";
  if (!command.empty()) help.append(command).append(" ");
  print_error(std::string(message) + " (try '" + help + "--help')");
  return kExitUsage;
}

int run_command(const Command& command, const std::vector<std::string_view>& args) {
  if (wants_help(args)) {
    std::cout << command.usage;
    return kExitOk;
  }
  try {
    return command.run(args);
  } catch (const UsageError& error) {
    return usage_error(error.what(), command.name);
  } catch (const std::exception& error) {
    print_error(error.what());
    return kExitFailure;
  }
}

int run(const std::vector<std::string_view>& args) {
  if (args.empty()) return usage_error("missing command", "");
  const std::string_view first = args.front();
  if (is_help(first)) {
    print_overview(std::cout);
    return kExitOk;
  }
  if (first == "--commands") {
    print_commands(std::cout);
    return kExitOk;
  }
  if (first == "--version") {
    std::cout << "n7util " << N7UTIL_VERSION << '\n';
    return kExitOk;
  }
  if (first.starts_with('-')) return usage_error("unknown option '" + std::string(first) + "'", "");
  const Command* command = find_command(first);
  if (command == nullptr) return usage_error("unknown command '" + std::string(first) + "'", "");
  return run_command(*command, std::vector<std::string_view>(args.begin() + 1, args.end()));
}

}  // namespace

void print_error(std::string_view message) { std::cerr << "n7util: " << message << std::endl; }

}  // namespace n7util

int main(int argc, char** argv) {
  std::vector<std::string_view> args;
  for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
  int status = n7util::run(args);
  // Output that could not be written (a full disk, a closed pipe) is a failure, not a success.
  if (!std::cout.flush() && status == n7util::kExitOk) {
    n7util::print_error("cannot write to standard output");
    status = n7util::kExitFailure;
  }
  return status;
}
