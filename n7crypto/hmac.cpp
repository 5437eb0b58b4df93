#include "n7utility/n7crypto/hmac_internal.h"

#include <cstdint>
#include <cstring>

#include "n7utility/n7crypto/wipe.h"

namespace n7crypto::impl {
namespace {

constexpr unsigned char kInnerPad = 0x36;
constexpr unsigned char kOuterPad = 0x5c;

// The padding after a 20-byte message that follows one prepared block: the end mark, zeros and
// the message length in bits (84 bytes = 672 = 0x2A0), most significant byte first.
void pad_digest_block(unsigned char* block) {
  std::memset(block + Sha1::kDigestSize, 0, Sha1::kBlockSize - Sha1::kDigestSize);
  block[Sha1::kDigestSize] = 0x80;
  block[Sha1::kBlockSize - 2] = 0x02;
  block[Sha1::kBlockSize - 1] = 0xA0;
}

// t ^= u over one digest, in 32-bit words: the width in which the digest was just stored, so
// the loads take the stored values straight from the store buffer.
void xor_digest(unsigned char* t, const unsigned char* u) {
  for (std::size_t at = 0; at < Sha1::kDigestSize; at += sizeof(std::uint32_t)) {
    std::uint32_t t_word, u_word;
    std::memcpy(&t_word, t + at, sizeof t_word);
    std::memcpy(&u_word, u + at, sizeof u_word);
    t_word ^= u_word;
    std::memcpy(t + at, &t_word, sizeof t_word);
  }
}

}  // namespace

Hmac::Hmac(const unsigned char* key, std::size_t keyLength) noexcept {
  unsigned char inner_block[Sha1::kBlockSize] = {};
  unsigned char outer_block[Sha1::kBlockSize];
  if (keyLength > Sha1::kBlockSize) {
    Sha1 key_digest;
    key_digest.update(key, keyLength);
    key_digest.final(inner_block);
  } else if (keyLength != 0) {
    std::memcpy(inner_block, key, keyLength);
  }
  for (std::size_t i = 0; i < Sha1::kBlockSize; ++i) {
    outer_block[i] = static_cast<unsigned char>(inner_block[i] ^ kOuterPad);
    inner_block[i] = static_cast<unsigned char>(inner_block[i] ^ kInnerPad);
  }
  inner_.update(inner_block, sizeof inner_block);
  outer_.update(outer_block, sizeof outer_block);
  n7crypto::wipe(inner_block, sizeof inner_block);
  n7crypto::wipe(outer_block, sizeof outer_block);
  pad_digest_block(digest_block_);
  reset();
}

Hmac::~Hmac() { n7crypto::wipe(digest_block_, sizeof digest_block_); }

void Hmac::reset() noexcept { work_ = inner_; }

void Hmac::update(const unsigned char* data, std::size_t length) noexcept {
  work_.update(data, length);
}

void Hmac::final(unsigned char* out) noexcept {
  unsigned char inner_digest[kDigestSize];
  work_.final(inner_digest);
  work_ = outer_;
  work_.update(inner_digest, sizeof inner_digest);
  work_.final(out);
  n7crypto::wipe(inner_digest, sizeof inner_digest);
}

void Hmac::xor_chained_macs(unsigned char* u, unsigned char* t, int rounds) noexcept {
  std::memcpy(digest_block_, u, kDigestSize);
  for (int round = 0; round < rounds; ++round) {
    chain_.compress_from(inner_, digest_block_);
    chain_.chaining_value(digest_block_);
    chain_.compress_from(outer_, digest_block_);
    chain_.chaining_value(digest_block_);
    xor_digest(t, digest_block_);
  }
  std::memcpy(u, digest_block_, kDigestSize);
}

}  // namespace n7crypto::impl
