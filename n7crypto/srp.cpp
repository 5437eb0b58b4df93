#include "n7utility/n7crypto/srp.h"

#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <memory>
#include <utility>

#include "n7utility/core/error.h"
#include "n7utility/core/safe_cast.h"
#include "n7utility/n7crypto/digest_internal.h"
#include "n7utility/n7crypto/errors.h"
#include "n7utility/platform/base/WindowsTypes.h"

namespace n7crypto {
namespace {

// ---- The groups of RFC 5054, Appendix A ----

constexpr std::array<unsigned char, 128> kModulus1024 = {
    0xEE, 0xAF, 0x0A, 0xB9, 0xAD, 0xB3, 0x8D, 0xD6, 0x9C, 0x33, 0xF8, 0x0A, 0xFA, 0x8F, 0xC5, 0xE8,
    0x60, 0x72, 0x61, 0x87, 0x75, 0xFF, 0x3C, 0x0B, 0x9E, 0xA2, 0x31, 0x4C, 0x9C, 0x25, 0x65, 0x76,
    0xD6, 0x74, 0xDF, 0x74, 0x96, 0xEA, 0x81, 0xD3, 0x38, 0x3B, 0x48, 0x13, 0xD6, 0x92, 0xC6, 0xE0,
    0xE0, 0xD5, 0xD8, 0xE2, 0x50, 0xB9, 0x8B, 0xE4, 0x8E, 0x49, 0x5C, 0x1D, 0x60, 0x89, 0xDA, 0xD1,
    0x5D, 0xC7, 0xD7, 0xB4, 0x61, 0x54, 0xD6, 0xB6, 0xCE, 0x8E, 0xF4, 0xAD, 0x69, 0xB1, 0x5D, 0x49,
    0x82, 0x55, 0x9B, 0x29, 0x7B, 0xCF, 0x18, 0x85, 0xC5, 0x29, 0xF5, 0x66, 0x66, 0x0E, 0x57, 0xEC,
    0x68, 0xED, 0xBC, 0x3C, 0x05, 0x72, 0x6C, 0xC0, 0x2F, 0xD4, 0xCB, 0xF4, 0x97, 0x6E, 0xAA, 0x9A,
    0xFD, 0x51, 0x38, 0xFE, 0x83, 0x76, 0x43, 0x5B, 0x9F, 0xC6, 0x1D, 0x2F, 0xC0, 0xEB, 0x06, 0xE3,
};

constexpr std::array<unsigned char, 192> kModulus1536 = {
    0x9D, 0xEF, 0x3C, 0xAF, 0xB9, 0x39, 0x27, 0x7A, 0xB1, 0xF1, 0x2A, 0x86, 0x17, 0xA4, 0x7B, 0xBB,
    0xDB, 0xA5, 0x1D, 0xF4, 0x99, 0xAC, 0x4C, 0x80, 0xBE, 0xEE, 0xA9, 0x61, 0x4B, 0x19, 0xCC, 0x4D,
    0x5F, 0x4F, 0x5F, 0x55, 0x6E, 0x27, 0xCB, 0xDE, 0x51, 0xC6, 0xA9, 0x4B, 0xE4, 0x60, 0x7A, 0x29,
    0x15, 0x58, 0x90, 0x3B, 0xA0, 0xD0, 0xF8, 0x43, 0x80, 0xB6, 0x55, 0xBB, 0x9A, 0x22, 0xE8, 0xDC,
    0xDF, 0x02, 0x8A, 0x7C, 0xEC, 0x67, 0xF0, 0xD0, 0x81, 0x34, 0xB1, 0xC8, 0xB9, 0x79, 0x89, 0x14,
    0x9B, 0x60, 0x9E, 0x0B, 0xE3, 0xBA, 0xB6, 0x3D, 0x47, 0x54, 0x83, 0x81, 0xDB, 0xC5, 0xB1, 0xFC,
    0x76, 0x4E, 0x3F, 0x4B, 0x53, 0xDD, 0x9D, 0xA1, 0x15, 0x8B, 0xFD, 0x3E, 0x2B, 0x9C, 0x8C, 0xF5,
    0x6E, 0xDF, 0x01, 0x95, 0x39, 0x34, 0x96, 0x27, 0xDB, 0x2F, 0xD5, 0x3D, 0x24, 0xB7, 0xC4, 0x86,
    0x65, 0x77, 0x2E, 0x43, 0x7D, 0x6C, 0x7F, 0x8C, 0xE4, 0x42, 0x73, 0x4A, 0xF7, 0xCC, 0xB7, 0xAE,
    0x83, 0x7C, 0x26, 0x4A, 0xE3, 0xA9, 0xBE, 0xB8, 0x7F, 0x8A, 0x2F, 0xE9, 0xB8, 0xB5, 0x29, 0x2E,
    0x5A, 0x02, 0x1F, 0xFF, 0x5E, 0x91, 0x47, 0x9E, 0x8C, 0xE7, 0xA2, 0x8C, 0x24, 0x42, 0xC6, 0xF3,
    0x15, 0x18, 0x0F, 0x93, 0x49, 0x9A, 0x23, 0x4D, 0xCF, 0x76, 0xE3, 0xFE, 0xD1, 0x35, 0xF9, 0xBB,
};

constexpr std::array<unsigned char, 256> kModulus2048 = {
    0xAC, 0x6B, 0xDB, 0x41, 0x32, 0x4A, 0x9A, 0x9B, 0xF1, 0x66, 0xDE, 0x5E, 0x13, 0x89, 0x58, 0x2F,
    0xAF, 0x72, 0xB6, 0x65, 0x19, 0x87, 0xEE, 0x07, 0xFC, 0x31, 0x92, 0x94, 0x3D, 0xB5, 0x60, 0x50,
    0xA3, 0x73, 0x29, 0xCB, 0xB4, 0xA0, 0x99, 0xED, 0x81, 0x93, 0xE0, 0x75, 0x77, 0x67, 0xA1, 0x3D,
    0xD5, 0x23, 0x12, 0xAB, 0x4B, 0x03, 0x31, 0x0D, 0xCD, 0x7F, 0x48, 0xA9, 0xDA, 0x04, 0xFD, 0x50,
    0xE8, 0x08, 0x39, 0x69, 0xED, 0xB7, 0x67, 0xB0, 0xCF, 0x60, 0x95, 0x17, 0x9A, 0x16, 0x3A, 0xB3,
    0x66, 0x1A, 0x05, 0xFB, 0xD5, 0xFA, 0xAA, 0xE8, 0x29, 0x18, 0xA9, 0x96, 0x2F, 0x0B, 0x93, 0xB8,
    0x55, 0xF9, 0x79, 0x93, 0xEC, 0x97, 0x5E, 0xEA, 0xA8, 0x0D, 0x74, 0x0A, 0xDB, 0xF4, 0xFF, 0x74,
    0x73, 0x59, 0xD0, 0x41, 0xD5, 0xC3, 0x3E, 0xA7, 0x1D, 0x28, 0x1E, 0x44, 0x6B, 0x14, 0x77, 0x3B,
    0xCA, 0x97, 0xB4, 0x3A, 0x23, 0xFB, 0x80, 0x16, 0x76, 0xBD, 0x20, 0x7A, 0x43, 0x6C, 0x64, 0x81,
    0xF1, 0xD2, 0xB9, 0x07, 0x87, 0x17, 0x46, 0x1A, 0x5B, 0x9D, 0x32, 0xE6, 0x88, 0xF8, 0x77, 0x48,
    0x54, 0x45, 0x23, 0xB5, 0x24, 0xB0, 0xD5, 0x7D, 0x5E, 0xA7, 0x7A, 0x27, 0x75, 0xD2, 0xEC, 0xFA,
    0x03, 0x2C, 0xFB, 0xDB, 0xF5, 0x2F, 0xB3, 0x78, 0x61, 0x60, 0x27, 0x90, 0x04, 0xE5, 0x7A, 0xE6,
    0xAF, 0x87, 0x4E, 0x73, 0x03, 0xCE, 0x53, 0x29, 0x9C, 0xCC, 0x04, 0x1C, 0x7B, 0xC3, 0x08, 0xD8,
    0x2A, 0x56, 0x98, 0xF3, 0xA8, 0xD0, 0xC3, 0x82, 0x71, 0xAE, 0x35, 0xF8, 0xE9, 0xDB, 0xFB, 0xB6,
    0x94, 0xB5, 0xC8, 0x03, 0xD8, 0x9F, 0x7A, 0xE4, 0x35, 0xDE, 0x23, 0x6D, 0x52, 0x5F, 0x54, 0x75,
    0x9B, 0x65, 0xE3, 0x72, 0xFC, 0xD6, 0x8E, 0xF2, 0x0F, 0xA7, 0x11, 0x1F, 0x9E, 0x4A, 0xFF, 0x73,
};

constexpr std::array<unsigned char, 384> kModulus3072 = {
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xC9, 0x0F, 0xDA, 0xA2, 0x21, 0x68, 0xC2, 0x34,
    0xC4, 0xC6, 0x62, 0x8B, 0x80, 0xDC, 0x1C, 0xD1, 0x29, 0x02, 0x4E, 0x08, 0x8A, 0x67, 0xCC, 0x74,
    0x02, 0x0B, 0xBE, 0xA6, 0x3B, 0x13, 0x9B, 0x22, 0x51, 0x4A, 0x08, 0x79, 0x8E, 0x34, 0x04, 0xDD,
    0xEF, 0x95, 0x19, 0xB3, 0xCD, 0x3A, 0x43, 0x1B, 0x30, 0x2B, 0x0A, 0x6D, 0xF2, 0x5F, 0x14, 0x37,
    0x4F, 0xE1, 0x35, 0x6D, 0x6D, 0x51, 0xC2, 0x45, 0xE4, 0x85, 0xB5, 0x76, 0x62, 0x5E, 0x7E, 0xC6,
    0xF4, 0x4C, 0x42, 0xE9, 0xA6, 0x37, 0xED, 0x6B, 0x0B, 0xFF, 0x5C, 0xB6, 0xF4, 0x06, 0xB7, 0xED,
    0xEE, 0x38, 0x6B, 0xFB, 0x5A, 0x89, 0x9F, 0xA5, 0xAE, 0x9F, 0x24, 0x11, 0x7C, 0x4B, 0x1F, 0xE6,
    0x49, 0x28, 0x66, 0x51, 0xEC, 0xE4, 0x5B, 0x3D, 0xC2, 0x00, 0x7C, 0xB8, 0xA1, 0x63, 0xBF, 0x05,
    0x98, 0xDA, 0x48, 0x36, 0x1C, 0x55, 0xD3, 0x9A, 0x69, 0x16, 0x3F, 0xA8, 0xFD, 0x24, 0xCF, 0x5F,
    0x83, 0x65, 0x5D, 0x23, 0xDC, 0xA3, 0xAD, 0x96, 0x1C, 0x62, 0xF3, 0x56, 0x20, 0x85, 0x52, 0xBB,
    0x9E, 0xD5, 0x29, 0x07, 0x70, 0x96, 0x96, 0x6D, 0x67, 0x0C, 0x35, 0x4E, 0x4A, 0xBC, 0x98, 0x04,
    0xF1, 0x74, 0x6C, 0x08, 0xCA, 0x18, 0x21, 0x7C, 0x32, 0x90, 0x5E, 0x46, 0x2E, 0x36, 0xCE, 0x3B,
    0xE3, 0x9E, 0x77, 0x2C, 0x18, 0x0E, 0x86, 0x03, 0x9B, 0x27, 0x83, 0xA2, 0xEC, 0x07, 0xA2, 0x8F,
    0xB5, 0xC5, 0x5D, 0xF0, 0x6F, 0x4C, 0x52, 0xC9, 0xDE, 0x2B, 0xCB, 0xF6, 0x95, 0x58, 0x17, 0x18,
    0x39, 0x95, 0x49, 0x7C, 0xEA, 0x95, 0x6A, 0xE5, 0x15, 0xD2, 0x26, 0x18, 0x98, 0xFA, 0x05, 0x10,
    0x15, 0x72, 0x8E, 0x5A, 0x8A, 0xAA, 0xC4, 0x2D, 0xAD, 0x33, 0x17, 0x0D, 0x04, 0x50, 0x7A, 0x33,
    0xA8, 0x55, 0x21, 0xAB, 0xDF, 0x1C, 0xBA, 0x64, 0xEC, 0xFB, 0x85, 0x04, 0x58, 0xDB, 0xEF, 0x0A,
    0x8A, 0xEA, 0x71, 0x57, 0x5D, 0x06, 0x0C, 0x7D, 0xB3, 0x97, 0x0F, 0x85, 0xA6, 0xE1, 0xE4, 0xC7,
    0xAB, 0xF5, 0xAE, 0x8C, 0xDB, 0x09, 0x33, 0xD7, 0x1E, 0x8C, 0x94, 0xE0, 0x4A, 0x25, 0x61, 0x9D,
    0xCE, 0xE3, 0xD2, 0x26, 0x1A, 0xD2, 0xEE, 0x6B, 0xF1, 0x2F, 0xFA, 0x06, 0xD9, 0x8A, 0x08, 0x64,
    0xD8, 0x76, 0x02, 0x73, 0x3E, 0xC8, 0x6A, 0x64, 0x52, 0x1F, 0x2B, 0x18, 0x17, 0x7B, 0x20, 0x0C,
    0xBB, 0xE1, 0x17, 0x57, 0x7A, 0x61, 0x5D, 0x6C, 0x77, 0x09, 0x88, 0xC0, 0xBA, 0xD9, 0x46, 0xE2,
    0x08, 0xE2, 0x4F, 0xA0, 0x74, 0xE5, 0xAB, 0x31, 0x43, 0xDB, 0x5B, 0xFC, 0xE0, 0xFD, 0x10, 0x8E,
    0x4B, 0x82, 0xD1, 0x20, 0xA9, 0x3A, 0xD2, 0xCA, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
};
constexpr std::array<unsigned char, 1> kGenerator2 = {0x02};
constexpr std::array<unsigned char, 1> kGenerator5 = {0x05};

template <std::size_t N, std::size_t G>
constexpr SrpGroupParams group(const std::array<unsigned char, N>& modulus,
                               const std::array<unsigned char, G>& generator) {
  return SrpGroupParams{modulus.data(), N, generator.data(), G};
}

constexpr SrpGroupParams kGroup1024 = group(kModulus1024, kGenerator2);
constexpr SrpGroupParams kGroup1536 = group(kModulus1536, kGenerator2);
constexpr SrpGroupParams kGroup2048 = group(kModulus2048, kGenerator2);
constexpr SrpGroupParams kGroup3072 = group(kModulus3072, kGenerator5);

// ---- Helpers ----

constexpr char kSourceFile[] = "n7crypto/srp";
// Salts and verifiers shorter than this are refused.
constexpr std::size_t kMinimumSaltLength = 16;

// A byte string argument. A null pointer counts as empty, so that it fails the width checks
// instead of being read.
struct Bytes {
  Bytes(const unsigned char* bytes, std::size_t length)
      : data(bytes), size(bytes != nullptr ? length : 0) {}
  explicit Bytes(const Key& key) : data(key.data()), size(key.size()) {}

