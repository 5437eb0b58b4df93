#include "n7utility/platform/base/EscapedText.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace n7platform {
namespace {

std::string Escaped(std::string_view text, ControlEscape form, char quote = '\0') {
  std::string out = "<";
  AppendEscaped(out, text, form, quote);
  return out;
}

TEST(EscapedTextTest, ControlsGetShortOrNumericEscapesAndEverythingElsePasses) {
  const std::string_view text("a\\b\tc\nd\re\x01\x1f\"\x7f\xC3\xA9");
  EXPECT_EQ(Escaped(text, ControlEscape::kHexByte), "<a\\\\b\\tc\\nd\\re\\x01\\x1F\"\x7f\xC3\xA9");
  EXPECT_EQ(Escaped(text, ControlEscape::kUnicode, '"'),
            "<a\\\\b\\tc\\nd\\re\\u0001\\u001f\\\"\x7f\xC3\xA9");
  EXPECT_EQ(Escaped(std::string_view("\0", 1), ControlEscape::kHexByte), "<\\x00");
}

}  // namespace
}  // namespace n7platform
