#include "n7utility/platform/base/TextCodec.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace n7platform::codec {
namespace {

TEST(TextCodecTest, ReplacementTakesOneByteOfEachMalformedSequenceAndKeepsTheRest) {
  struct Case {
    std::string utf8;
    std::wstring replaced;
  };
  const Case cases[] = {
      {"a\xC3\xA9z", L"a\u00E9z"},                        // valid text is unchanged
      {"a\xC0\xAFz", L"a\uFFFD\uFFFDz"},                  // overlong: lead and continuation
      {"\xED\xA0\x80!", L"\uFFFD\uFFFD\uFFFD!"},          // encoded surrogate
      {"\xE2\x82", L"\uFFFD\uFFFD"},                      // cut at the end of the text
      {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
      {"x\xFF\xE2\x82\xAC", L"x\uFFFD\u20AC"},            // a bad byte, then a good sequence
  };
  for (const Case& c : cases) {
    EXPECT_EQ(FromUtf8(c.utf8, Malformed::kReplace), c.replaced) << c.utf8;
    EXPECT_EQ(FromUtf8(c.utf8).has_value(), c.utf8 == "a\xC3\xA9z") << c.utf8;
  }
}

TEST(TextCodecTest, WideTextJoinsSurrogatePairsAndRefusesWhatIsNotUnicode) {
  EXPECT_EQ(ToUtf8(L"\xD83D\xDE00"), std::optional<std::string>("\xF0\x9F\x98\x80"));
  EXPECT_EQ(ToUtf8(L"\U0001F600"), std::optional<std::string>("\xF0\x9F\x98\x80"));
  for (const std::wstring& bad : {std::wstring(1, L'\xDE00'), std::wstring(L"a\xD83D"),
                                  std::wstring(1, static_cast<wchar_t>(0x110000)),
                                  std::wstring(1, static_cast<wchar_t>(-1))}) {
    EXPECT_EQ(ToUtf8(bad), std::nullopt);
    EXPECT_EQ(ToUtf8(bad, Malformed::kReplace)->find("\xEF\xBF\xBD"), bad.size() - 1);
  }
}

}  // namespace
}  // namespace n7platform::codec
