// Command-line parsing shared by n7util's command groups.
#include "args.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "command.h"
#include "n7utility/core/error.h"
#include "n7utility/core/text.h"

namespace n7util {
namespace {

const OptionSpec* find_option(std::initializer_list<OptionSpec> options, std::string_view name) {
  const auto* found = std::find_if(options.begin(), options.end(),
                                   [name](const OptionSpec& spec) { return spec.name == name; });
  return found == options.end() ? nullptr : found;
}

[[noreturn]] void throw_usage(std::string_view first, std::string_view second = {},
                              std::string_view third = {}) {
  std::string message(first);
  message.append(second).append(third);
  throw UsageError(message);
}

// Every argument becomes wide text somewhere, so one that is not UTF-8 is refused here, with its
// position, rather than deep inside a command.
void require_utf8(std::string_view arg, std::size_t index) {
  try {
    n7core::to_wstring(arg);
  } catch (const n7core::ErrorException&) {
    throw_usage("argument ", std::to_string(index + 1), " is not valid UTF-8");
  }
}

// "-" alone and negative numbers ("-1", "-0.5") are operands; options start with "--".
bool is_operand(std::string_view arg) {
  return arg == "-" || !arg.starts_with('-') || (arg.size() > 1 && arg[1] >= '0' && arg[1] <= '9');
}

}  // namespace

Args::Args(const std::vector<std::string_view>& args, std::initializer_list<OptionSpec> options) {
  bool options_ended = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string_view arg = args[i];
    require_utf8(arg, i);
    if (options_ended || is_operand(arg)) {
      operands_.push_back(arg);
      continue;
    }
    if (arg == "--") {
      options_ended = true;
      continue;
    }
    if (!arg.starts_with("--")) throw_usage("unknown option '", arg, "'");

    std::string_view name = arg.substr(2);
    std::optional<std::string_view> inline_value;
    if (const auto equals = name.find('='); equals != std::string_view::npos) {
      inline_value = name.substr(equals + 1);
      name = name.substr(0, equals);
    }
    const OptionSpec* spec = find_option(options, name);
    if (spec == nullptr) throw_usage("unknown option '--", name, "'");

    std::string_view value;
    if (!spec->takes_value) {
      if (inline_value) throw_usage("option '--", name, "' takes no value");
    } else if (inline_value) {
      value = *inline_value;
    } else if (i + 1 < args.size()) {
      require_utf8(args[i + 1], i + 1);
      value = args[++i];
    } else {
      throw_usage("option '--", name, "' needs a value");
    }
    options_.insert_or_assign(std::string(name), value);
  }
}

bool Args::has(std::string_view name) const { return options_.find(name) != options_.end(); }

std::optional<std::string_view> Args::value(std::string_view name) const {
  const auto found = options_.find(name);
  if (found == options_.end()) return std::nullopt;
  return found->second;
}

void Args::expect_operands(std::size_t min, std::size_t max) const {
  if (operands_.size() < min) throw_usage("missing operand");
  if (operands_.size() > max) throw_usage("unexpected operand '", operands_[max], "'");
}

std::int64_t parse_integer(std::string_view text, std::int64_t min, std::int64_t max,
                           std::string_view what) {
  std::int64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (text.empty() || error != std::errc() || stop != end || value < min || value > max) {
    throw UsageError(std::string(what) + " must be a whole number from " + std::to_string(min) +
                     " to " + std::to_string(max) + ", not '" + std::string(text) + "'");
  }
  return value;
}

int run_subcommand(std::span<const Subcommand> subcommands,
                   const std::vector<std::string_view>& args) {
  if (args.empty()) {
    std::string names;
    for (const Subcommand& subcommand : subcommands) {
      names.append(names.empty() ? "" : ", ").append(subcommand.name);
    }
    throw_usage("missing subcommand (", names, ")");
  }
  const auto found = std::find_if(subcommands.begin(), subcommands.end(),
                                  [&args](const Subcommand& s) { return s.name == args.front(); });
  if (found == subcommands.end()) throw_usage("unknown subcommand '", args.front(), "'");
  return found->run(std::vector<std::string_view>(args.begin() + 1, args.end()));
}

}  // namespace n7util
