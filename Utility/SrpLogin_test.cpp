// Whole SRP logins through the N7A functions, their refusals, and many logins at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/core/GlobalLocale_test.h"
#include "n7utility/core/base64.h"
#include "n7utility/core/testing_internal.h"
#include "n7utility/core/text.h"
#include "n7utility/n7crypto/key.h"
#include "n7utility/n7crypto/srp.h"

namespace N7A {
namespace {

using Bytes = std::vector<unsigned char>;
using n7core::test_support::thrown_error;
using n7crypto::Key;

Bytes bytes_of(const Key& key) { return Bytes(key.data(), key.data() + key.size()); }

Key key_of(const Bytes& bytes) {
  Key key(bytes.size());
  std::copy(bytes.begin(), bytes.end(), key.data());
  return key;
}

// Both sides of one login, as the values travel between them.
struct Login {
  Key a, clientK, serverK;
  Bytes A, B, M1, M2, salt;
  std::string props;
  bool serverAccepted = false;
  bool clientAccepted = false;
};

// `password` is what the client types; `blob` is what the server stored.
Login log_in(const std::string& user, const std::string& password, const std::string& blob) {
  Login l;
  SRPClientCreateA(l.a, l.A);
  MakeExtendedChallengeRound1(user, blob, l.A, l.salt, l.B, l.serverK, l.props);
  SRPClientCreateM1(user, password, l.props, l.salt, l.a, l.A, l.B, l.clientK, l.M1);
  l.serverAccepted = MakeExtendedChallengeRound2(user, blob, l.A, l.M1, l.B, l.serverK, l.M2);
  l.clientAccepted = l.serverAccepted && SRPClientValidateM2(l.props, l.A, l.M1, l.clientK, l.M2);
  return l;
}

std::string legacy_blob(const std::string& user, const std::string& password, const Bytes& salt) {
  std::string blob;
  MakeLegacyExtendedPasswordBlob(
      salt, user,
      n7core::to_string(MakePassword(n7core::to_wstring(user), n7core::to_wstring(password))),
      blob);
  return blob;
}

Bytes salt_of_size(std::size_t size) {
  Bytes salt(size);
  for (std::size_t i = 0; i < size; ++i) salt[i] = static_cast<unsigned char>(0x80 + 7 * i);
  return salt;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

struct Credentials {
  const char* user;
  const char* password;
};

// ASCII, Latin, Cyrillic, CJK with a character beyond the BMP, and an empty password.
constexpr Credentials kCredentials[] = {
    {"Operator", "Night-Shift 7"},
    {"J\xC3\xBCrgen", "gr\xC3\xBC\xC3\x9F Gott"},
    {"\xD0\xB8\xD0\xB2\xD0\xB0\xD0\xBD", "\xD0\xBF\xD0\xB0\xD1\x80\xD0\xBE\xD0\xBB\xD1\x8C 42"},
    {"\xE7\x94\xA8\xE6\x88\xB7", "\xE5\xAF\x86\xE7\xA0\x81\xF0\x9F\x94\x91"},
    {"nobody", ""},
};

void expect_completed(const Login& l) {
  EXPECT_TRUE(l.serverAccepted);
  EXPECT_TRUE(l.clientAccepted);
  EXPECT_EQ(l.a.size(), 32u);
  EXPECT_EQ(l.A.size(), 128u);
  EXPECT_EQ(l.B.size(), 128u);
  EXPECT_EQ(l.M1.size(), 32u);
  EXPECT_EQ(l.M2.size(), 32u);
  ASSERT_EQ(l.clientK.size(), 32u);
  EXPECT_EQ(bytes_of(l.clientK), bytes_of(l.serverK));
}

TEST(Login, BlobsOfBothKindsLogInWithTheirPasswords) {
  const Bytes salt = salt_of_size(16);
  for (const Credentials& c : kCredentials) {
    SCOPED_TRACE(c.user);
    const Login pbkdf2 = log_in(c.user, c.password, MdgM2(c.user, c.password));
    expect_completed(pbkdf2);
    EXPECT_EQ(pbkdf2.props, "<passwd-props>\r\n  <salt>" +
                                n7core::base64_encode(pbkdf2.salt.data(), pbkdf2.salt.size()) +
                                "</salt>\r\n  <alg>PBKDF2-SHA256</alg>\r\n"
                                "  <iterations>1024</iterations>\r\n</passwd-props>\r\n");
    const Login legacy = log_in(c.user, c.password, legacy_blob(c.user, c.password, salt));
    expect_completed(legacy);
    EXPECT_EQ(legacy.props, MakeLegacyPublicPasswordProperties(salt.data(), 16));
    EXPECT_EQ(legacy.salt, salt);
  }
  // The stored value ignores the user ID's case, but the legacy key hashes the ID as given.
  const std::string blob = legacy_blob("Operator", "Night-Shift 7", salt);
  EXPECT_FALSE(log_in("OPERATOR", "Night-Shift 7", blob).serverAccepted);
}

// A host that installs a locale with digit grouping must still write "1024" iterations into the
// blob and the properties: a user created under it logs in under it and under the C locale, and
// one created under the C locale logs in under it.
TEST(Login, UsersCreatedUnderAGroupingLocaleCanLogIn) {
  for (const char* locale : {"en_US.UTF-8", "de_DE.UTF-8"}) {
    const std::string plain_blob = MdgM2("Operator", "Night-Shift 7");
    std::string blob;
    {
      N7_TEST_UNDER_LOCALE(locale);
      blob = MdgM2("Operator", "Night-Shift 7");
      EXPECT_NE(blob.find("\"iterations\" 1024)"), std::string::npos) << blob;
      for (const std::string& stored : {blob, plain_blob}) {
        const Login l = log_in("Operator", "Night-Shift 7", stored);
        EXPECT_NE(l.props.find("<iterations>1024</iterations>"), std::string::npos) << l.props;
        EXPECT_TRUE(l.clientAccepted) << locale;
      }
    }
    EXPECT_TRUE(log_in("Operator", "Night-Shift 7", blob).clientAccepted) << locale;
  }
}

TEST(Login, EachLoginDrawsNewSecrets) {
  const std::string blob = MdgM2("Operator", "Night-Shift 7");
  const Login first = log_in("Operator", "Night-Shift 7", blob);
  const Login second = log_in("Operator", "Night-Shift 7", blob);
  EXPECT_NE(first.A, second.A);
  EXPECT_NE(first.B, second.B);
  EXPECT_NE(bytes_of(first.clientK), bytes_of(second.clientK));
}

TEST(Login, WrongPasswordIsRefusedAtRoundTwo) {
  const Bytes salt = salt_of_size(20);
  for (const std::string& blob :
       {MdgM2("Operator", "Night-Shift 7"), legacy_blob("Operator", "Night-Shift 7", salt)}) {
    Login l;
    SRPClientCreateA(l.a, l.A);
    MakeExtendedChallengeRound1("Operator", blob, l.A, l.salt, l.B, l.serverK, l.props);
    SRPClientCreateM1("Operator", "night-shift 7", l.props, l.salt, l.a, l.A, l.B, l.clientK, l.M1);
    l.M2 = {1, 2, 3};
    EXPECT_FALSE(MakeExtendedChallengeRound2("Operator", blob, l.A, l.M1, l.B, l.serverK, l.M2));
    EXPECT_TRUE(l.M2.empty());
  }
}

// A refused round one has read the salt and the properties already; it leaves no K or B behind.
TEST(Login, ARefusedRoundOneLeavesNoKeyOrB) {
  const std::string blob = MdgM2("Operator", "Night-Shift 7");
  const Login good = log_in("Operator", "Night-Shift 7", blob);
  Bytes salt = {9}, B = {9};
  Key K = key_of({9});
  std::string props = "stale";
  EXPECT_EQ(thrown_error([&] {
              MakeExtendedChallengeRound1("Operator", blob, Bytes(128), salt, B, K, props);
            }).code,
            "error.n7crypto.srp.protocolViolation");
  EXPECT_EQ(salt, good.salt);
  EXPECT_EQ(props, good.props);
  EXPECT_TRUE(B.empty());
  EXPECT_EQ(K.size(), 0u);
}

// The refusals of the four functions, from a completed login with one value spoilt at a time: those
// of the properties and the blob, and one of each kind the SRP context raises, which come through
// with its own location. The client's K and M1 must come through every one of them untouched.
TEST(Login, EveryRefusalHasItsCodeMessageAndLocation) {
  const std::string user = "Operator", password = "Night-Shift 7";
  const std::string blob = MdgM2(user, password);
  const Login l = log_in(user, password, blob);
  const Bytes n(n7crypto::srp_group_1024().modulus, n7crypto::srp_group_1024().modulus + 128);
  const std::string unknownProps = replaced(l.props, "PBKDF2-SHA256", "pbkdf2-sha256");
  const std::string unknownBlob = replaced(blob, "PBKDF2-SHA256", "PBKDF2-SHA1");

  Key K = key_of({7});
  Bytes M1 = {7};
  const auto create_m1 = [&](const std::string& props, const Bytes& B) {
    return [&, props, B] { SRPClientCreateM1(user, password, props, {}, l.a, l.A, B, K, M1); };
  };
  const auto validate_m2 = [&](const std::string& props, const Bytes& M2) {
    return [&, props, M2] { SRPClientValidateM2(props, l.A, l.M1, l.clientK, M2); };
  };
  const auto round1 = [&](const std::string& b, const Bytes& A) {
    return [&, b, A] {
      Bytes salt, B;
      Key serverK;
      std::string props;
      MakeExtendedChallengeRound1(user, b, A, salt, B, serverK, props);
    };
  };
  const auto round2 = [&](const std::string& u, const std::string& b) {
    return [&, u, b] {
      Bytes M2;
      MakeExtendedChallengeRound2(u, b, l.A, l.M1, l.B, l.serverK, M2);
    };
  };

  constexpr char kBlob[] = "error.n7crypto.srp.invalidArg.blob";
  constexpr char kAlgorithm[] = "error.n7crypto.srp.invalidArg.hashAlgorithm";
  constexpr char kSize[] = "error.n7crypto.srp.invalidArg.size";
  constexpr char kViolation[] = "error.n7crypto.srp.protocolViolation";
  constexpr char kPropsReader[] = "impl::crack_public_password_props()";
  constexpr char kBlobReader[] = "impl::crack_extended_password_blob()";
  constexpr char kMalformed[] = "Ill-formatted password blob";
  constexpr char kEmptyBlob[] = "Ill-formatted (empty) password blob";
  constexpr char kUnknown[] = "Unknown hash algorithm";
  constexpr char kWidth[] = "Unexpected argument data width";
  struct Case {
    const char* what;
    std::function<void()> call;
    const char* code;
    const char* message;
    const char* function;
  };
  const Case cases[] = {
      {"M1: empty properties", create_m1("", l.B), kBlob, kMalformed, kPropsReader},
      {"M1: unknown algorithm", create_m1(unknownProps, l.B), kAlgorithm, kUnknown,
       "N7Authentication::SRPClientCreateM1()"},
      {"M1: empty B", create_m1(l.props, {}), kSize, kWidth,
       "n7crypto::SrpContext::client_create_key()"},
      {"M1: B of N", create_m1(l.props, n), kViolation, "SRP (B%N==0) not permitted",
       "n7crypto::SrpContext::client_create_key()"},
      {"M2: empty properties", validate_m2("", l.M2), kBlob, kMalformed, kPropsReader},
      {"M2: unknown algorithm, matching M2", validate_m2(unknownProps, l.M2), kAlgorithm, kUnknown,
       "N7Authentication::SRPClientValidateM2()"},
      {"M2: empty M2", validate_m2(l.props, {}), kSize, kWidth,
       "n7crypto::SrpContext::client_verify()"},
      {"round 1: empty blob", round1("", l.A), kBlob, kEmptyBlob, kBlobReader},
      {"round 1: unknown algorithm", round1(unknownBlob, l.A), kAlgorithm, kUnknown,
       "N7Authentication::MakeExtendedChallengeRound1()"},
      {"round 1: empty A", round1(blob, {}), kSize, kWidth,
       "n7crypto::SrpContext::server_create_key()"},
      {"round 1: A of N", round1(blob, n), kViolation, "SRP (A%N==0) not permitted",
       "n7crypto::SrpContext::server_create_key()"},
      {"round 2: empty blob", round2(user, ""), kBlob, kEmptyBlob, kBlobReader},
      {"round 2: empty user ID", round2("", blob), kSize, kWidth,
       "n7crypto::SrpContext::server_authenticate()"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto t = thrown_error(c.call);
    EXPECT_EQ(t.code, c.code);
    EXPECT_EQ(t.message, c.message);
    EXPECT_EQ(t.function, c.function);
    EXPECT_EQ(bytes_of(K), Bytes{7});
    EXPECT_EQ(M1, Bytes{7});
  }
}

// Blobs from which no password hash can be read. Were the verifier built from their empty x, it
// would be g^0 = 1 and a client using x = 0 would pass both rounds without the password.
TEST(Login, BlobsWithoutAPasswordHashAreRefusedByBothRounds) {
  const std::string good = MdgM2("Operator", "Night-Shift 7");
  const std::size_t hashStart = good.find("\"passwd-hash\" \"") + 15;
  const std::string hash = good.substr(hashStart, good.find('"', hashStart) - hashStart);
  const std::string hashless[] = {
      legacy_blob("", "Night-Shift 7", salt_of_size(16)),
      replaced(good, hash, ""),
      replaced(good, hash, "not base64!"),
  };
  const Login l = log_in("Operator", "Night-Shift 7", good);
  for (const std::string& blob : hashless) {
    SCOPED_TRACE(blob);
    Bytes salt, B, M2;
    Key K;
    std::string props;
    auto t = thrown_error([&] { MakeExtendedChallengeRound1("", blob, l.A, salt, B, K, props); });
    EXPECT_EQ(t.code, "error.n7crypto.srp.invalidArg.blob");
    EXPECT_EQ(t.message, "Ill-formatted (empty) password blob");
    EXPECT_EQ(t.function, "N7Authentication::MakeExtendedChallengeRound1()");
    EXPECT_TRUE(B.empty());
    t = thrown_error(
        [&] { MakeExtendedChallengeRound2("Operator", blob, l.A, l.M1, l.B, l.serverK, M2); });
    EXPECT_EQ(t.message, "Ill-formatted (empty) password blob");
    EXPECT_EQ(t.function, "N7Authentication::MakeExtendedChallengeRound2()");
    EXPECT_TRUE(M2.empty());
  }
}

// A server names the iteration count the client must run; absurd counts are refused before any
// work is done, whatever their spelling.
TEST(Login, TheClientRefusesIterationCountsOutOfRange) {
  const std::string blob = MdgM2("Operator", "Night-Shift 7");
  const Login l = log_in("Operator", "Night-Shift 7", blob);
  const struct {
    const char* count;
    const char* code;
  } cases[] = {
      {"0", "error.n7core.safeCast.valueTruncated"},
      {"-1", "error.n7core.safeCast.valueTruncated"},
      {"10000001", "error.n7core.safeCast.valueTruncated"},
      {"2147483647", "error.n7core.safeCast.valueTruncated"},
      {"4294967295", "error.n7core.safeCast.signReversal"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.count);
    const std::string props =
        replaced(l.props, "<iterations>1024<", std::string("<iterations>") + c.count + "<");
    Key K = key_of({7});
    Bytes M1 = {7};
    const auto t =
        thrown_error([&] { SRPClientCreateM1("Operator", "x", props, {}, l.a, l.A, l.B, K, M1); });
    EXPECT_EQ(t.code, c.code);
    EXPECT_EQ(M1, Bytes{7});
  }
}

TEST(Login, ManyLoginsRunAtOnceOnTheSharedContext) {
  constexpr int kThreads = 4;
  constexpr int kLogins = 3;
  const std::string pbkdf2Blob = MdgM2("Operator", "Night-Shift 7");
  const std::string legacyBlob = legacy_blob("Operator", "Night-Shift 7", salt_of_size(16));
  std::latch start(kThreads);
  std::vector<int> completed(kThreads, 0);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      for (int i = 0; i < kLogins; ++i) {
        const std::string& blob = (t + i) % 2 == 0 ? pbkdf2Blob : legacyBlob;
        const Login l = log_in("Operator", "Night-Shift 7", blob);
        const Login wrong = log_in("Operator", "Night-Shift 8", blob);
        if (l.clientAccepted && bytes_of(l.clientK) == bytes_of(l.serverK) &&
            !wrong.serverAccepted) {
          ++completed[static_cast<std::size_t>(t)];
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(completed, std::vector<int>(kThreads, kLogins));
}

}  // namespace
}  // namespace N7A
