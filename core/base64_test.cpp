#include "n7utility/core/base64.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "n7utility/core/testing_internal.h"

namespace n7core {
namespace {

using test_support::thrown_error;

std::string decode_to_string(std::string_view text) {
  const std::vector<unsigned char> bytes = base64_decode(text);
  return std::string(bytes.begin(), bytes.end());
}

TEST(Base64Test, TablesAreInversesOverTheStandardAlphabet) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  EXPECT_EQ(std::string(TransformHelperBase64::sm_fromBinaryTable, 64), alphabet);
  for (int c = 0; c < 128; ++c) {
    const unsigned char value = TransformHelperBase64::sm_toBinaryTable[c];
    const auto position = alphabet.find(static_cast<char>(c));
    if (position != std::string::npos) {
      EXPECT_EQ(value, position) << c;
    } else {
      EXPECT_EQ(value, c == '=' ? 128 : 255) << c;
    }
  }
}

TEST(Base64Test, StandardVectorsBothWays) {
  const std::pair<std::string, std::string> vectors[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
  };
  for (const auto& [plain, encoded] : vectors) {
    EXPECT_EQ(base64_encode(plain.data(), plain.size()), encoded);
    EXPECT_EQ(decode_to_string(encoded), plain);
  }
  EXPECT_EQ(decode_to_string("Zm8"), "fo");  // padding is optional
  EXPECT_EQ(decode_to_string("Zg==="), "f");

  std::vector<unsigned char> every_byte(256);
  for (std::size_t i = 0; i < every_byte.size(); ++i) every_byte[i] = static_cast<unsigned char>(i);
  EXPECT_EQ(base64_decode(base64_encode(every_byte.data(), every_byte.size())), every_byte);
}

TEST(Base64Test, BadCharactersAndPaddingAreInvalid) {
  for (const char* text : {"Zm9v*", "Zm 9v", "Zm9\xC3\xA9", "Zg=a", "Zg==Zg==", "Zm\x7F"}) {
    EXPECT_EQ(thrown_error([&] { base64_decode(text); }).code,
              "error.n7core.base64.invalidCharacter")
        << text;
  }
  EXPECT_EQ(thrown_error([] { base64_decode("Zm9v*"); }).message,
            "Invalid Base64 character '*' (code 42)");
  EXPECT_EQ(thrown_error([] { TransformHelperBase64::check_padding_char('A'); }).code,
            "error.n7core.base64.invalidCharacter");
  EXPECT_EQ(thrown_error([] { TransformHelperBase64::check_padding_char('='); }).code, "");
}

TEST(Base64Test, TextEndingInsideAByteIsTruncated) {
  // A lone 6-bit group, then non-zero bits left after the last whole byte.
  for (const char* text : {"Z", "Zm9vY", "Zm9vY===", "Zh==", "Zm9="}) {
    EXPECT_EQ(thrown_error([&] { base64_decode(text); }).code,
              "error.n7core.base64.truncatedSequence")
        << text;
  }
}

}  // namespace
}  // namespace n7core