  const unsigned char* data;
  std::size_t size;
};

[[noreturn]] void raise(const n7core::ErrorCode& code, const char* message, const char* function,
                        int line) {
  n7core::throw_error(code, message, n7core::SourceLocation(function, kSourceFile, line));
}

[[noreturn]] void raise_out_of_memory(const char* function, int line) {
  n7core::throw_winerror(n7core::SourceLocation(function, kSourceFile, line), ERROR_OUTOFMEMORY,
                         true);
}

// Big numbers may hold secrets: every one is wiped before it is freed.
struct BnDeleter {
  void operator()(BIGNUM* number) const noexcept { BN_clear_free(number); }
};
using Bn = std::unique_ptr<BIGNUM, BnDeleter>;

struct BnCtxDeleter {
  // The pool's numbers are wiped as they are freed.
  void operator()(BN_CTX* context) const noexcept { BN_CTX_free(context); }
};

// `data` as a big number; `function` names the operation for the error of a failed allocation.
Bn to_bn(Bytes data, const char* function) {
  Bn number(BN_bin2bn(data.data, n7core::safe_cast<int>(data.size), nullptr));
  if (!number) raise_out_of_memory(function, __LINE__);
  return number;
}

// The Montgomery form of an odd `n`; null for an even one.
BN_MONT_CTX* montgomery_form(const BIGNUM* n, const char* function) {
  if (!BN_is_odd(n)) return nullptr;
  std::unique_ptr<BN_CTX, decltype(&BN_CTX_free)> context(BN_CTX_new(), &BN_CTX_free);
  std::unique_ptr<BN_MONT_CTX, decltype(&BN_MONT_CTX_free)> mont(BN_MONT_CTX_new(),
                                                                 &BN_MONT_CTX_free);
  if (!context || !mont || BN_MONT_CTX_set(mont.get(), n, context.get()) == 0) {
    raise_out_of_memory(function, __LINE__);
  }
  return mont.release();
}

// The hash of the concatenated parts, written to `out` (the digest's size).
void hash_into(const EVP_MD* md, std::initializer_list<Bytes> parts, unsigned char* out) {
  impl::ScopedDigester digester(md);
  for (const Bytes& part : parts) digester.update(part.data, part.size);
  digester.final(out);
}

}  // namespace

// ---- SrpContextImpl ----

// The fixed part of a context: the hash, the group and H(N) XOR H(g), which every client proof
// starts with.
class SrpContextImpl {
 public:
  SrpContextImpl(SrpHashAlgorithm hash, const SrpGroupParams& group);
  SrpContextImpl(const SrpContextImpl&) = delete;
  SrpContextImpl& operator=(const SrpContextImpl&) = delete;
  ~SrpContextImpl() {
    BN_MONT_CTX_free(mont_);
    BN_clear_free(n_);
    BN_clear_free(g_);
  }

