// Command-line parsing shared by n7util's command groups.
//
// Options are long ("--name"); an option that takes a value is given as "--name VALUE" or
// "--name=VALUE". Options and operands may come in any order; "--" ends the options, and "-" alone
// is an operand (standard input, by convention), and so is a negative number. Every argument must
// be UTF-8. Every mistake is a UsageError.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace n7util {

// An option a command accepts: its name without the dashes, and whether it takes a value.
struct OptionSpec {
  std::string_view name;
  bool takes_value = false;
};

class Args {
 public:
  // Parses `args` against `options`; throws UsageError for an unknown option, a missing value or
  // a value given to an option that takes none.
  Args(const std::vector<std::string_view>& args, std::initializer_list<OptionSpec> options);

  // Whether the option was given.
  bool has(std::string_view name) const;
  // The option's value; the last one when it was given more than once.
  std::optional<std::string_view> value(std::string_view name) const;
  const std::vector<std::string_view>& operands() const { return operands_; }

  // Throws UsageError unless there are between `min` and `max` operands.
  void expect_operands(std::size_t min, std::size_t max) const;

 private:
  std::map<std::string, std::string_view, std::less<>> options_;  // name -> value ("" for flags)
  std::vector<std::string_view> operands_;
};

// Parses a whole decimal integer in [min, max], with an optional leading '-'; throws UsageError
// naming `what` otherwise.
std::int64_t parse_integer(std::string_view text, std::int64_t min, std::int64_t max,
                           std::string_view what);

}  // namespace n7util
