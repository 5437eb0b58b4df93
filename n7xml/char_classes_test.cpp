#include "n7utility/n7xml/char_classes_internal.h"

#include <gtest/gtest.h>

#include <string_view>
#include <utility>

namespace n7xml::impl {
namespace {

TEST(CharClassesTest, TableIsSortedAndDisjointWithTheLatin1RangesFirst) {
  for (std::size_t i = 0; i < kCharRanges.size(); ++i) {
    EXPECT_LE(kCharRanges[i].first, kCharRanges[i].last) << i;
    if (i > 0) {
      EXPECT_LT(kCharRanges[i - 1].last, kCharRanges[i].first) << i;
    }
    EXPECT_EQ(kCharRanges[i].last < 0x100, i < kLatin1Ranges) << i;
  }
}

// Code points at the edges of the ranges and in the gaps between them, by the class expected.
TEST(CharClassesTest, ClassesAtRangeEdgesAndGaps) {
  const std::pair<std::uint16_t, std::u32string_view> cases[] = {
      {kWhiteSpace, U"\t\r"},
      {kHyphen, U"-"},
      {kPeriod, U"."},
      {kColon, U":"},
      {kUnderscore, U"_"},
      {kDigit, U"09\u0660"},
      {kLetter, U"Az\u00FF\u0100\u0131\uAC00\uD7A3"},
      {kExtender, U"\u00B7\u02D0"},
      {kCombining, U"\u0300\u0345"},
      {kIdeographic, U"\u3007\u4E00\u9FA5"},
      {0, U"\v/@\u00D7\u00F7\u0132\u9FA6\uD7A4\uFFFF\U00010000\U0010FFFF"},
  };
  for (const auto& [expected, code_points] : cases) {
    for (const char32_t c : code_points) {
      EXPECT_EQ(char_class(c), expected) << std::hex << static_cast<std::uint32_t>(c);
    }
  }
}

}  // namespace
}  // namespace n7xml::impl
