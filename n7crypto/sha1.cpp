// The engine's only use of OpenSSL's low-level SHA routines, deprecated in OpenSSL 3.0 but the
// only access to the compression function (see sha1_internal.h).
#define OPENSSL_SUPPRESS_DEPRECATED

#include "n7utility/n7crypto/sha1_internal.h"
#include "n7utility/n7crypto/wipe.h"

#include <openssl/crypto.h>

namespace n7crypto::impl {
Sha1::Sha1() noexcept { SHA1_Init(&context_); }

Sha1::~Sha1() { n7crypto::wipe(&context_, sizeof context_); }

void Sha1::update(const void* data, std::size_t length) noexcept {
  SHA1_Update(&context_, data, length);
}

void Sha1::final(unsigned char* out) noexcept { SHA1_Final(out, &context_); }

void Sha1::compress_from(const Sha1& start, const unsigned char* block) noexcept {
  context_.h0 = start.context_.h0;
  context_.h1 = start.context_.h1;
  context_.h2 = start.context_.h2;
  context_.h3 = start.context_.h3;
  context_.h4 = start.context_.h4;
  SHA1_Transform(&context_, block);
}

}  // namespace n7crypto::impl
