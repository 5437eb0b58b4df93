// The digester of the SRP computations: a digest over OpenSSL's EVP interface on the algorithm
// the SRP context chooses, with every OpenSSL result checked.
#pragma once

#include <cstddef>

struct evp_md_st;
struct evp_md_ctx_st;

namespace n7crypto::impl {

class ScopedDigester {
 public:
  // Starts a digest on `md` (EVP_sha1() or EVP_sha256()). Every failure throws
  // "error.n7crypto.srp"; a failed allocation "error.n7core.winerror" (Windows error 14).
  explicit ScopedDigester(const evp_md_st* md);
  ScopedDigester(const ScopedDigester&) = delete;
  ScopedDigester& operator=(const ScopedDigester&) = delete;
  ~ScopedDigester();

  void update(const unsigned char* data, std::size_t length);
  void update(const char* data, std::size_t length);
  // Writes the digest (size() bytes) of the message fed so far.
  void final(unsigned char* out);
  std::size_t size() const noexcept;

 private:
  evp_md_ctx_st* context_;
};

}  // namespace n7crypto::impl
