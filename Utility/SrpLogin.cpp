// The SRP-6a login over the password blob: the client's A, M1 and check of M2, and the server's
// two rounds.
#include <cstdint>
#include <utility>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/Utility/Authentication_internal.h"
#include "n7utility/core/safe_cast.h"
#include "n7utility/core/text.h"
#include "n7utility/n7crypto/errors.h"
#include "n7utility/n7crypto/key.h"
#include "n7utility/n7crypto/pbkdf2.h"
#include "n7utility/n7crypto/random_provider.h"
#include "n7utility/n7crypto/srp.h"
#include "n7utility/n7crypto/wipe.h"

namespace N7A {

using n7crypto::WipeOnExit;
namespace {

// Fixed: the login's error locations name the functions with the class name they first had.
constexpr char kCreateM1[] = "N7Authentication::SRPClientCreateM1()";
constexpr char kValidateM2[] = "N7Authentication::SRPClientValidateM2()";
constexpr char kRound1[] = "N7Authentication::MakeExtendedChallengeRound1()";
constexpr char kRound2[] = "N7Authentication::MakeExtendedChallengeRound2()";
// The iteration counts a client accepts from a server: enough for any real blob, while a hostile
// server cannot make the client derive x for minutes.
constexpr int kMinIterations = 1;
constexpr int kMaxIterations = 10'000'000;

const n7crypto::SrpContext& srp() { return n7crypto::get_default_srp_context(); }

n7crypto::IRandomProvider& random_source() { return *n7crypto::get_default_random_provider(); }

// The bytes of a vector as the SRP context takes them: an empty vector as a null pointer, which
// the context counts as no bytes.
const unsigned char* data_of(const std::vector<unsigned char>& bytes) {
  return bytes.empty() ? nullptr : bytes.data();
}

const unsigned char* data_of(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

void copy_to(const n7crypto::Key& from, std::vector<unsigned char>& to) {
  to.assign(from.data(), from.data() + from.size());
}

// A blob from which no password hash can be read would give the verifier g^0 = 1, which a client
// using x = 0 satisfies without knowing the password: both server rounds refuse it before
// anything is computed.
void require_password_hash(const std::vector<unsigned char>& hash, const char* function, int line) {
  if (hash.empty()) impl::raise_blob_error("Ill-formatted (empty) password blob", function, line);
}

// The peer's iteration count as the derivation takes it. Counts beyond an int fail the checked
// cast; counts outside the accepted range are refused as out of range the same way.
int bounded_iterations(unsigned int iterations) {
  const int count = n7core::safe_cast<int>(iterations);
  if (count < kMinIterations || count > kMaxIterations) {
    n7core::safe_cast_throw_value_truncated("int32_t", std::int64_t{count});
  }
  return count;
}

void require_known_algorithm(int algorithm, const char* function, int line) {
  if (algorithm != impl::kAlgorithmPbkdf2Sha256 && algorithm != impl::kAlgorithmLegacy) {
    n7core::throw_error(n7crypto::errors::srp_invalid_arg_hash_algorithm, "Unknown hash algorithm",
                        n7core::SourceLocation(function, impl::kSourceFile, line));
  }
}

// x of a "legacy" blob from the password itself: the blob holds the hash of the stored
// MakePassword value, so the client makes that value first.
n7crypto::Key legacy_password_key_of(const std::vector<unsigned char>& salt,
                                     const std::string& userId, const std::string& password) {
  std::wstring widePassword = n7core::to_wstring(password);
  const WipeOnExit wipePassword(widePassword);
  std::wstring stored = MakePassword(n7core::to_wstring(userId), widePassword);
  const WipeOnExit wipeStored(stored);
  std::string narrowStored = n7core::to_string(stored);
  const WipeOnExit wipeNarrow(narrowStored);
  return impl::legacy_password_key(salt, userId, narrowStored);
}

// The password key x the server's verifier was made from, derived as the properties say.
n7crypto::Key password_key(const std::string& userId, const std::string& password,
                           const std::vector<unsigned char>& salt, int algorithm,
                           unsigned int iterations) {
  require_known_algorithm(algorithm, kCreateM1, __LINE__);
  if (algorithm == impl::kAlgorithmLegacy) return legacy_password_key_of(salt, userId, password);
  return n7crypto::pbkdf2_sha1(data_of(password), password.size(), data_of(salt), salt.size(),
                               bounded_iterations(iterations),
                               static_cast<int>(srp().digest_size()));
}

}  // namespace

void SRPClientCreateA(n7crypto::Key& a, std::vector<unsigned char>& A) {
  const n7crypto::Key challenge = srp().client_create_challenge(a, random_source(), 0);
  copy_to(challenge, A);
}

void SRPClientCreateM1(const std::string& userId, const std::string& password,
                       const std::string& props, const std::vector<unsigned char>& /*unusedSalt*/,
                       const n7crypto::Key& a, const std::vector<unsigned char>& A,
                       const std::vector<unsigned char>& B, n7crypto::Key& K,
                       std::vector<unsigned char>& M1) {
  std::vector<unsigned char> salt;
  int algorithm = impl::kAlgorithmNone;
  unsigned int iterations = 0;
  impl::crack_public_password_props(props, &salt, &algorithm, &iterations);
  const n7crypto::Key x = password_key(userId, password, salt, algorithm, iterations);
  n7crypto::Key m1;
  n7crypto::Key clientK =
      srp().client_create_key(data_of(userId), userId.size(), x.data(), x.size(), data_of(salt),
                              salt.size(), data_of(A), A.size(), data_of(B), B.size(), a, m1);
  std::swap(K, clientK);  // the old K is wiped with clientK
  copy_to(m1, M1);
}

bool SRPClientValidateM2(const std::string& props, const std::vector<unsigned char>& A,
                         const std::vector<unsigned char>& M1, const n7crypto::Key& K,
                         const std::vector<unsigned char>& M2) {
  int algorithm = impl::kAlgorithmNone;
  unsigned int iterations = 0;
  impl::crack_public_password_props(props, nullptr, &algorithm, &iterations);
  require_known_algorithm(algorithm, kValidateM2, __LINE__);
  return srp().client_verify(data_of(A), A.size(), data_of(M1), M1.size(), K, data_of(M2),
                             M2.size());
}

void MakeExtendedChallengeRound1(const std::string& /*userId*/, const std::string& blob,
                                 const std::vector<unsigned char>& A,
                                 std::vector<unsigned char>& salt, std::vector<unsigned char>& B,
                                 n7crypto::Key& K, std::string& props) {
  salt.clear();
  B.clear();
  K = n7crypto::Key();
  props.clear();
  std::vector<unsigned char> hash;
  const WipeOnExit wipeHash(hash);
  int algorithm = impl::kAlgorithmNone;
  int iterations = 0;
  impl::crack_extended_password_blob(blob, &salt, &hash, &algorithm, &iterations, nullptr);
  require_password_hash(hash, kRound1, __LINE__);
  require_known_algorithm(algorithm, kRound1, __LINE__);
  props = impl::make_public_password_props(salt.data(), salt.size(), algorithm, iterations);
  // The verifier is made afresh from x at every login: the blob stores x, not v.
  const n7crypto::Key v = srp().create_password_verifier(data_of(hash), hash.size());
  n7crypto::Key serverB;
  n7crypto::Key serverK = srp().server_create_key(v.data(), v.size(), data_of(A), A.size(), serverB,
                                                  random_source(), 0);
  std::swap(K, serverK);
  copy_to(serverB, B);
}

bool MakeExtendedChallengeRound2(const std::string& userId, const std::string& blob,
                                 const std::vector<unsigned char>& A,
                                 const std::vector<unsigned char>& M1,
                                 const std::vector<unsigned char>& B, const n7crypto::Key& K,
                                 std::vector<unsigned char>& M2) {
  M2.clear();
  // The algorithm is read with the salt but not checked: the proofs do not depend on it.
  std::vector<unsigned char> salt;
  std::vector<unsigned char> hash;
  const WipeOnExit wipeHash(hash);
  int algorithm = impl::kAlgorithmNone;
  int iterations = 0;
  impl::crack_extended_password_blob(blob, &salt, &hash, &algorithm, &iterations, nullptr);
  require_password_hash(hash, kRound2, __LINE__);
  n7crypto::Key m2;
  if (!srp().server_authenticate(data_of(userId), userId.size(), data_of(salt), salt.size(),
                                 data_of(A), A.size(), data_of(B), B.size(), data_of(M1), M1.size(),
                                 K, m2)) {
    return false;
  }
  copy_to(m2, M2);
  return true;
}

}  // namespace N7A
