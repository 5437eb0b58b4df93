// SHA-1 with access to its chaining value, for HMAC's prepared states and PBKDF2's inner loop.
//
// OpenSSL 3.0 offers the SHA-1 compression function only through its low-level routines, which
// it marks deprecated; sha1.cpp is the one file that calls them. PBKDF2 needs that function: with
// the inner and outer states prepared, an HMAC of a 20-byte message is exactly one compression
// on each side, where the EVP interface costs several times that.
#pragma once

#include <openssl/sha.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace n7crypto::impl {

class Sha1 {
 public:
  static constexpr std::size_t kDigestSize = 20;
  static constexpr std::size_t kBlockSize = 64;

  // Ready for a message.
  Sha1() noexcept;
  Sha1(const Sha1&) noexcept = default;
  Sha1& operator=(const Sha1&) noexcept = default;
  // Wipes the state: it is derived from a key or a password.
  ~Sha1();

  void update(const void* data, std::size_t length) noexcept;
  // Writes the 20-byte digest of the message fed so far.
  void final(unsigned char* out) noexcept;

  // Takes the chaining value of `start`, which must hold no partial block, and compresses one
  // 64-byte `block` into it. The block carries its own padding when it ends the message.
  void compress_from(const Sha1& start, const unsigned char* block) noexcept;
  // The chaining value as 20 bytes, most significant first: the digest when the last block
  // compressed ended the message.
  void chaining_value(unsigned char* out) const noexcept {
    store_big_endian(context_.h0, out);
    store_big_endian(context_.h1, out + 4);
    store_big_endian(context_.h2, out + 8);
    store_big_endian(context_.h3, out + 12);
    store_big_endian(context_.h4, out + 16);
  }

 private:
  // One byte swap and one 4-byte store (x86-64 is little-endian): byte-wise stores here cost
  // as much as a tenth of PBKDF2's time.
  static void store_big_endian(SHA_LONG word, unsigned char* out) noexcept {
    const std::uint32_t swapped = __builtin_bswap32(word);
    std::memcpy(out, &swapped, sizeof swapped);
  }

  SHA_CTX context_;
};

}  // namespace n7crypto::impl
