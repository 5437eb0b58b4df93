// What the heap still holds after a password was stored and used: every block given back through
// operator delete while passwords are made, read and used for logins is searched for the
// password, the SRP key x (raw and base64) and the stored password value (narrow and wide). A
// block that holds one was freed without being wiped.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/core/base64.h"
#include "n7utility/core/heap_counter_test.h"
#include "n7utility/core/text.h"
#include "n7utility/n7crypto/key.h"

namespace N7A {
namespace {

// The secrets searched for, set before the search is armed; fixed storage, since the observer
// runs inside operator delete.
constexpr int kMaxSecrets = 8;
constexpr std::size_t kMaxSecretSize = 512;
struct Secret {
  char bytes[kMaxSecretSize];
  std::size_t size;
  const char* what;
};
Secret g_secrets[kMaxSecrets];
int g_secret_count = 0;
std::atomic<bool> g_armed{false};
std::atomic<int> g_found[kMaxSecrets];

void Remember(const void* bytes, std::size_t size, const char* what) {
  ASSERT_LT(g_secret_count, kMaxSecrets);
  ASSERT_LE(size, kMaxSecretSize);
  Secret& secret = g_secrets[g_secret_count++];
  std::memcpy(secret.bytes, bytes, size);
  secret.size = size;
  secret.what = what;
}

void Search(const void* block, std::size_t size) {
  if (!g_armed.load()) return;
  for (int i = 0; i < g_secret_count; ++i) {
    if (memmem(block, size, g_secrets[i].bytes, g_secrets[i].size) != nullptr) ++g_found[i];
  }
}

// The text of a blob's quoted field `name`, narrow ("...") or wide (L"...").
std::string FieldOf(const std::string& blob, const std::string& name) {
  std::size_t start = blob.find("(\"" + name + "\" ") + name.size() + 4;
  if (blob[start] == 'L') ++start;
  ++start;
  return blob.substr(start, blob.find('"', start) - start);
}

void LogIn(const std::string& user, const std::string& password, const std::string& blob) {
  n7crypto::Key a, clientK, serverK;
  std::vector<unsigned char> A, B, M1, M2, salt;
  std::string props;
  SRPClientCreateA(a, A);
  MakeExtendedChallengeRound1(user, blob, A, salt, B, serverK, props);
  SRPClientCreateM1(user, password, props, salt, a, A, B, clientK, M1);
  EXPECT_TRUE(MakeExtendedChallengeRound2(user, blob, A, M1, B, serverK, M2));
  EXPECT_TRUE(SRPClientValidateM2(props, A, M1, clientK, M2));
}

TEST(FreedSecretsTest, NoFreedBlockHoldsAPasswordOrItsKeys) {
  if (!n7testing::CountsAllocations()) GTEST_SKIP() << "the sanitizer owns operator delete";
  // Long enough that no string keeps them in its inline buffer.
  const std::string user = "Operator", password = "a passphrase of thirty-six characters";
  const std::string blob = MdgM2(user, password);
  const std::string x_base64 = FieldOf(blob, "passwd-hash");
  const std::vector<unsigned char> x = n7core::base64_decode(x_base64);
  const std::string stored = FieldOf(blob, "legacy");
  const std::wstring wide_password = n7core::to_wstring(password);
  const std::wstring wide_stored = n7core::to_wstring(stored);
  Remember(password.data(), password.size(), "the password");
  Remember(wide_password.data(), wide_password.size() * sizeof(wchar_t), "the wide password");
  Remember(x_base64.data(), x_base64.size(), "x in base64");
  Remember(x.data(), x.size(), "x");
  Remember(stored.data(), stored.size(), "the stored value");
  Remember(wide_stored.data(), wide_stored.size() * sizeof(wchar_t), "the wide stored value");

  n7testing::SetFreedBlockObserver(&Search);
  g_armed = true;
  std::string legacy_blob;
  MakeLegacyExtendedPasswordBlob(std::vector<unsigned char>(16, 0x81), user, stored, legacy_blob);
  LogIn(user, password, blob);
  LogIn(user, password, legacy_blob);
  std::string legacy;
  EXPECT_TRUE(LooksLikeExtendedPassword(blob, &legacy));
  EXPECT_TRUE(Validate(n7core::to_wstring(user), wide_password, false, wide_stored));
  const std::string another_blob = MdgM2(user, password);
  g_armed = false;
  n7testing::SetFreedBlockObserver(nullptr);

  for (int i = 0; i < g_secret_count; ++i) {
    EXPECT_EQ(g_found[i].load(), 0) << g_secrets[i].what << " was left in freed memory";
  }
}

}  // namespace
}  // namespace N7A
