#include "n7utility/n7crypto/pbkdf2.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "n7utility/n7crypto/hmac_internal.h"
#include "n7utility/n7crypto/wipe.h"

namespace n7crypto {
namespace {

using impl::Hmac;

// A digest-sized temporary that is wiped when it goes out of scope.
struct WipedDigest {
  unsigned char bytes[Hmac::kDigestSize];
  WipedDigest() = default;
  WipedDigest(const WipedDigest&) = delete;
  WipedDigest& operator=(const WipedDigest&) = delete;
  ~WipedDigest() { n7crypto::wipe(bytes, sizeof bytes); }
};

// T_i: U_1 = HMAC(salt || i as 4 bytes, most significant first), U_j = HMAC(U_(j-1)), and T_i
// the XOR of all of them.
void derive_block(Hmac& hmac, const unsigned char* salt, std::size_t saltLength,
                  std::uint32_t index, int iterations, WipedDigest& t) {
  const unsigned char counter[4] = {
      static_cast<unsigned char>(index >> 24), static_cast<unsigned char>(index >> 16),
      static_cast<unsigned char>(index >> 8), static_cast<unsigned char>(index)};
  WipedDigest u;
  hmac.reset();
  hmac.update(salt, saltLength);
  hmac.update(counter, sizeof counter);
  hmac.final(u.bytes);
  std::memcpy(t.bytes, u.bytes, sizeof t.bytes);
  hmac.xor_chained_macs(u.bytes, t.bytes, iterations - 1);
}

}  // namespace

Key pbkdf2_sha1(const unsigned char* password, std::size_t passwordLength,
                const unsigned char* salt, std::size_t saltLength, int iterations, int outLength) {
  if (outLength < 1) return Key();
  Hmac hmac(password, passwordLength);
  Key derived(static_cast<std::size_t>(outLength));
  WipedDigest t;
  std::uint32_t index = 1;
  for (std::size_t offset = 0; offset < derived.size(); offset += sizeof t.bytes, ++index) {
    derive_block(hmac, salt, saltLength, index, iterations, t);
    std::memcpy(derived.data() + offset, t.bytes,
                std::min(sizeof t.bytes, derived.size() - offset));
  }
  return derived;
}

}  // namespace n7crypto