  // The implementation behind a context; a context without one (moved from) cannot compute.
  static const SrpContextImpl& from_pimpl(const SrpContextImpl* impl) {
    if (impl == nullptr) {
      raise(errors::srp, "Error computing SRP values (no SRP impl available)",
            "n7crypto::SrpContextImpl::from_pimpl()", __LINE__);
    }
    return *impl;
  }

  std::size_t digest_size() const noexcept { return digest_size_; }
  std::size_t modulus_length() const noexcept { return modulus_length_; }
  const EVP_MD* md() const noexcept { return md_; }
  const BIGNUM* n() const noexcept { return n_; }
  const BIGNUM* g() const noexcept { return g_; }
  // The Montgomery form of N, set up once rather than by every exponentiation; null when N is
  // even, which the exponentiations then refuse. Only read after construction, so operations on
  // any number of threads share it.
  BN_MONT_CTX* mont() const noexcept { return mont_; }
  Bytes hn_xor_hg() const noexcept { return Bytes(hn_xor_hg_.data(), digest_size_); }

 private:
  std::uint32_t digest_size_ = 0;
  std::uint32_t modulus_length_ = 0;
  const EVP_MD* md_ = nullptr;
  BIGNUM* n_ = nullptr;
  BIGNUM* g_ = nullptr;
  BN_MONT_CTX* mont_ = nullptr;
  std::array<unsigned char, EVP_MAX_MD_SIZE> hn_xor_hg_{};
};

SrpContextImpl::SrpContextImpl(SrpHashAlgorithm hash, const SrpGroupParams& group) {
  static constexpr const char* kFunction = "n7crypto::SrpContextImpl::SrpContextImpl()";
  const Bytes modulus(group.modulus, group.modulusLength);
  const Bytes generator(group.generator, group.generatorLength);
  if (generator.size >= modulus.size) {
    raise(errors::srp, "Modulus cannot be smaller than the generator", kFunction, __LINE__);
  }
  switch (hash) {
    case SrpHashAlgorithm::kSha256:
      md_ = EVP_sha256();
      break;
    case SrpHashAlgorithm::kSha1:
      md_ = EVP_sha1();
      break;
    default:
      raise(errors::srp, "You must specify a known hash algorithm!", kFunction, __LINE__);
  }
  digest_size_ = static_cast<std::uint32_t>(EVP_MD_get_size(md_));
  modulus_length_ = group.modulusLength;
  Bn n = to_bn(modulus, kFunction);
  Bn g = to_bn(generator, kFunction);
  std::array<unsigned char, EVP_MAX_MD_SIZE> hg{};
  hash_into(md_, {modulus}, hn_xor_hg_.data());
  hash_into(md_, {generator}, hg.data());
  for (std::size_t i = 0; i < digest_size_; ++i) hn_xor_hg_[i] ^= hg[i];
  mont_ = montgomery_form(n.get(), kFunction);
  n_ = n.release();
  g_ = g.release();
}

namespace {

// The working state of one operation: its own BN_CTX, so that operations never share mutable
// state, and the function label its errors carry.
class Computation {
 public:
  Computation(const SrpContextImpl& impl, const char* function)
      : impl_(impl), function_(function), context_(BN_CTX_new()) {
    if (!context_) raise_out_of_memory(function_, __LINE__);
  }

