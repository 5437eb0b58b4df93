#include "n7utility/n7crypto/digest.h"

#include <openssl/evp.h>

#include "n7utility/core/error.h"
#include "n7utility/n7crypto/digest_internal.h"
#include "n7utility/n7crypto/errors.h"
#include "n7utility/platform/base/WindowsTypes.h"

namespace n7crypto::impl {
namespace {

constexpr char kSourceFile[] = "n7crypto/digest";

// A new context; OpenSSL returns null only when it cannot allocate.
EVP_MD_CTX* new_context(const char* function) {
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  if (context == nullptr) {
    n7core::throw_winerror(n7core::SourceLocation(function, kSourceFile, __LINE__),
                           ERROR_OUTOFMEMORY, true);
  }
  return context;
}

[[noreturn]] void raise_srp_error(const char* function, const char* message, int line) {
  n7core::throw_error(errors::srp, message, n7core::SourceLocation(function, kSourceFile, line));
}

void check_srp_step(int result, const char* function, const char* message, int line) {
  if (result == 0) raise_srp_error(function, message, line);
}

}  // namespace

// ---- UncheckedDigest ----

UncheckedDigest::UncheckedDigest(const EVP_MD* md)
    : context_(new_context("n7crypto::impl::UncheckedDigest::UncheckedDigest()")) {
  EVP_DigestInit_ex(context_, md, nullptr);
}

// EVP_MD_CTX_free clears the algorithm's state before freeing it.
UncheckedDigest::~UncheckedDigest() { EVP_MD_CTX_free(context_); }

void UncheckedDigest::update(const void* data, std::size_t length) noexcept {
  EVP_DigestUpdate(context_, data, length);
}

void UncheckedDigest::final(unsigned char* out) noexcept {
  EVP_DigestFinal_ex(context_, out, nullptr);
}

// ---- ScopedDigester ----

ScopedDigester::ScopedDigester(const EVP_MD* md)
    : context_(new_context("n7crypto::impl::ScopedDigester::ScopedDigester()")) {
  if (EVP_DigestInit_ex(context_, md, nullptr) == 0) {
    EVP_MD_CTX_free(context_);
    raise_srp_error("n7crypto::impl::ScopedDigester::ScopedDigester()",
                    "Error computing SRP values (hash digest init failed)", __LINE__);
  }
}

ScopedDigester::~ScopedDigester() { EVP_MD_CTX_free(context_); }

void ScopedDigester::update(const unsigned char* data, std::size_t length) {
  check_srp_step(EVP_DigestUpdate(context_, data, length),
                 "n7crypto::impl::ScopedDigester::update()",
                 "Error computing SRP values (hash digest update failed)", __LINE__);
}

void ScopedDigester::update(const char* data, std::size_t length) {
  update(reinterpret_cast<const unsigned char*>(data), length);
}

void ScopedDigester::final(unsigned char* out) {
  check_srp_step(EVP_DigestFinal_ex(context_, out, nullptr),
                 "n7crypto::impl::ScopedDigester::final()",
                 "Error computing SRP values (hash digest final failed)", __LINE__);
}

std::size_t ScopedDigester::size() const noexcept {
  return static_cast<std::size_t>(EVP_MD_CTX_get_size(context_));
}

}  // namespace n7crypto::impl

namespace n7crypto {

Sha256::Sha256() : UncheckedDigest(EVP_sha256()) {}

Md5::Md5() : UncheckedDigest(EVP_md5()) {}

}  // namespace n7crypto
