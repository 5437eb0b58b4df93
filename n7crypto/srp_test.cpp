#include "n7utility/n7crypto/srp.h"

#include <gtest/gtest.h>
#include <openssl/bn.h>

#include <cctype>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "n7utility/core/testing_internal.h"
#include "n7utility/n7crypto/key_test.h"

namespace n7crypto {
namespace {

using n7core::test_support::thrown_error;
using Bytes = std::vector<unsigned char>;
using test_support::bytes_of;
using test_support::key_of;

Bytes from_hex(std::string_view text) {
  Bytes bytes;
  std::string digits;
  for (const char c : text) {
    if (std::isxdigit(static_cast<unsigned char>(c)) != 0) digits.push_back(c);
  }
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

// Hands out given bytes, so that a login's secrets a and b are known in advance.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): final, destroyed as itself
class FixedRandomProvider final : public IRandomProvider {
 public:
  explicit FixedRandomProvider(Bytes bytes) : bytes_(std::move(bytes)) {}
  void generate_random(unsigned char* buffer, int size) override {
    ASSERT_EQ(static_cast<std::size_t>(size), bytes_.size());
    std::memcpy(buffer, bytes_.data(), bytes_.size());
  }

 private:
  Bytes bytes_;
};

// Both sides of one login, for user "alice" with the given password key x and a 16-byte salt.
struct Login {
  Bytes user{'a', 'l', 'i', 'c', 'e'};
  Bytes salt = from_hex("BEB25379 D1A8581E B5A72767 3A2441EE");
  Bytes x;
  Key v, a, A, B, clientK, serverK, m1, m2;
  bool serverAccepted = false;
  bool clientAccepted = false;
};

Login run_login(const SrpContext& srp, Bytes x, IRandomProvider& aSource, IRandomProvider& bSource,
                std::size_t secretLength) {
  Login l;
  l.x = std::move(x);
  l.v = srp.create_password_verifier(l.x.data(), l.x.size());
  l.A = srp.client_create_challenge(l.a, aSource, secretLength);
  l.serverK = srp.server_create_key(l.v.data(), l.v.size(), l.A.data(), l.A.size(), l.B, bSource,
                                    secretLength);
  l.clientK = srp.client_create_key(l.user.data(), l.user.size(), l.x.data(), l.x.size(),
                                    l.salt.data(), l.salt.size(), l.A.data(), l.A.size(),
                                    l.B.data(), l.B.size(), l.a, l.m1);
  l.serverAccepted = srp.server_authenticate(l.user.data(), l.user.size(), l.salt.data(),
                                             l.salt.size(), l.A.data(), l.A.size(), l.B.data(),
                                             l.B.size(), l.m1.data(), l.m1.size(), l.serverK, l.m2);
  l.clientAccepted =
      l.serverAccepted && srp.client_verify(l.A.data(), l.A.size(), l.m1.data(), l.m1.size(),
                                            l.clientK, l.m2.data(), l.m2.size());
  return l;
}

Login run_login(const SrpContext& srp, std::size_t secretLength = 32) {
  IRandomProvider& random = *get_default_random_provider();
  return run_login(srp, from_hex("94B7555A ABE9127C C58CCF49 93DB6CF8 4D16C124"), random, random,
                   secretLength);
}

void expect_completed(const Login& l) {
  EXPECT_TRUE(l.serverAccepted);
  EXPECT_TRUE(l.clientAccepted);
  EXPECT_EQ(bytes_of(l.clientK), bytes_of(l.serverK));
}

TEST(SrpContextTest, ReproducesTheKnownSha1Login) {
  const SrpContext srp(SrpHashAlgorithm::kSha1);
  FixedRandomProvider aSource(
      from_hex("60975527 035CF2AD 1989806F 0407210B C81EDC04 E2762A56 AFD529DD DA2D4393"));
  FixedRandomProvider bSource(
      from_hex("E487CB59 D31AC550 471E81F0 0F6928E0 1DDA08E9 74A004F4 9E61F5D1 05284D20"));
  const Login l = run_login(srp, from_hex("94B7555A ABE9127C C58CCF49 93DB6CF8 4D16C124"), aSource,
                            bSource, 32);
  EXPECT_EQ(bytes_of(l.v), from_hex("7E273DE8 696FFC4F 4E337D05 B4B375BE B0DDE156 9E8FA00A "
                                    "9886D812 9BADA1F1 822223CA 1A605B53 0E379BA4 729FDC59 "
                                    "F105B478 7E5186F5 C671085A 1447B52A 48CF1970 B4FB6F84 "
                                    "00BBF4CE BFBB1681 52E08AB5 EA53D15C 1AFF87B2 B9DA6E04 "
                                    "E058AD51 CC72BFC9 033B564E 26480D78 E955A5E2 9E7AB245 "
                                    "DB2BE315 E2099AFB"));
  EXPECT_EQ(bytes_of(l.A), from_hex("61D5E490 F6F1B795 47B0704C 436F523D D0E560F0 C64115BB "
                                    "72557EC4 4352E890 3211C046 92272D8B 2D1A5358 A2CF1B6E "
                                    "0BFCF99F 921530EC 8E393561 79EAE45E 42BA92AE ACED8251 "
                                    "71E1E8B9 AF6D9C03 E1327F44 BE087EF0 6530E69F 66615261 "
                                    "EEF54073 CA11CF58 58F0EDFD FE15EFEA B349EF5D 76988A36 "
                                    "72FAC47B 0769447B"));
  EXPECT_EQ(bytes_of(l.B), from_hex("BD0C6151 2C692C0C B6D041FA 01BB152D 4916A1E7 7AF46AE1 "
                                    "05393011 BAF38964 DC46A067 0DD125B9 5A981652 236F99D9 "
                                    "B681CBF8 7837EC99 6C6DA044 53728610 D0C6DDB5 8B318885 "
                                    "D7D82C7F 8DEB75CE 7BD4FBAA 37089E6F 9C6059F3 88838E7A "
                                    "00030B33 1EB76840 910440B1 B27AAEAE EB4012B7 D7665238 "
                                    "A8E3FB00 4B117B58"));
  // SHA-1 of the premaster secret S.
  EXPECT_EQ(bytes_of(l.clientK), from_hex("017eefa1 cefc5c2e 626e2159 8987f31e 0f1b11bb"));
  expect_completed(l);
}

TEST(SrpContextTest, DefaultContextIsSha256OverThe1024BitGroup) {
  const SrpContext& srp = get_default_srp_context();
  EXPECT_EQ(&srp, &get_default_srp_context());
  EXPECT_EQ(srp.digest_size(), 32U);
  EXPECT_EQ(srp.modulus_length(), 128U);
  // A secret length below the digest size draws the digest size.
  const Login l = run_login(srp, 0);
  EXPECT_EQ(l.a.size(), 32U);
  EXPECT_EQ(l.A.size(), 128U);
  EXPECT_EQ(l.m1.size(), 32U);
  EXPECT_EQ(l.m2.size(), 32U);
  expect_completed(l);
}

TEST(SrpGroupTest, GroupsAreSafePrimesWithTheirGenerators) {
  struct Case {
    const SrpGroupParams& group;
    std::uint32_t bytes;
    unsigned char generator;
  };
  const Case cases[] = {{srp_group_1024(), 128, 2},
                        {srp_group_1536(), 192, 2},
                        {srp_group_2048(), 256, 2},
                        {srp_group_3072(), 384, 5}};
  BN_CTX* context = BN_CTX_new();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    ASSERT_EQ(c.group.modulusLength, c.bytes);
    ASSERT_EQ(c.group.generatorLength, 1U);
    EXPECT_EQ(c.group.generator[0], c.generator);
    BIGNUM* n = BN_bin2bn(c.group.modulus, static_cast<int>(c.bytes), nullptr);
    EXPECT_EQ(BN_num_bits(n), static_cast<int>(8 * c.bytes));
    EXPECT_EQ(BN_check_prime(n, context, nullptr), 1);
    BN_rshift1(n, n);
    EXPECT_EQ(BN_check_prime(n, context, nullptr), 1);
    BN_free(n);
    expect_completed(run_login(SrpContext(c.group)));
  }
  BN_CTX_free(context);
}

TEST(SrpContextTest, ConstructionRefusesBadGroupsAndHashes) {
  const Bytes longGenerator(128, 2);
  const SrpGroupParams group{srp_group_1024().modulus, 128, longGenerator.data(), 128};
  auto error = thrown_error([&] { const SrpContext srp(group); });
  EXPECT_EQ(error.code, "error.n7crypto.srp");
  EXPECT_EQ(error.message, "Modulus cannot be smaller than the generator");

  error = thrown_error([] { const SrpContext srp(static_cast<SrpHashAlgorithm>(3)); });
  EXPECT_EQ(error.code, "error.n7crypto.srp");
  EXPECT_EQ(error.message, "You must specify a known hash algorithm!");
}

TEST(SrpContextTest, FailedComputationsAreSrpErrors) {
  SrpContext moved;
  const SrpContext target(std::move(moved));
  const Bytes x(20, 7);
  // Using the moved-from context is the point.
  // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
  auto error = thrown_error([&] { moved.create_password_verifier(x.data(), x.size()); });
  EXPECT_EQ(error.code, "error.n7crypto.srp");
  EXPECT_EQ(error.message, "Error computing SRP values (no SRP impl available)");

  // Constant-time exponentiation needs an odd modulus.
  Bytes evenModulus(128, 0xff);
  evenModulus.back() = 0xfe;
  const unsigned char two = 2;
  const SrpContext even(SrpGroupParams{evenModulus.data(), 128, &two, 1});
  error = thrown_error([&] { even.create_password_verifier(x.data(), x.size()); });
  EXPECT_EQ(error.code, "error.n7crypto.srp");
  EXPECT_EQ(error.message, "Error computing SRP values");
}

// k times N, written in `width` bytes.
Bytes multiple_of_n(unsigned k, std::size_t width) {
  BIGNUM* value = BN_bin2bn(srp_group_1024().modulus, 128, nullptr);
  BN_mul_word(value, k);
  Bytes bytes(width);
  BN_bn2binpad(value, bytes.data(), static_cast<int>(width));
  BN_free(value);
  return bytes;
}

TEST(SrpContextTest, PeerValuesThatAreMultiplesOfNAreRefused) {
  // N written with a leading zero byte leaves room for 2N in the values' width.
  const Bytes wideModulus = multiple_of_n(1, 129);
  const unsigned char two = 2;
  const SrpContext srp(SrpGroupParams{wideModulus.data(), 129, &two, 1});
  Login l = run_login(srp);
  expect_completed(l);
  for (const unsigned k : {0U, 1U, 2U}) {
    SCOPED_TRACE(k);
    const Bytes value = multiple_of_n(k, 129);
    auto error = thrown_error([&] {
      srp.server_create_key(l.v.data(), l.v.size(), value.data(), value.size(), l.B,
                            *get_default_random_provider(), 32);
    });
    EXPECT_EQ(error.code, "error.n7crypto.srp.protocolViolation");
    EXPECT_EQ(error.message, "SRP (A%N==0) not permitted");
    EXPECT_EQ(error.function, "n7crypto::SrpContext::server_create_key()");
    error = thrown_error([&] {
      srp.client_create_key(l.user.data(), l.user.size(), l.x.data(), l.x.size(), l.salt.data(),
                            l.salt.size(), l.A.data(), l.A.size(), value.data(), value.size(), l.a,
                            l.m1);
    });
    EXPECT_EQ(error.code, "error.n7crypto.srp.protocolViolation");
    EXPECT_EQ(error.message, "SRP (B%N==0) not permitted");
    EXPECT_EQ(error.function, "n7crypto::SrpContext::client_create_key()");
    // A verifier from such an x would be 1, which a client passes with x = 0.
    error = thrown_error([&] { srp.create_password_verifier(value.data(), value.size()); });
    EXPECT_EQ(error.code, "error.n7crypto.srp.invalidArg");
    EXPECT_EQ(error.message, "SRP (x%N==0) not permitted");
  }
  EXPECT_EQ(thrown_error([&] { srp.create_password_verifier(nullptr, 0); }).message,
            "SRP (x%N==0) not permitted");
}

// Every width check, and the location each function's refusals carry.
TEST(SrpContextTest, ArgumentsOfTheWrongWidthAreRefusedBeforeAnyOutput) {
  const SrpContext& srp = get_default_srp_context();
  const Login l = run_login(srp);
  const Key short_a(31), shortK(31);
  const std::size_t ds = 32, ml = 128;
  struct Call {
    const char* function;
    std::function<void(Key& out)> run;
  };
  const auto client_key = [&](std::size_t user, std::size_t salt, const Key& a, std::size_t A,
                              std::size_t B) -> Call {
    return {"client_create_key", [&, user, salt, A, B](Key& out) {
              srp.client_create_key(l.user.data(), user, l.x.data(), l.x.size(), l.salt.data(),
                                    salt, l.A.data(), A, l.B.data(), B, a, out);
            }};
  };
  const auto client_verify = [&](std::size_t A, std::size_t M1, const Key& K,
                                 std::size_t M2) -> Call {
    return {"client_verify", [&, A, M1, M2](Key&) {
              srp.client_verify(l.A.data(), A, l.m1.data(), M1, K, l.m2.data(), M2);
            }};
  };
  const auto server_key = [&](std::size_t v, std::size_t A) -> Call {
    return {"server_create_key", [&, v, A](Key& out) {
              srp.server_create_key(l.v.data(), v, l.A.data(), A, out,
                                    *get_default_random_provider(), 32);
            }};
  };
  const auto server_auth = [&](std::size_t user, std::size_t salt, std::size_t A, std::size_t B,
                               std::size_t M1, const Key& K) -> Call {
    return {"server_authenticate", [&, user, salt, A, B, M1](Key& out) {
              srp.server_authenticate(l.user.data(), user, l.salt.data(), salt, l.A.data(), A,
                                      l.B.data(), B, l.m1.data(), M1, K, out);
            }};
  };
  const std::pair<const char*, Call> cases[] = {
      {"client key: 15-byte salt", client_key(5, 15, l.a, ml, ml)},
      {"client key: short a", client_key(5, 16, short_a, ml, ml)},
      {"client key: 127-byte A", client_key(5, 16, l.a, ml - 1, ml)},
      {"client key: 129-byte B", client_key(5, 16, l.a, ml, ml + 1)},
      {"client key: no user", client_key(0, 16, l.a, ml, ml)},
      {"client verify: 127-byte A", client_verify(ml - 1, ds, l.clientK, ds)},
      {"client verify: short M1", client_verify(ml, ds - 1, l.clientK, ds)},
      {"client verify: short K", client_verify(ml, ds, shortK, ds)},
      {"client verify: short M2", client_verify(ml, ds, l.clientK, ds - 1)},
      {"server key: 127-byte A", server_key(ml, ml - 1)},
      {"server key: 15-byte v", server_key(15, ml)},
      {"server auth: 15-byte salt", server_auth(5, 15, ml, ml, ds, l.serverK)},
      {"server auth: 127-byte A", server_auth(5, 16, ml - 1, ml, ds, l.serverK)},
      {"server auth: 127-byte B", server_auth(5, 16, ml, ml - 1, ds, l.serverK)},
      {"server auth: short K", server_auth(5, 16, ml, ml, ds, shortK)},
      {"server auth: short M1", server_auth(5, 16, ml, ml, ds - 1, l.serverK)},
      {"server auth: no user", server_auth(0, 16, ml, ml, ds, l.serverK)},
  };
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.first);
    Key out = key_of({1, 2, 3});
    const auto error = thrown_error([&] { entry.second.run(out); });
    EXPECT_EQ(error.code, "error.n7crypto.srp.invalidArg.size");
    EXPECT_EQ(error.function, std::string("n7crypto::SrpContext::") + entry.second.function + "()");
    EXPECT_EQ(error.message, "Unexpected argument data width");
    EXPECT_EQ(bytes_of(out), (Bytes{1, 2, 3}));
  }
}

