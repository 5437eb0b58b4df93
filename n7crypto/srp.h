// n7crypto::SrpContext: the arithmetic of the SRP-6a login (RFC 5054) for both the client and the
// server side.
//
// A context fixes a group (N, g) and a hash; everything that belongs to one login goes in and out
// as byte strings and Key buffers. A context holds no per-login state and never changes after
// construction, so one context (such as the process-wide one) serves any number of logins on any
// number of threads at once.
//
// Every failure throws n7core::ErrorException: "error.n7crypto.srp.invalidArg.size" for an argument
// of the wrong width (checked before any out argument is touched),
// "error.n7crypto.srp.protocolViolation" for a peer value that is 0 modulo N, "error.n7crypto.srp"
// for a failed computation and "error.n7core.winerror" (Windows error 14) for a failed allocation.
// Secret values (a, b, x, S and everything derived from them) live only in Key buffers and in big
// numbers that are wiped when an operation returns or throws.
#pragma once

#include <cstddef>
#include <cstdint>

#include "n7utility/n7crypto/key.h"
#include "n7utility/n7crypto/random_provider.h"
#include "n7utility/platform/base/Export.h"

namespace n7crypto {

// A group: N and g, both big-endian. The context writes A, B and verifiers with exactly
// `modulusLength` bytes.
struct SrpGroupParams {
  const unsigned char* modulus;
  std::uint32_t modulusLength;
  const unsigned char* generator;
  std::uint32_t generatorLength;
};

// The groups of RFC 5054, Appendix A: 1024, 1536 and 2048 bits with g = 2, 3072 bits with g = 5.
N7_EXPORT const SrpGroupParams& srp_group_1024();
N7_EXPORT const SrpGroupParams& srp_group_1536();
N7_EXPORT const SrpGroupParams& srp_group_2048();
N7_EXPORT const SrpGroupParams& srp_group_3072();

// The hash of a context; the values are those stored with passwords.
enum class SrpHashAlgorithm : int {
  kSha256 = 1,
  kSha1 = 2,
};

class SrpContextImpl;

class N7_EXPORT SrpContext {
 public:
  // SHA-256 unless given; srp_group_1024() unless given. A generator that is not shorter than
  // the modulus, or a hash value other than those above, throws "error.n7crypto.srp".
  SrpContext();
  explicit SrpContext(SrpHashAlgorithm hash);
  explicit SrpContext(const SrpGroupParams& group);
  SrpContext(SrpHashAlgorithm hash, const SrpGroupParams& group);
  // A moved-from context has no group: its operations throw "error.n7crypto.srp".
  SrpContext(SrpContext&& other) noexcept;
  SrpContext& operator=(SrpContext&& other) noexcept;
  SrpContext(const SrpContext&) = delete;
  SrpContext& operator=(const SrpContext&) = delete;
  ~SrpContext();

  // Width of A, B and verifiers, and of the hash (K, M1, M2).
  std::size_t modulus_length() const;
  std::size_t digest_size() const;

  // Client, first step: draws the secret `a` (max(aLength, digest size) bytes, into `a`) and
  // returns A = g^a mod N.
  Key client_create_challenge(Key& a, IRandomProvider& random, std::size_t aLength) const;

  // Client, second step: from the user name, the password key x, the salt (at least 16 bytes),
  // A, the server's B and the secret `a`, returns the session key K and puts the proof M1 into
  // `m1`. A B that is 0 modulo N is refused.
  Key client_create_key(const unsigned char* user, std::size_t userLength, const unsigned char* x,
                        std::size_t xLength, const unsigned char* salt, std::size_t saltLength,
                        const unsigned char* A, std::size_t ALength, const unsigned char* B,
                        std::size_t BLength, const Key& a, Key& m1) const;

  // Client, last step: whether the server's proof M2 matches A, M1 and K.
  bool client_verify(const unsigned char* A, std::size_t ALength, const unsigned char* M1,
                     std::size_t M1Length, const Key& K, const unsigned char* M2,
                     std::size_t M2Length) const;

  // The verifier v = g^x mod N that the server stores instead of the password.
  Key create_password_verifier(const unsigned char* x, std::size_t xLength) const;

  // Server, first step: from the verifier (at least 16 bytes) and the client's A, draws the
  // secret b (max(bLength, digest size) bytes), puts B into `B` and returns the session key K.
  // An A that is 0 modulo N is refused.
  Key server_create_key(const unsigned char* v, std::size_t vLength, const unsigned char* A,
                        std::size_t ALength, Key& B, IRandomProvider& random,
                        std::size_t bLength) const;

  // Server, second step: whether the client's M1 proves it holds K. Only when it does is the
  // server's proof M2 put into `m2`; otherwise `m2` is left as it was.
  bool server_authenticate(const unsigned char* user, std::size_t userLength,
                           const unsigned char* salt, std::size_t saltLength,
                           const unsigned char* A, std::size_t ALength, const unsigned char* B,
                           std::size_t BLength, const unsigned char* M1, std::size_t M1Length,
                           const Key& K, Key& m2) const;

 private:
  SrpContextImpl* impl_;
};

// The process-wide context: SHA-256 over srp_group_1024(). Built while the library loads.
N7_EXPORT const SrpContext& get_default_srp_context();

}  // namespace n7crypto