  [[noreturn]] void raise(const n7core::ErrorCode& code, const char* message, int line) const {
    n7crypto::raise(code, message, function_, line);
  }

  void require_widths(bool valid) const {
    if (!valid) raise(errors::srp_invalid_arg_size, "Unexpected argument data width", __LINE__);
  }

  Bn number(Bytes data) const { return to_bn(data, function_); }

  // A secret exponent: marked so that OpenSSL takes no branch or memory access that depends on
  // its bits.
  Bn secret(Bytes data) const {
    Bn value = number(data);
    BN_set_flags(value.get(), BN_FLG_CONSTTIME);
    return value;
  }

  bool is_zero_mod_n(const BIGNUM* value) const {
    return BN_is_zero(apply(BN_nnmod, value, impl_.n()).get()) != 0;
  }

  Bn mod_mul(const BIGNUM* a, const BIGNUM* b) const { return apply(BN_mod_mul, a, b, impl_.n()); }
  Bn mod_add(const BIGNUM* a, const BIGNUM* b) const { return apply(BN_mod_add, a, b, impl_.n()); }
  Bn mod_sub(const BIGNUM* a, const BIGNUM* b) const { return apply(BN_mod_sub, a, b, impl_.n()); }

  // base^exponent mod N for a public exponent.
  Bn mod_exp(const BIGNUM* base, const BIGNUM* exponent) const {
    Bn result = fresh();
    const int done =
        impl_.mont() != nullptr
            ? BN_mod_exp_mont(result.get(), base, exponent, impl_.n(), context_.get(), impl_.mont())
            : BN_mod_exp(result.get(), base, exponent, impl_.n(), context_.get());
    if (done == 0) fail_exp();
    return result;
  }