TEST(SrpContextTest, ProofsOfAnotherKeyAreRejected) {
  const SrpContext& srp = get_default_srp_context();
  Login l = run_login(srp);
  // The client derived x from a wrong password: the server turns its M1 down.
  Key wrongM1;
  const Bytes wrongX(20, 1);
  srp.client_create_key(l.user.data(), l.user.size(), wrongX.data(), wrongX.size(), l.salt.data(),
                        l.salt.size(), l.A.data(), l.A.size(), l.B.data(), l.B.size(), l.a,
                        wrongM1);
  Key m2 = key_of({9});
  EXPECT_FALSE(srp.server_authenticate(l.user.data(), l.user.size(), l.salt.data(), l.salt.size(),
                                       l.A.data(), l.A.size(), l.B.data(), l.B.size(),
                                       wrongM1.data(), wrongM1.size(), l.serverK, m2));
  EXPECT_EQ(bytes_of(m2), Bytes{9});
  // An M2 off by one bit is turned down by the client.
  l.m2.data()[31] ^= 1;
  EXPECT_FALSE(srp.client_verify(l.A.data(), l.A.size(), l.m1.data(), l.m1.size(), l.clientK,
                                 l.m2.data(), l.m2.size()));
}

}  // namespace
}  // namespace n7crypto
