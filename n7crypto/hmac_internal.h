// HMAC-SHA-1 (RFC 2104) with prepared inner and outer states, the pseudo-random function of
// PBKDF2.
//
// The key is absorbed once, at construction: each message then starts from the prepared inner
// state, and finishing it resumes the prepared outer state, so a short message costs two SHA-1
// compressions instead of four.
#pragma once

#include <cstddef>

#include "n7utility/n7crypto/sha1_internal.h"

namespace n7crypto::impl {

class Hmac {
 public:
  static constexpr std::size_t kDigestSize = Sha1::kDigestSize;

  // Prepares the states for `key` (a key longer than a block is replaced by its digest) and
  // starts a message.
  Hmac(const unsigned char* key, std::size_t keyLength) noexcept;
  Hmac(const Hmac&) = delete;
  Hmac& operator=(const Hmac&) = delete;
  ~Hmac();

  // Starts a new message.
  void reset() noexcept;
  void update(const unsigned char* data, std::size_t length) noexcept;
  // Writes the 20-byte HMAC of the message; reset() before the next message.
  void final(unsigned char* out) noexcept;

  // PBKDF2's inner loop, `rounds` times: u = HMAC(u), then t ^= u. Each HMAC of a 20-byte
  // message is one compression per side; the message in progress is left alone.
  void xor_chained_macs(unsigned char* u, unsigned char* t, int rounds) noexcept;

 private:
  Sha1 inner_;
  Sha1 outer_;
  Sha1 work_;   // the message in progress
  Sha1 chain_;  // xor_chained_macs's compressions
  // A digest-sized message as the block that follows a prepared state: the message, then the
  // padding of a 84-byte message. Holds secrets between calls; wiped on destruction.
  unsigned char digest_block_[Sha1::kBlockSize];
};

}  // namespace n7crypto::impl
