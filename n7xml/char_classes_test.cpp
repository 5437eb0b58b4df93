#include "n7utility/n7xml/char_classes_internal.h"

#include <gtest/gtest.h>

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

TEST(CharClassesTest, ClassesAtRangeEdgesAndGaps) {
  const struct {
    char32_t c;
    std::uint16_t expected;
  } cases[] = {
      {U'\t', kWhiteSpace},
      {U'\r', kWhiteSpace},
      {U'\v', 0},
      {U'-', kHyphen},
      {U'.', kPeriod},
      {U':', kColon},
      {U'_', kUnderscore},
      {U'/', 0},
      {U'0', kDigit},
      {U'9', kDigit},
      {U'@', 0},
      {U'A', kLetter},
      {U'z', kLetter},
      {0xB7, kExtender},
      {0xD7, 0},
      {0xF7, 0},
      {0xFF, kLetter},
      {0x100, kLetter},
      {0x131, kLetter},
      {0x132, 0},
      {0x2D0, kExtender},
      {0x300, kCombining},
      {0x345, kCombining},
      {0x660, kDigit},
      {0x3007, kIdeographic},
      {0x4E00, kIdeographic},
      {0x9FA5, kIdeographic},
      {0x9FA6, 0},
      {0xAC00, kLetter},
      {0xD7A3, kLetter},
      {0xD7A4, 0},
      {0xFFFF, 0},
      {0x10000, 0},
      {0x10FFFF, 0},
  };
  for (const auto& c : cases)
    EXPECT_EQ(char_class(c.c), c.expected) << std::hex << static_cast<std::uint32_t>(c.c);
}

}  // namespace
}  // namespace n7xml::impl
