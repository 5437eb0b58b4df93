#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/Utility/Authentication_internal.h"
#include "n7utility/core/base64.h"
#include "n7utility/core/error.h"
#include "n7utility/core/testing_internal.h"
#include "n7utility/core/text.h"

namespace N7A {
namespace {

using Bytes = std::vector<unsigned char>;
using n7core::test_support::thrown_error;

struct Fields {
  Bytes salt;
  Bytes hash;
  int algorithm = -1;
  int iterations = -1;
  std::string legacy = "stale";
};

Fields crack(const std::string& blob) {
  Fields f;
  impl::crack_extended_password_blob(blob, &f.salt, &f.hash, &f.algorithm, &f.iterations,
                                     &f.legacy);
  return f;
}

Bytes sha256(const Bytes& data) {
  Bytes out(32);
  unsigned int size = 0;
  EVP_Digest(data.data(), data.size(), out.data(), &size, EVP_sha256(), nullptr);
  return out;
}

Bytes bytes_of(const std::string& text) { return Bytes(text.begin(), text.end()); }

// Every refusal of the properties reader is the same error.
std::string error_code_of(const std::string& props) {
  Bytes salt;
  int algorithm = 0;
  unsigned int iterations = 0;
  const auto error = thrown_error(
      [&] { impl::crack_public_password_props(props, &salt, &algorithm, &iterations); });
  EXPECT_EQ(error.message, "Ill-formatted password blob");
  EXPECT_EQ(error.function, "impl::crack_public_password_props()");
  return error.code;
}

TEST(PasswordBlob, MdgM2WritesAFreshPbkdf2Blob) {
  const std::string first = MdgM2("Alice", "s\xC3\xA9same");
  const std::string second = MdgM2("Alice", "s\xC3\xA9same");
  for (const char c : first) EXPECT_LT(static_cast<unsigned char>(c), 0x80);

  const Fields a = crack(first);
  const Fields b = crack(second);
  ASSERT_EQ(a.salt.size(), 32u);
  EXPECT_NE(a.salt[0], 0);
  EXPECT_NE(a.salt, b.salt);
  EXPECT_NE(a.hash, b.hash);
  EXPECT_EQ(a.algorithm, impl::kAlgorithmPbkdf2Sha256);
  EXPECT_EQ(a.iterations, 1024);
  const std::string legacy = n7core::to_string(MakePassword(L"Alice", L"s\u00E9same"));
  EXPECT_EQ(a.legacy, legacy);

  // x is PBKDF2 with HMAC-SHA-1 over the password's UTF-8 bytes, whatever the label says.
  Bytes expected(32);
  const std::string password = "s\xC3\xA9same";
  PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), a.salt.data(),
                    static_cast<int>(a.salt.size()), 1024, EVP_sha1(), 32, expected.data());
  EXPECT_EQ(a.hash, expected);

  std::string found;
  EXPECT_TRUE(LooksLikeExtendedPassword(first, &found));
  EXPECT_EQ(found, legacy);

  const CString wide = MdgM2(CString(L"Alice"), CString(L"s\u00E9same"));
  EXPECT_EQ(crack(n7core::to_string(wide.str())).legacy, legacy);
}

TEST(PasswordBlob, LegacyBlobHashesTheStoredValue) {
  const Bytes salt = {0x00, 0x01, 0xFE, 0xFF, 0x7F};
  const std::string legacy = n7core::to_string(MakePassword(L"bob", L"pw"));
  std::string blob;
  MakeLegacyExtendedPasswordBlob(salt, "bob", legacy, blob);
  const Fields f = crack(blob);
  EXPECT_EQ(f.salt, salt);
  EXPECT_EQ(f.algorithm, impl::kAlgorithmLegacy);
  EXPECT_EQ(f.iterations, 0);
  EXPECT_EQ(f.legacy, "");
  Bytes inner = sha256(bytes_of("bob:" + legacy));
  Bytes outer = salt;
  outer.insert(outer.end(), inner.begin(), inner.end());
  EXPECT_EQ(f.hash, sha256(outer));
  EXPECT_TRUE(LooksLikeExtendedPassword(blob, nullptr));

  MakeLegacyExtendedPasswordBlob(salt, "", legacy, blob);
  EXPECT_TRUE(crack(blob).hash.empty());
  std::string found = "stale";
  EXPECT_FALSE(LooksLikeExtendedPassword(blob, &found));
  EXPECT_EQ(found, "");
}

TEST(PasswordBlob, ReadersRefuseWhatIsNotABlob) {
  std::string found = "stale";
  EXPECT_FALSE(LooksLikeExtendedPassword("", &found));
  EXPECT_EQ(found, "");
  const std::string legacy = n7core::to_string(MakePassword(L"bob", L"pw"));
  EXPECT_FALSE(LooksLikeExtendedPassword(legacy, &found));
  EXPECT_FALSE(LooksLikeExtendedPassword(std::string("\0\xFF(", 3), nullptr));

  const auto error = thrown_error([] { crack(""); });
  EXPECT_EQ(error.code, "error.n7crypto.srp.invalidArg.blob");
  EXPECT_EQ(error.message, "Ill-formatted (empty) password blob");
  EXPECT_EQ(error.function, "impl::crack_extended_password_blob()");
}