  // base^exponent mod N in constant time, for the secret exponents.
  Bn mod_exp_secret(const BIGNUM* base, const BIGNUM* exponent) const {
    Bn result = fresh();
    if (BN_mod_exp_mont_consttime(result.get(), base, exponent, impl_.n(), context_.get(),
                                  impl_.mont()) == 0) {
      fail_exp();
    }
    return result;
  }

  // PAD(value): big-endian in exactly the modulus length.
  Key padded(const BIGNUM* value) const {
    Key out(impl_.modulus_length());
    write_padded(value, out.data(), out.size());
    return out;
  }

  // The hash of the concatenated parts, in a Key of the digest size.
  Key hash(std::initializer_list<Bytes> parts) const {
    Key out(impl_.digest_size());
    hash_into(impl_.md(), parts, out.data());
    return out;
  }

  // k = H(N | PAD(g)).
  Bn k() const {
    const Key n = padded(impl_.n());
    const Key g = padded(impl_.g());
    return number(Bytes(hash({Bytes(n), Bytes(g)})));
  }

  // u = H(PAD(A) | PAD(B)), padded to the width of N's value. A u of 0 would make the session
  // key independent of the password; it is refused like a failed allocation.
  Bn u(const BIGNUM* A, const BIGNUM* B) const {
    const auto width = static_cast<std::size_t>(BN_num_bytes(impl_.n()));
    Key both(2 * width);
    write_padded(A, both.data(), width);
    write_padded(B, both.data() + width, width);
    Bn value = number(Bytes(hash({Bytes(both)})));
    if (BN_is_zero(value.get())) raise_out_of_memory(function_, __LINE__);
    return value;
  }

