#include "n7utility/core/utf8.h"

#include <gtest/gtest.h>

#include <string>

#include "n7utility/core/testing_internal.h"

namespace n7core {
namespace {

using test_support::thrown_error;

// Decoding itself, every length and every malformed sequence, is checked through the text
// conversions, which share this decoder.
TEST(Utf8Test, CheckThrowsAtTheFirstInvalidSequenceOnly) {
  check_utf8("");
  check_utf8("plain \xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80");
  const auto error = thrown_error([] { check_utf8("ok \xC3\xA9 \xE2\x28\xA1 \xFF"); });
  EXPECT_EQ(error.code, "error.n7core.string.invalidUtf8");
  EXPECT_EQ(error.message, "Invalid UTF-8 at byte 7: missing continuation byte");
}

}  // namespace
}  // namespace n7core