TEST(PasswordBlob, DamagedBlobKeepsTheFieldsBeforeTheDamage) {
  const std::string blob = MdgM2("carol", "pw");
  const Fields whole = crack(blob);
  // Every cut keeps a prefix of the fields, each either complete or absent.
  for (std::size_t cut = 1; cut < blob.size(); ++cut) {
    const Fields f = crack(blob.substr(0, cut));
    EXPECT_TRUE(f.salt.empty() || f.salt == whole.salt) << cut;
    EXPECT_TRUE(f.hash.empty() || f.hash == whole.hash) << cut;
    EXPECT_TRUE(f.algorithm == 0 || f.algorithm == whole.algorithm) << cut;
    EXPECT_TRUE(f.iterations == 0 || f.iterations == whole.iterations) << cut;
    EXPECT_TRUE(f.legacy.empty() || f.legacy == whole.legacy) << cut;
    EXPECT_TRUE(f.hash.empty() || !f.salt.empty()) << cut;
  }
  // Bad base64 in the hash stops the reading there; unknown fields and unwanted ones are skipped.
  const Fields bad =
      crack(R"(([("x" ["y",1]),("salt" "AAE="),("passwd-hash" "A?"),("alg" "legacy")]))");
  EXPECT_EQ(bad.salt, (Bytes{0x00, 0x01}));
  EXPECT_TRUE(bad.hash.empty());
  EXPECT_EQ(bad.algorithm, 0);
  int algorithm = -1;
  impl::crack_extended_password_blob(blob, nullptr, nullptr, &algorithm, nullptr, nullptr);
  EXPECT_EQ(algorithm, impl::kAlgorithmPbkdf2Sha256);
  // The legacy field is trimmed; an unknown algorithm name counts as none.
  const Fields odd = crack(R"(([("legacy" L" \tab\r\n"),("alg" "Legacy")]))");
  EXPECT_EQ(odd.legacy, "ab");
  EXPECT_EQ(odd.algorithm, 0);
}

// Blobs may end in a group of six zero bits, which the general decoder refuses; any other bits
// left over are still refused.
TEST(PasswordBlob, Base64DecodingAcceptsALoneZeroGroup) {
  EXPECT_EQ(impl::decode_base64("A==="), Bytes{});
  EXPECT_THROW(impl::decode_base64("AAF="), n7core::ErrorException);
}

TEST(PublicPasswordProperties, LegacyFormIsExactAndReadsBack) {
  Bytes salt(16);
  for (std::size_t i = 0; i < salt.size(); ++i) salt[i] = static_cast<unsigned char>(i * 17);
  const std::string b64 = n7core::base64_encode(salt.data(), salt.size());
  ASSERT_EQ(b64.size(), 24u);
  const std::string props = MakeLegacyPublicPasswordProperties(salt.data(), 16);
  EXPECT_EQ(props, "<passwd-props>\r\n  <salt>" + b64 +
                       "</salt>\r\n  <alg>legacy</alg>\r\n</passwd-props>\r\n");
  EXPECT_EQ(impl::make_public_password_props(salt.data(), 16, impl::kAlgorithmPbkdf2Sha256, 1024),
            "<passwd-props>\r\n  <salt>" + b64 +
                "</salt>\r\n  <alg>PBKDF2-SHA256</alg>\r\n  <iterations>1024</iterations>\r\n"
                "</passwd-props>\r\n");

  Bytes read;
  int algorithm = -1;
  unsigned int iterations = 7;
  impl::crack_public_password_props(props, &read, &algorithm, &iterations);
  EXPECT_EQ(read, salt);
  EXPECT_EQ(algorithm, impl::kAlgorithmLegacy);
  EXPECT_EQ(iterations, 0u);
}

TEST(PublicPasswordProperties, ReadsTrimmedValuesExactly) {
  const auto read = [](const std::string& alg, const std::string& count) {
    int algorithm = -1;
    unsigned int iterations = 7;
    impl::crack_public_password_props("<passwd-props><alg>" + alg +
                                          "</alg><x><alg>legacy</alg></x>"
                                          "<iterations>" +
                                          count + "</iterations></passwd-props>",
                                      nullptr, &algorithm, &iterations);
    return std::make_pair(algorithm, iterations);
  };
  EXPECT_EQ(read(" PBKDF2-SHA256\r\n", "\t4096 "), std::make_pair(1, 4096u));
  EXPECT_EQ(read("pbkdf2-sha256", "4294967295"), std::make_pair(0, 4294967295u));
  EXPECT_EQ(read("legacy", "4294967296"), std::make_pair(2, 0u));
  EXPECT_EQ(read("legacy", "-1"), std::make_pair(2, 0u));
  EXPECT_EQ(read("legacy", "12a"), std::make_pair(2, 0u));
}

TEST(PublicPasswordProperties, MalformedTextIsABlobError) {
  EXPECT_EQ(error_code_of(""), "error.n7crypto.srp.invalidArg.blob");
  EXPECT_EQ(error_code_of("<passwd-props><salt>AA=A</salt></passwd-props>"),
            "error.n7crypto.srp.invalidArg.blob");
  EXPECT_EQ(error_code_of("<passwd-props><alg>legacy</alg>"), "error.n7crypto.srp.invalidArg.blob");
  EXPECT_EQ(error_code_of("<passwd-props></passwd-prop>"), "error.n7crypto.srp.invalidArg.blob");
  // Another root, or a document that does not start with its root, reads as nothing.
  Bytes salt = {1};
  int algorithm = -1;
  unsigned int iterations = 7;
  impl::crack_public_password_props("<other><salt>AQ==</salt><alg>legacy</alg></other>", &salt,
                                    &algorithm, &iterations);
  EXPECT_TRUE(salt.empty());
  EXPECT_EQ(algorithm, 0);
  EXPECT_EQ(iterations, 0u);
}

}  // namespace
}  // namespace N7A
