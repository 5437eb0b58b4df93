#include "n7utility/n7crypto/pbkdf2.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/n7crypto/hex_test.h"
#include "n7utility/n7crypto/hmac_internal.h"

namespace n7crypto {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytes_of(std::string_view text) { return Bytes(text.begin(), text.end()); }

using test_support::hex;
std::string hex(const Bytes& data) { return hex(data.data(), data.size()); }

std::string derive_hex(const Bytes& password, const Bytes& salt, int iterations, int length) {
  const Key key =
      pbkdf2_sha1(password.data(), password.size(), salt.data(), salt.size(), iterations, length);
  return hex(key.data(), key.size());
}

std::string openssl_hex(const Bytes& password, const Bytes& salt, int iterations, int length) {
  Bytes out(static_cast<std::size_t>(length));
  PKCS5_PBKDF2_HMAC(reinterpret_cast<const char*>(password.data()),
                    static_cast<int>(password.size()), salt.data(), static_cast<int>(salt.size()),
                    iterations, EVP_sha1(), length, out.data());
  return hex(out.data(), out.size());
}

Bytes random_bytes(std::mt19937& random, std::size_t size) {
  std::uniform_int_distribution<int> byte(0, 255);
  Bytes data(size);
  for (auto& b : data) b = static_cast<unsigned char>(byte(random));
  return data;
}

TEST(Pbkdf2Test, ReproducesTheRfc6070Vectors) {
  struct Vector {
    std::string_view password, salt;
    int iterations, length;
    std::string_view derived;
  };
  const Vector kVectors[] = {
      {"password", "salt", 1, 20, "0c60c80f961f0e71f3a9b524af6012062fe037a6"},
      {"password", "salt", 2, 20, "ea6c014dc72d6f8ccd1ed92ace1d41f0d8de8957"},
      {"password", "salt", 4096, 20, "4b007901b765489abead49d926f721d065a429c1"},
      {"password", "salt", 16777216, 20, "eefe3d61cd4da4e4e9945b3d6ba2158c2634e984"},
      {"passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096, 25,
       "3d2eec4fe41c849b80c8d83662c0e44a8b291a964cf2f07038"},
      {std::string_view("pass\0word", 9), std::string_view("sa\0lt", 5), 4096, 16,
       "56fa6aa75548099dcc37d7f03425e0c3"},
  };
  for (const Vector& v : kVectors) {
    EXPECT_EQ(derive_hex(bytes_of(v.password), bytes_of(v.salt), v.iterations, v.length), v.derived)
        << v.password << " / " << v.iterations;
  }
}

TEST(Pbkdf2Test, LengthsAndIterationsBelowOne) {
  const Bytes password = bytes_of("password"), salt = bytes_of("salt");
  const Key none = pbkdf2_sha1(password.data(), password.size(), salt.data(), salt.size(), 10, 0);
  EXPECT_EQ(none.size(), 0u);
  EXPECT_EQ(pbkdf2_sha1(password.data(), password.size(), salt.data(), salt.size(), 10, -5).size(),
            0u);
  // Fewer than one iteration is one: the result is U1 of each block.
  EXPECT_EQ(derive_hex(password, salt, 0, 20), "0c60c80f961f0e71f3a9b524af6012062fe037a6");
}

TEST(Pbkdf2Test, EqualsOpenSslOnRandomInputs) {
  std::mt19937 random(20240611);
  std::uniform_int_distribution<std::size_t> length(0, 100);
  std::uniform_int_distribution<int> iterations(1, 5000);
  std::uniform_int_distribution<int> out_length(1, 100);
  for (int round = 0; round < 40; ++round) {
    const Bytes password = random_bytes(random, length(random));
    const Bytes salt = random_bytes(random, length(random));
    const int rounds = iterations(random), size = out_length(random);
    ASSERT_EQ(derive_hex(password, salt, rounds, size), openssl_hex(password, salt, rounds, size))
        << "password " << password.size() << " B, salt " << salt.size() << " B, " << rounds
        << " iterations, " << size << " B";
  }
}

Bytes hmac_of(const Bytes& key, const Bytes& message) {
  Bytes out(EVP_MAX_MD_SIZE);
  unsigned int size = 0;
  static const unsigned char kNoKey = 0;  // OpenSSL refuses a null key, even of length 0
  HMAC(EVP_sha1(), key.empty() ? &kNoKey : key.data(), static_cast<int>(key.size()), message.data(),
       message.size(), out.data(), &size);
  out.resize(size);
  return out;
}

TEST(HmacTest, EqualsOpenSslForKeysAroundTheBlockSizeAndAcrossMessages) {
  std::mt19937 random(7);
  for (const std::size_t key_size : {0u, 1u, 20u, 63u, 64u, 65u, 100u, 200u}) {
    const Bytes key = random_bytes(random, key_size);
    impl::Hmac hmac(key.data(), key.size());
    for (const std::size_t message_size : {0u, 20u, 55u, 56u, 64u, 130u}) {
      const Bytes message = random_bytes(random, message_size);
      hmac.reset();
      hmac.update(message.data(), message_size / 3);
      hmac.update(message.data() + message_size / 3, message_size - message_size / 3);
      unsigned char out[impl::Hmac::kDigestSize];
      hmac.final(out);
      EXPECT_EQ(hex(out, sizeof out), hex(hmac_of(key, message)))
          << "key " << key_size << " B, message " << message_size << " B";
    }
  }
}

TEST(HmacTest, ChainedMacsEqualTheGeneralPathAndLeaveTheMessageInProgress) {
  const Bytes key = bytes_of("a key"), first = bytes_of("first half "), rest = bytes_of("rest");
  impl::Hmac hmac(key.data(), key.size());
  hmac.update(first.data(), first.size());
  Bytes u(20), t(20, 0x5A);
  for (std::size_t i = 0; i < u.size(); ++i) u[i] = static_cast<unsigned char>(i * 13);
  const Bytes u1 = hmac_of(key, u), u2 = hmac_of(key, u1);
  hmac.xor_chained_macs(u.data(), t.data(), 2);
  EXPECT_EQ(u, u2);
  for (std::size_t i = 0; i < t.size(); ++i) {
    EXPECT_EQ(t[i], 0x5A ^ u1[i] ^ u2[i]) << i;
  }

  hmac.update(rest.data(), rest.size());
  unsigned char out[20];
  hmac.final(out);
  EXPECT_EQ(hex(out, sizeof out), hex(hmac_of(key, bytes_of("first half rest"))));
}

}  // namespace
}  // namespace n7crypto
