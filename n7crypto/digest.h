// Fixed digests over OpenSSL's EVP interface: SHA-256 for the password blob and SRP login
// values, MD5 for the legacy password values.
//
// They own their OpenSSL context, which OpenSSL wipes when it releases it. Their results are not
// checked: with the algorithm built into OpenSSL, a failure can only be a fault inside OpenSSL.
// A failed allocation of the context throws "error.n7core.winerror" (Windows error 14).
#pragma once

#include <cstddef>

#include "n7utility/platform/base/Export.h"

struct evp_md_st;
struct evp_md_ctx_st;

namespace n7crypto {
namespace impl {

// What the fixed digests share: one context, started on the algorithm the derived class names.
class N7_EXPORT UncheckedDigest {
 public:
  UncheckedDigest(const UncheckedDigest&) = delete;
  UncheckedDigest& operator=(const UncheckedDigest&) = delete;

  void update(const void* data, std::size_t length) noexcept;
  // Writes the digest of the message fed so far; the object is then spent.
  void final(unsigned char* out) noexcept;

 protected:
  explicit UncheckedDigest(const evp_md_st* md);
  ~UncheckedDigest();

 private:
  evp_md_ctx_st* context_;
};

}  // namespace impl

class N7_EXPORT Sha256 final : public impl::UncheckedDigest {
 public:
  static constexpr std::size_t kDigestSize = 32;
  Sha256();
};

class N7_EXPORT Md5 final : public impl::UncheckedDigest {
 public:
  static constexpr std::size_t kDigestSize = 16;
  Md5();
};

}  // namespace n7crypto
