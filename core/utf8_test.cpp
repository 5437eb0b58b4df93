#include "core/utf8.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "core/testing_internal.h"

namespace n7core {
namespace {

using test_support::thrown_error;

TEST(Utf8Test, DecodesEachLengthAtItsBoundaries) {
  const struct {
    std::string bytes;
    char32_t code_point;
    std::size_t length;
  } cases[] = {
      {"A", U'A', 1},
      {"\x7F", 0x7F, 1},
      {"\xC2\x80", 0x80, 2},
      {"\xDF\xBF", 0x7FF, 2},
      {"\xE0\xA0\x80", 0x800, 3},
      {"\xED\x9F\xBF", 0xD7FF, 3},
      {"\xEE\x80\x80", 0xE000, 3},
      {"\xF0\x90\x80\x80", 0x10000, 4},
      {"\xF4\x8F\xBF\xBFtrailing", 0x10FFFF, 4},
  };
  for (const auto& c : cases) {
    const Utf8Sequence sequence = decode_utf8(c.bytes);
    EXPECT_EQ(sequence.code_point, c.code_point) << c.bytes;
    EXPECT_EQ(sequence.length, c.length) << c.bytes;
  }
}

TEST(Utf8Test, InvalidSequencesNameTheOffendingByte) {
  const struct {
    std::string bytes;
    std::size_t offset;
    const char* problem;
  } cases[] = {
      {"\x80", 0, "unexpected continuation byte"},
      {"\xC1\xBF", 0, "overlong encoding"},
      {"\xED\xA0\x80", 0, "encoded surrogate"},
      {"\xF4\x90\x80\x80", 0, "code point above U+10FFFF"},
      {"\xE2\x82", 0, "truncated sequence"},
      {"\xF0\x9F\x98\x41", 3, "missing continuation byte"},
  };
  for (const auto& c : cases) {
    const Utf8Sequence sequence = decode_utf8(c.bytes);
    EXPECT_EQ(sequence.length, 0u) << c.problem;
    EXPECT_EQ(sequence.error_offset, c.offset) << c.problem;
    EXPECT_STREQ(sequence.problem, c.problem);
  }
}

TEST(Utf8Test, CheckThrowsAtTheFirstInvalidSequenceOnly) {
  check_utf8("");
  check_utf8("plain \xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80");
  const auto error = thrown_error([] { check_utf8("ok \xC3\xA9 \xE2\x28\xA1 \xFF"); });
  EXPECT_EQ(error.code, "error.n7core.string.invalidUtf8");
  EXPECT_EQ(error.message, "Invalid UTF-8 at byte 7: missing continuation byte");
}

}  // namespace
}  // namespace n7core
