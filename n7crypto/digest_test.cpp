#include "n7utility/n7crypto/digest.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>
#include <string_view>
#include <vector>

#include "n7utility/core/error.h"
#include "n7utility/core/testing_internal.h"
#include "n7utility/n7crypto/digest_internal.h"
#include "n7utility/n7crypto/errors.h"
#include "n7utility/n7crypto/hex_test.h"

namespace n7crypto {
namespace {

using test_support::hex;

// Feeds the message in pieces of `piece` bytes, so that digests spanning several updates are
// checked too.
template <typename Digest>
std::string digest_hex(std::string_view message, std::size_t piece) {
  Digest digest;
  for (std::size_t at = 0; at < message.size(); at += piece) {
    digest.update(message.data() + at, std::min(piece, message.size() - at));
  }
  unsigned char out[Digest::kDigestSize];
  digest.final(out);
  return hex(out, sizeof out);
}

struct Vector {
  std::string_view message;
  std::string_view digest;
};

TEST(Md5Test, ReproducesTheReferenceSuite) {
  const Vector kSuite[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const Vector& v : kSuite) {
    EXPECT_EQ(digest_hex<Md5>(v.message, 1000), v.digest) << v.message;
    EXPECT_EQ(digest_hex<Md5>(v.message, 7), v.digest) << v.message;
  }
}

TEST(Sha256Test, ReproducesTheStandardsExamples) {
  const Vector kExamples[] = {
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
  };
  for (const Vector& v : kExamples) {
    EXPECT_EQ(digest_hex<Sha256>(v.message, 1000), v.digest);
    EXPECT_EQ(digest_hex<Sha256>(v.message, 5), v.digest);
  }
}

TEST(ScopedDigesterTest, DigestsWithTheChosenAlgorithm) {
  impl::ScopedDigester sha1(EVP_sha1());
  EXPECT_EQ(sha1.size(), 20u);
  const unsigned char a[] = {'a'};
  sha1.update(a, 1);
  sha1.update("bc", 2);
  unsigned char out[32];
  sha1.final(out);
  EXPECT_EQ(hex(out, 20), "a9993e364706816aba3e25717850c26c9cd0d89d");

  impl::ScopedDigester sha256(EVP_sha256());
  EXPECT_EQ(sha256.size(), 32u);
  sha256.update("abc", 3);
  sha256.final(out);
  EXPECT_EQ(hex(out, 32), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(ScopedDigesterTest, FailedStartIsAnSrpError) {
  const auto error = n7core::test_support::thrown_error([] { impl::ScopedDigester none(nullptr); });
  EXPECT_EQ(error.code, "error.n7crypto.srp");
  EXPECT_EQ(error.message, "Error computing SRP values (hash digest init failed)");
}

TEST(ErrorCodesTest, CodesAreFoundByTheirNames) {
  const std::vector<std::pair<const char*, const n7core::ErrorCode*>> kSome = {
      {"error.n7crypto", &errors::root},
      {"error.n7crypto.key.size", &errors::key_size},
      {"error.n7crypto.randomProvider.arguments", &errors::random_provider_arguments},
      {"error.n7crypto.rsa.keystore.password", &errors::rsa_keystore_password},
      {"error.n7crypto.rsa.signature.verify", &errors::rsa_signature_verify},
      {"error.n7crypto.srp.invalidArg.hashAlgorithm", &errors::srp_invalid_arg_hash_algorithm},
      {"error.n7crypto.srp.protocolViolation", &errors::srp_protocol_violation},
  };
  for (const auto& [name, code] : kSome) {
    EXPECT_EQ(n7core::ErrorCode::find(name), code) << name;
    EXPECT_STREQ(code->name(), name);
  }
}

}  // namespace
}  // namespace n7crypto
