#include "n7utility/core/error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

#include "n7utility/core/safe_cast.h"
#include "n7utility/core/testing_internal.h"

namespace n7core {
namespace {

using test_support::thrown_error;
using ::testing::HasSubstr;

TEST(ErrorCodeTest, RegistryFindsCodesByNameForTheirLifetime) {
  EXPECT_EQ(ErrorCode::find("error.n7core.winerror"), &errors::winerror);
  EXPECT_EQ(ErrorCode::find("error.n7core.noSuchCode"), nullptr);
  {
    const ErrorCode local("error.test.local", true);
    const ErrorCode duplicate("error.test.local", true);
    const ErrorCode hidden("error.test.hidden", false);
    EXPECT_EQ(ErrorCode::find("error.test.local"), &local);
    EXPECT_EQ(ErrorCode::find("error.test.hidden"), nullptr);
  }
  EXPECT_EQ(ErrorCode::find("error.test.local"), nullptr);
}

TEST(ErrorInfoTest, ReferenceCountFollowsOwners) {
  RefCountPtr<const ErrorInfo> info =
      ErrorInfo::create(errors::winerror, "message", SourceLocation("f", "file", 1));
  EXPECT_EQ(info->ref_count(), 1u);
  {
    const RefCountPtr<const ErrorInfo> copy = info;
    EXPECT_EQ(info->ref_count(), 2u);
    const RefCountPtr<const ErrorInfo> moved = std::move(info);
    EXPECT_FALSE(info);  // NOLINT(bugprone-use-after-move): a moved-from pointer is empty
    EXPECT_EQ(moved->ref_count(), 2u);
  }
}

TEST(ErrorInfoTest, ExceptionKeepsItsErrorAliveAndDescribesIt) {
  try {
    throw_error(errors::winerror, "Something failed", SourceLocation("N7A::Foo", "Utility/X", 42));
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "error.n7core.winerror: Something failed [at N7A::Foo, Utility/X:42]");
    const auto& error = dynamic_cast<const ErrorException&>(e);
    EXPECT_EQ(error.info_ptr()->ref_count(), 1u);
    return;
  }
  FAIL() << "nothing thrown";
}

TEST(ErrorTest, WindowsErrorAndEmbeddedNul) {
  const auto winerror = thrown_error([] { throw_winerror(SourceLocation(), 14, true); });
  EXPECT_EQ(winerror.code, "error.n7core.winerror");
  EXPECT_EQ(winerror.message, "Windows error 14");
  EXPECT_EQ(thrown_error([] { raise_embedded_nul_error(); }).code,
            "error.n7core.string.embeddedNul");
}

TEST(SafeCastTest, KeepsValuesThatFit) {
  EXPECT_EQ(safe_cast<std::uint8_t>(255), 255);
  EXPECT_EQ(safe_cast<std::int8_t>(-128), -128);
  EXPECT_EQ(safe_cast<std::int64_t>(std::uint64_t{1} << 62), std::int64_t{1} << 62);
  EXPECT_EQ(safe_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()),
            std::uint64_t{std::numeric_limits<std::int64_t>::max()});
  EXPECT_EQ(safe_cast<std::int16_t>(std::int64_t{-300}), -300);
}

TEST(SafeCastTest, RejectsValuesThatWouldChange) {
  const struct {
    test_support::ThrownError error;
    const char* code;
    const char* message;
  } cases[] = {
      {thrown_error([] { safe_cast<std::uint32_t>(-1); }),
       "error.n7core.safeCast.negativeToUnsigned", "Value -1 is negative, not a valid uint32_t"},
      {thrown_error([] { safe_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::min()); }),
       "error.n7core.safeCast.negativeToUnsigned", "-9223372036854775808"},
      {thrown_error([] { safe_cast<std::uint8_t>(256); }), "error.n7core.safeCast.valueTruncated",
       "Value 256 does not fit in uint8_t"},
      {thrown_error([] { safe_cast<std::int32_t>(std::numeric_limits<std::int64_t>::min()); }),
       "error.n7core.safeCast.valueTruncated", "int32_t"},
      {thrown_error([] { safe_cast<std::int16_t>(std::uint64_t{1} << 32); }),
       "error.n7core.safeCast.valueTruncated", "Value 4294967296 does not fit in int16_t"},
      {thrown_error([] { safe_cast<std::int32_t>(std::uint32_t{0x80000000}); }),
       "error.n7core.safeCast.signReversal", "Value 2147483648 changes sign as int32_t"},
      {thrown_error([] { safe_cast<std::int64_t>(std::numeric_limits<std::uint64_t>::max()); }),
       "error.n7core.safeCast.signReversal", "int64_t"},
      {thrown_error([] { safe_cast<char>(std::uint8_t{200}); }),
       "error.n7core.safeCast.signReversal", "Value 200 changes sign as char"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.error.code, c.code) << c.message;
    EXPECT_THAT(c.error.message, HasSubstr(c.message));
  }
}

