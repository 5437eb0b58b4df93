// Tests of the command-line parsing the command groups share.
#include "args.h"

#include <gtest/gtest.h>

#include <string>

#include "command.h"

namespace n7util {
namespace {

using Argv = std::vector<std::string_view>;

const std::initializer_list<OptionSpec> kOptions = {
    {"first-line", true}, {"uri", true}, {"quiet", false}};

// The message of the usage error that `action` throws, or "" when it throws none.
template <typename Action>
std::string usage_error_of(Action action) {
  try {
    action();
  } catch (const UsageError& error) {
    return error.what();
  }
  return "";
}

TEST(ArgsTest, OptionsAndOperandsInAnyOrder) {
  const Args args(Argv{"a.xml", "--first-line", "7", "--quiet", "--uri=file:///x", "-", "b"},
                  kOptions);
  EXPECT_EQ(args.value("first-line"), "7");
  EXPECT_EQ(args.value("uri"), "file:///x");
  EXPECT_TRUE(args.has("quiet"));
  EXPECT_EQ(args.value("quiet"), "");
  EXPECT_FALSE(args.value("nothing").has_value());
  EXPECT_EQ(args.operands(), (Argv{"a.xml", "-", "b"}));
}

TEST(ArgsTest, ValuesAndOperandsThatLookLikeOptions) {
  // A separate value may start with dashes; an inline value may be empty or hold '='.
  const Args values(Argv{"--uri", "--quiet", "--first-line=", "--uri=a=b"}, kOptions);
  EXPECT_EQ(values.value("uri"), "a=b");  // the last one given
  EXPECT_EQ(values.value("first-line"), "");
  EXPECT_FALSE(values.has("quiet"));

  const Args after_double_dash(Argv{"--quiet", "--", "--uri", "-x"}, kOptions);
  EXPECT_TRUE(after_double_dash.has("quiet"));
  EXPECT_FALSE(after_double_dash.has("uri"));
  EXPECT_EQ(after_double_dash.operands(), (Argv{"--uri", "-x"}));

  const Args negative(Argv{"-1", "--first-line", "-2", "-0.5"}, kOptions);
  EXPECT_EQ(negative.value("first-line"), "-2");
  EXPECT_EQ(negative.operands(), (Argv{"-1", "-0.5"}));
}

TEST(ArgsTest, MalformedCommandLinesAreUsageErrors) {
  const Argv bad[] = {
      {"--nope"}, {"-q"},         {"--quiet=yes"},       {"--uri"}, {"a", "--first-line"}, {"--=x"},
      {"a\xff"},  {"--uri=\xc3"}, {"--", "\xed\xa0\x80"}};
  for (const Argv& argv : bad) {
    EXPECT_THROW(Args(argv, kOptions), UsageError) << argv.front();
  }
}

TEST(ArgsTest, OperandCount) {
  const Args args(Argv{"a", "b"}, {});
  EXPECT_NO_THROW(args.expect_operands(2, 2));
  EXPECT_NO_THROW(args.expect_operands(0, 3));
  EXPECT_THROW(args.expect_operands(3, 4), UsageError);
  EXPECT_EQ(usage_error_of([&] { args.expect_operands(0, 1); }), "unexpected operand 'b'");
}

TEST(ArgsTest, ParseInteger) {
  EXPECT_EQ(parse_integer("42", 0, 100, "N"), 42);
  EXPECT_EQ(parse_integer("-5", -10, 10, "N"), -5);
  EXPECT_EQ(parse_integer("100", 0, 100, "N"), 100);
  for (const std::string_view bad :
       {"", "+1", " 1", "1 ", "1x", "0x10", "101", "-1", "99999999999999999999"}) {
    EXPECT_THROW(parse_integer(bad, 0, 100, "N"), UsageError) << '"' << bad << '"';
  }
  EXPECT_EQ(usage_error_of([] { parse_integer("x", 1, 9, "--first-line"); }),
            "--first-line must be a whole number from 1 to 9, not 'x'");
}

}  // namespace
}  // namespace n7util
