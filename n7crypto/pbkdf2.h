// PBKDF2 (RFC 8018) with HMAC-SHA-1: derives keys from passwords for the stored password values
// and for SRP.
#pragma once

#include <cstddef>

#include "n7utility/n7crypto/key.h"
#include "n7utility/platform/base/Export.h"

namespace n7crypto {

// `outLength` bytes derived from the password and the salt with `iterations` rounds (fewer than 1
// count as 1). An `outLength` below 1 gives an empty Key.
N7_EXPORT Key pbkdf2_sha1(const unsigned char* password, std::size_t passwordLength,
                          const unsigned char* salt, std::size_t saltLength, int iterations,
                          int outLength);

}  // namespace n7crypto
