#include "n7utility/core/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "n7utility/core/testing_internal.h"

namespace n7core {
namespace {

using test_support::thrown_error;
using ::testing::HasSubstr;

TEST(TextTest, RoundTripsEveryEncodingLength) {
  // Boundaries of each UTF-8 length, either side of the surrogate block, and the last code point.
  const std::wstring wide = {L'a',   0x7F,   0x80,    0x7FF,    0x800, 0xD7FF,
                             0xE000, 0xFFFF, 0x10000, 0x10FFFF, L'\0', L'z'};
  const std::string utf8 =
      "a\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80"
      "\xF4\x8F\xBF\xBF" +
      std::string(1, '\0') + "z";
  EXPECT_EQ(to_string(wide), utf8);
  EXPECT_EQ(to_wstring(utf8), wide);
  EXPECT_EQ(from_utf16(to_utf16(wide)), wide);
}

TEST(TextTest, AsciiRunsOnBothSidesOfMultiByteText) {
  const std::string ascii(37, 'x');
  const std::string utf8 = ascii + "\xC3\xA9" + ascii + "\xE2\x82\xAC";
  const std::wstring wide = std::wstring(37, L'x') + L'\xE9' + std::wstring(37, L'x') + L'\x20AC';
  EXPECT_EQ(to_wstring(utf8), wide);
  EXPECT_EQ(to_string(wide), utf8);
  EXPECT_EQ(to_string(nullptr), "");
  EXPECT_EQ(to_string(L"plain"), "plain");
  EXPECT_EQ(to_string(4294967295u), "4294967295");
}

TEST(TextTest, SurrogatePairsInWideTextAreOneCodePoint) {
  const std::wstring paired = {L'<', 0xD83D, 0xDE00, L'>'};
  EXPECT_EQ(to_string(paired), "<\xF0\x9F\x98\x80>");
  EXPECT_EQ(to_utf16(paired), u"<\U0001F600>");
  EXPECT_EQ(to_utf16(std::wstring(1, 0x1F600)), u"\U0001F600");
  EXPECT_EQ(from_utf16(u"<\U0001F600>"), std::wstring({L'<', 0x1F600, L'>'}));
}

TEST(TextTest, InvalidUtf8NamesTheProblemAndItsOffset) {
  const struct {
    std::string bytes;
    const char* message;
  } cases[] = {
      {"\x80", "byte 0: unexpected continuation byte"},
      {"ab\xC0\x80", "byte 2: overlong encoding"},
      {"\xC1\xBF", "byte 0: overlong encoding"},
      {"\xE0\x9F\xBF", "byte 0: overlong encoding"},
      {"\xF0\x8F\xBF\xBF", "byte 0: overlong encoding"},
      {"\xED\xA0\x80", "byte 0: encoded surrogate"},
      {"\xED\xBF\xBF", "byte 0: encoded surrogate"},
      {"\xF4\x90\x80\x80", "byte 0: code point above U+10FFFF"},
      {"\xF5\x80\x80\x80", "byte 0: code point above U+10FFFF"},
      {"\xFF", "byte 0: invalid byte"},
      {"0123456789\xE2\x82", "byte 10: truncated sequence"},
      {"\xF0\x9F\x98", "byte 0: truncated sequence"},
      {"\xE2\x28\xA1", "byte 1: missing continuation byte"},
      {"\xF0\x9F\x98\x41", "byte 3: missing continuation byte"},
      {"\xC3\xA9\xA9", "byte 2: unexpected continuation byte"},
  };
  for (const auto& c : cases) {
    const auto error = thrown_error([&] { to_wstring(c.bytes); });
    EXPECT_EQ(error.code, "error.n7core.string.invalidUtf8") << c.message;
    EXPECT_THAT(error.message, HasSubstr(c.message));
  }
}

TEST(TextTest, UnpairedSurrogatesAndOutOfRangeWideValuesThrow) {
  const struct {
    std::wstring wide;
    const char* message;
  } cases[] = {
      {{0xD800}, "unit 0: unpaired surrogate 0xD800"},
      {{L'a', 0xD800, L'b'}, "unit 1: unpaired surrogate 0xD800"},
      {{0xDC00, 0xD800}, "unit 0: unpaired surrogate 0xDC00"},
      {{0xD800, 0xD800, 0xDC00}, "unit 0: unpaired surrogate"},
      {{0x110000}, "unit 0: value above U+10FFFF 0x110000"},
      {{static_cast<wchar_t>(-1)}, "value above U+10FFFF 0xFFFFFFFF"},
  };
  for (const auto& c : cases) {
    for (const auto& error :
         {thrown_error([&] { to_string(c.wide); }), thrown_error([&] { to_utf16(c.wide); })}) {
      EXPECT_EQ(error.code, "error.n7core.string.invalidUtf16") << c.message;
      EXPECT_THAT(error.message, HasSubstr(c.message));
    }
  }
  const auto error = thrown_error([] { from_utf16(u"x\xDC00"); });
  EXPECT_EQ(error.code, "error.n7core.string.invalidUtf16");
  EXPECT_THAT(error.message, HasSubstr("unit 1: unpaired surrogate 0xDC00"));
}

}  // namespace
}  // namespace n7core