TEST(StringToTest, ReadsWholeDecimalTexts) {
  RefCountPtr<const ErrorInfo> error;
  std::int32_t value = 7;
  EXPECT_TRUE(string_to("-2147483648", value, error));
  EXPECT_EQ(value, std::numeric_limits<std::int32_t>::min());
  EXPECT_FALSE(error);

  for (const char* bad : {"", "12x", " 12", "+5", "2147483648", "-", "0x10"}) {
    value = 7;
    EXPECT_FALSE(string_to(bad, value, error)) << bad;
    EXPECT_EQ(value, 7) << bad;
    ASSERT_TRUE(error) << bad;
    EXPECT_STREQ(error->code().name(), "error.n7core.string.notANumber");
    EXPECT_EQ(error->message(), "'" + std::string(bad) + "' is not a number of type int32_t");
  }

  std::uint8_t byte = 0;
  EXPECT_FALSE(string_to(std::string_view("1\0", 2), byte, error));
  EXPECT_EQ(error->message(), "'1\\x00' is not a number of type uint8_t");
}

TEST(ErrorParamsTest, PlaceholdersAreFilledOnceAndUnknownOnesStay) {
  ErrorParams params;
  params.add("line", 3).add("uri", "{@line}").add("line", 4);
  EXPECT_EQ(*params.find("line"), "4");  // the later value hides the earlier
  EXPECT_EQ(params.find("pos"), nullptr);
  EXPECT_EQ(params.format("[line {@line}, uri <{@uri}>] {@pos} {@ {@line"),
            "[line 4, uri <{@line}>] {@pos} {@ {@line");
  EXPECT_EQ(params.format(""), "");
}

TEST(ErrorParamsTest, ComposerBuildsAndThrowsTheFilledMessage) {
  const ErrorCode code("error.test.composed", true);
  ErrorComposer composer(code, SourceLocation("f", "file", 7));
  composer.append("[line {@line}").append("]: bad").param("line", 12).param("sourcePos", 99);
  const RefCountPtr<const ErrorInfo> info = composer.info();
  EXPECT_EQ(info->message(), "[line 12]: bad");
  EXPECT_EQ(*info->params().find("sourcePos"), "99");
  EXPECT_EQ(thrown_error([&] { composer.raise(); }).message, "[line 12]: bad");
  const auto thrown = thrown_error(
      [&] { throw_error(code, "at {@x}", ErrorParams().add("x", "y"), SourceLocation()); });
  EXPECT_EQ(thrown.message, "at y");
}

TEST(ErrorInfoTest, FromExceptionKeepsCoreErrorsAndWrapsOthers) {
  const auto info_of = [](auto&& raise) {
    try {
      raise();
    } catch (...) {
      return ErrorInfo::from_exception(std::current_exception());
    }
    return RefCountPtr<const ErrorInfo>();
  };
  const RefCountPtr<const ErrorInfo> original =
      ErrorInfo::create(errors::winerror, "Windows error 5", SourceLocation());
  EXPECT_EQ(info_of([&] { ErrorException::throw_error(original); }).get(), original.get());
  const auto wrapped = info_of([] { throw std::runtime_error("disk on fire"); });
  EXPECT_STREQ(wrapped->code().name(), "error.n7core.exception");
  EXPECT_EQ(wrapped->message(), "disk on fire");
  EXPECT_STREQ(info_of([] { throw 42; })->code().name(), "error.n7core.unknownException");
}

}  // namespace
}  // namespace n7core