  // K = H(PAD(S)).
  Key session_key(const BIGNUM* S) const { return hash({Bytes(padded(S))}); }

  // M1 = H(H(N) XOR H(g) | H(I) | s | A | B | K).
  Key client_proof(Bytes user, Bytes salt, Bytes A, Bytes B, const Key& K) const {
    const Key hashedUser = hash({user});
    return hash({impl_.hn_xor_hg(), Bytes(hashedUser), salt, A, B, Bytes(K)});
  }

  // M2 = H(A | M1 | K).
  Key server_proof(Bytes A, Bytes M1, const Key& K) const { return hash({A, M1, Bytes(K)}); }

  // Draws max(length, digest size) bytes into `out`.
  void draw(Key& out, IRandomProvider& random, std::size_t length) const {
    const std::size_t size = std::max(length, impl_.digest_size());
    const int count = n7core::safe_cast<int>(size);
    out.resize(size);
    random.generate_random(out.data(), count);
  }

 private:
  Bn fresh() const {
    Bn value(BN_new());
    if (!value) raise_out_of_memory(function_, __LINE__);
    return value;
  }

  // Runs one of OpenSSL's modular operations into a new number. They fail only when they cannot
  // allocate.
  template <typename Operation, typename... Operands>
  Bn apply(Operation operation, const Operands*... operands) const {
    Bn result = fresh();
    if (operation(result.get(), operands..., context_.get()) == 0) {
      raise_out_of_memory(function_, __LINE__);
    }
    return result;
  }

  [[noreturn]] void fail_exp() const { raise(errors::srp, "Error computing SRP values", __LINE__); }

