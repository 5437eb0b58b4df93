// Whole SRP logins through the N7A functions, their refusals, and many logins at once.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/core/global_locale_test.h"
#include "n7utility/core/testing_internal.h"
#include "n7utility/core/text.h"
#include "n7utility/n7crypto/key.h"
#include "n7utility/n7crypto/key_test.h"
#include "n7utility/n7crypto/srp.h"
#include "n7utility/platform/base/ConcurrentRun_test.h"

namespace N7A {
namespace {

using n7platform::test_support::RunConcurrently;

using Bytes = std::vector<unsigned char>;
using n7core::test_support::thrown_error;
using n7crypto::Key;
using n7crypto::test_support::bytes_of;
using n7crypto::test_support::key_of;

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
  l.M2 = {1, 2, 3};  // stale: a refused round two must clear it
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
  EXPECT_EQ(bytes_of(l.clientK), bytes_of(l.serverK));
}

void expect_refused(const Login& l) {
  EXPECT_FALSE(l.serverAccepted);
  EXPECT_TRUE(l.M2.empty());
}

// Each blob logs in with its password and refuses any other at round two.
TEST(Login, BlobsOfBothKindsLogInWithTheirPasswordsOnly) {
  const Bytes salt = salt_of_size(16);
  for (const Credentials& c : kCredentials) {
    SCOPED_TRACE(c.user);
    const std::string wrong = std::string(c.password) + "x";
    const std::string blob = MdgM2(c.user, c.password);
    expect_refused(log_in(c.user, wrong, blob));
    expect_completed(log_in(c.user, c.password, blob));
    const std::string legacyBlob = legacy_blob(c.user, c.password, salt);
    expect_refused(log_in(c.user, wrong, legacyBlob));
    const Login legacy = log_in(c.user, c.password, legacyBlob);
    expect_completed(legacy);
    EXPECT_EQ(legacy.props, MakeLegacyPublicPasswordProperties(salt.data(), 16));
    EXPECT_EQ(legacy.salt, salt);
  }
  // The stored value ignores the user ID's case, but the legacy key hashes the ID as given.
  expect_refused(
      log_in("OPERATOR", "Night-Shift 7", legacy_blob("Operator", "Night-Shift 7", salt)));
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

// The login's own refusal of an unknown algorithm, from each function that checks it, and a
// refusal of the SRP context, which comes through with the context's location. The client's K
// and M1 must come through all of them untouched.
TEST(Login, EveryRefusalHasItsCodeMessageAndLocation) {
  const std::string user = "Operator", password = "Night-Shift 7";
  const std::string blob = MdgM2(user, password);
  const Login l = log_in(user, password, blob);
  const std::string unknownProps = replaced(l.props, "PBKDF2-SHA256", "pbkdf2-sha256");
  const std::string unknownBlob = replaced(blob, "PBKDF2-SHA256", "PBKDF2-SHA1");
  Key K = key_of({7}), serverK;
  Bytes M1 = {7}, salt, B;
  std::string props;
  const struct {
    const char* function;
    std::function<void()> call;
  } cases[] = {
      {"SRPClientCreateM1",
       [&] { SRPClientCreateM1(user, password, unknownProps, {}, l.a, l.A, l.B, K, M1); }},
      {"SRPClientValidateM2",
       [&] { SRPClientValidateM2(unknownProps, l.A, l.M1, l.clientK, l.M2); }},
      {"MakeExtendedChallengeRound1",
       [&] { MakeExtendedChallengeRound1(user, unknownBlob, l.A, salt, B, serverK, props); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.function);
    const auto t = thrown_error(c.call);
    EXPECT_EQ(t.code, "error.n7crypto.srp.invalidArg.hashAlgorithm");
    EXPECT_EQ(t.message, "Unknown hash algorithm");
    EXPECT_EQ(t.function, std::string("N7Authentication::") + c.function + "()");
  }
  const Bytes n(n7crypto::srp_group_1024().modulus, n7crypto::srp_group_1024().modulus + 128);
  const auto t =
      thrown_error([&] { SRPClientCreateM1(user, password, l.props, {}, l.a, l.A, n, K, M1); });
  EXPECT_EQ(t.code, "error.n7crypto.srp.protocolViolation");
  EXPECT_EQ(t.message, "SRP (B%N==0) not permitted");
  EXPECT_EQ(t.function, "n7crypto::SrpContext::client_create_key()");
  EXPECT_EQ(bytes_of(K), Bytes{7});
  EXPECT_EQ(M1, Bytes{7});
}

// Blobs from which no password hash can be read. Were the verifier built from their empty x, it
// would be g^0 = 1 and a client using x = 0 would pass both rounds without the password.
TEST(Login, BlobsWithoutAPasswordHashAreRefusedByBothRounds) {
  const std::string blob = legacy_blob("", "Night-Shift 7", salt_of_size(16));
  const Login l = log_in("Operator", "Night-Shift 7", MdgM2("Operator", "Night-Shift 7"));
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
      {"10000001", "error.n7core.safeCast.valueTruncated"},
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
  std::vector<int> completed(kThreads, 0);
  RunConcurrently(kThreads, [&](int t) {
    for (int i = 0; i < kLogins; ++i) {
      const std::string& blob = (t + i) % 2 == 0 ? pbkdf2Blob : legacyBlob;
      const Login l = log_in("Operator", "Night-Shift 7", blob);
      const Login wrong = log_in("Operator", "Night-Shift 8", blob);
      if (l.clientAccepted && bytes_of(l.clientK) == bytes_of(l.serverK) && !wrong.serverAccepted) {
        ++completed[static_cast<std::size_t>(t)];
      }
    }
  });
  EXPECT_EQ(completed, std::vector<int>(kThreads, kLogins));
}

}  // namespace
}  // namespace N7A