  void write_padded(const BIGNUM* value, unsigned char* out, std::size_t width) const {
    if (BN_bn2binpad(value, out, n7core::safe_cast<int>(width)) < 0) {
      raise(errors::srp, "Error computing SRP values", __LINE__);
    }
  }

  const SrpContextImpl& impl_;
  const char* function_;
  std::unique_ptr<BN_CTX, BnCtxDeleter> context_;
};

bool equal_in_constant_time(const Key& expected, Bytes given) {
  return CRYPTO_memcmp(expected.data(), given.data, expected.size()) == 0;
}

}  // namespace

// ---- Groups ----

const SrpGroupParams& srp_group_1024() { return kGroup1024; }
const SrpGroupParams& srp_group_1536() { return kGroup1536; }
const SrpGroupParams& srp_group_2048() { return kGroup2048; }
const SrpGroupParams& srp_group_3072() { return kGroup3072; }

// ---- SrpContext ----

SrpContext::SrpContext() : SrpContext(SrpHashAlgorithm::kSha256, srp_group_1024()) {}

SrpContext::SrpContext(SrpHashAlgorithm hash) : SrpContext(hash, srp_group_1024()) {}

SrpContext::SrpContext(const SrpGroupParams& group)
    : SrpContext(SrpHashAlgorithm::kSha256, group) {}

SrpContext::SrpContext(SrpHashAlgorithm hash, const SrpGroupParams& group)
    : impl_(new SrpContextImpl(hash, group)) {}

SrpContext::SrpContext(SrpContext&& other) noexcept : impl_(std::exchange(other.impl_, nullptr)) {}

SrpContext& SrpContext::operator=(SrpContext&& other) noexcept {
  if (this != &other) {
    delete impl_;
    impl_ = std::exchange(other.impl_, nullptr);
  }
  return *this;
}

SrpContext::~SrpContext() { delete impl_; }

std::size_t SrpContext::modulus_length() const {
  return SrpContextImpl::from_pimpl(impl_).modulus_length();
}

std::size_t SrpContext::digest_size() const {
  return SrpContextImpl::from_pimpl(impl_).digest_size();
}

Key SrpContext::client_create_challenge(Key& a, IRandomProvider& random,
                                        std::size_t aLength) const {
  const SrpContextImpl& impl = SrpContextImpl::from_pimpl(impl_);
  const Computation c(impl, "n7crypto::SrpContext::client_create_challenge()");
  c.draw(a, random, aLength);
  return c.padded(c.mod_exp_secret(impl.g(), c.secret(Bytes(a)).get()).get());
}

Key SrpContext::client_create_key(const unsigned char* user, std::size_t userLength,
                                  const unsigned char* x, std::size_t xLength,
                                  const unsigned char* salt, std::size_t saltLength,
                                  const unsigned char* A, std::size_t ALength,
                                  const unsigned char* B, std::size_t BLength, const Key& a,
                                  Key& m1) const {
  const SrpContextImpl& impl = SrpContextImpl::from_pimpl(impl_);
  const Computation c(impl, "n7crypto::SrpContext::client_create_key()");
  const Bytes I(user, userLength), s(salt, saltLength), clientA(A, ALength), serverB(B, BLength);
  c.require_widths(s.size >= kMinimumSaltLength && a.size() >= impl.digest_size() &&
                   clientA.size == impl.modulus_length() && serverB.size == impl.modulus_length() &&
                   I.size >= 1);
  const Bn bigB = c.number(serverB);
  if (c.is_zero_mod_n(bigB.get())) {
    c.raise(errors::srp_protocol_violation, "SRP (B%N==0) not permitted", __LINE__);
  }
  const Bn u = c.u(c.number(clientA).get(), bigB.get());
  const Bn bigX = c.secret(Bytes(x, xLength));
  // S = (B - k g^x)^(a + u x) mod N
  const Bn kgx = c.mod_mul(c.k().get(), c.mod_exp_secret(impl.g(), bigX.get()).get());
  const Bn base = c.mod_sub(bigB.get(), kgx.get());
  Bn exponent = c.mod_add(c.secret(Bytes(a)).get(), c.mod_mul(u.get(), bigX.get()).get());
  BN_set_flags(exponent.get(), BN_FLG_CONSTTIME);
  Key K = c.session_key(c.mod_exp_secret(base.get(), exponent.get()).get());
  m1 = c.client_proof(I, s, clientA, serverB, K);
  return K;
}

bool SrpContext::client_verify(const unsigned char* A, std::size_t ALength, const unsigned char* M1,
                               std::size_t M1Length, const Key& K, const unsigned char* M2,
                               std::size_t M2Length) const {
  const SrpContextImpl& impl = SrpContextImpl::from_pimpl(impl_);
  const Computation c(impl, "n7crypto::SrpContext::client_verify()");
  const Bytes clientA(A, ALength), m1(M1, M1Length), m2(M2, M2Length);
  c.require_widths(clientA.size == impl.modulus_length() && m1.size == impl.digest_size() &&
                   K.size() == impl.digest_size() && m2.size == impl.digest_size());
  return equal_in_constant_time(c.server_proof(clientA, m1, K), m2);
}

Key SrpContext::create_password_verifier(const unsigned char* x, std::size_t xLength) const {
  const SrpContextImpl& impl = SrpContextImpl::from_pimpl(impl_);
  const Computation c(impl, "n7crypto::SrpContext::create_password_verifier()");
  // An x of nothing or of a multiple of N makes v = 1, which any client passes with x = 0.
  const Bytes key(x, xLength);
  const Bn secretX = c.secret(key);
  if (key.size == 0 || c.is_zero_mod_n(secretX.get())) {
    c.raise(errors::srp_invalid_arg, "SRP (x%N==0) not permitted", __LINE__);
  }
  return c.padded(c.mod_exp_secret(impl.g(), secretX.get()).get());
}

Key SrpContext::server_create_key(const unsigned char* v, std::size_t vLength,
                                  const unsigned char* A, std::size_t ALength, Key& B,
                                  IRandomProvider& random, std::size_t bLength) const {
  const SrpContextImpl& impl = SrpContextImpl::from_pimpl(impl_);
  const Computation c(impl, "n7crypto::SrpContext::server_create_key()");
  const Bytes verifier(v, vLength), clientA(A, ALength);
  c.require_widths(clientA.size == impl.modulus_length() && verifier.size >= kMinimumSaltLength);
  const Bn bigA = c.number(clientA);
  if (c.is_zero_mod_n(bigA.get())) {
    c.raise(errors::srp_protocol_violation, "SRP (A%N==0) not permitted", __LINE__);
  }
  Key b;
  c.draw(b, random, bLength);
  const Bn secretB = c.secret(Bytes(b));
  const Bn bigV = c.number(verifier);
  // B = (k v + g^b) mod N
  const Bn bigB = c.mod_add(c.mod_mul(c.k().get(), bigV.get()).get(),
                            c.mod_exp_secret(impl.g(), secretB.get()).get());
  Key serverB = c.padded(bigB.get());
  // S = (A v^u)^b mod N
  const Bn u = c.u(bigA.get(), bigB.get());
  const Bn base = c.mod_mul(bigA.get(), c.mod_exp(bigV.get(), u.get()).get());
  Key K = c.session_key(c.mod_exp_secret(base.get(), secretB.get()).get());
  B = std::move(serverB);
  return K;
}

bool SrpContext::server_authenticate(const unsigned char* user, std::size_t userLength,
                                     const unsigned char* salt, std::size_t saltLength,
                                     const unsigned char* A, std::size_t ALength,
                                     const unsigned char* B, std::size_t BLength,
                                     const unsigned char* M1, std::size_t M1Length, const Key& K,
                                     Key& m2) const {
  const SrpContextImpl& impl = SrpContextImpl::from_pimpl(impl_);
  const Computation c(impl, "n7crypto::SrpContext::server_authenticate()");
  const Bytes I(user, userLength), s(salt, saltLength), clientA(A, ALength), serverB(B, BLength),
      m1(M1, M1Length);
  c.require_widths(s.size >= kMinimumSaltLength && clientA.size == impl.modulus_length() &&
                   serverB.size == impl.modulus_length() && K.size() == impl.digest_size() &&
                   m1.size == impl.digest_size() && I.size >= 1);
  if (!equal_in_constant_time(c.client_proof(I, s, clientA, serverB, K), m1)) return false;
  m2 = c.server_proof(clientA, m1, K);
  return true;
}

// ---- The process-wide context ----

const SrpContext& get_default_srp_context() {
  static const SrpContext context;
  return context;
}

namespace {

// Built while the library loads rather than by the first login, as the library's other
// process-wide objects are. It can only fail to allocate, which nothing at load could handle.
// NOLINTNEXTLINE(cert-err58-cpp)
[[maybe_unused]] const SrpContext& loaded_context = get_default_srp_context();

}  // namespace

}  // namespace n7crypto
