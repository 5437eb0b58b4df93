// The error codes of the cryptographic engine, one process-wide object per dotted name. Every
// failure of the engine, and of the authentication functions built on it, is an
// n7core::ErrorException with one of these codes. The codes under rsa and key are registered for
// the hosts that look them up by name; nothing in this library raises them.
#pragma once

#include "n7utility/core/error.h"
#include "n7utility/platform/base/Export.h"

namespace n7crypto::errors {

N7_EXPORT extern const n7core::ErrorCode root;  // "error.n7crypto" itself
N7_EXPORT extern const n7core::ErrorCode key;
N7_EXPORT extern const n7core::ErrorCode key_size;
N7_EXPORT extern const n7core::ErrorCode openssl;
N7_EXPORT extern const n7core::ErrorCode random_provider;
N7_EXPORT extern const n7core::ErrorCode random_provider_arguments;
N7_EXPORT extern const n7core::ErrorCode random_provider_failed;
N7_EXPORT extern const n7core::ErrorCode rsa;
N7_EXPORT extern const n7core::ErrorCode rsa_cipher_data_size;
N7_EXPORT extern const n7core::ErrorCode rsa_decryption;
N7_EXPORT extern const n7core::ErrorCode rsa_encryption;
N7_EXPORT extern const n7core::ErrorCode rsa_key;
N7_EXPORT extern const n7core::ErrorCode rsa_keygen;
N7_EXPORT extern const n7core::ErrorCode rsa_keystore;
N7_EXPORT extern const n7core::ErrorCode rsa_keystore_cipher;
N7_EXPORT extern const n7core::ErrorCode rsa_keystore_decoding;
N7_EXPORT extern const n7core::ErrorCode rsa_keystore_decrypt;
N7_EXPORT extern const n7core::ErrorCode rsa_keystore_encoding;
N7_EXPORT extern const n7core::ErrorCode rsa_keystore_password;
N7_EXPORT extern const n7core::ErrorCode rsa_padding;
N7_EXPORT extern const n7core::ErrorCode rsa_padding_size;
N7_EXPORT extern const n7core::ErrorCode rsa_padding_unknown;
N7_EXPORT extern const n7core::ErrorCode rsa_padding_unsupported;
N7_EXPORT extern const n7core::ErrorCode rsa_plain_data_size;
N7_EXPORT extern const n7core::ErrorCode rsa_signature;
N7_EXPORT extern const n7core::ErrorCode rsa_signature_hash;
N7_EXPORT extern const n7core::ErrorCode rsa_signature_padding;
N7_EXPORT extern const n7core::ErrorCode rsa_signature_sign;
N7_EXPORT extern const n7core::ErrorCode rsa_signature_verify;
N7_EXPORT extern const n7core::ErrorCode srp;
N7_EXPORT extern const n7core::ErrorCode srp_invalid_arg;
N7_EXPORT extern const n7core::ErrorCode srp_invalid_arg_blob;
N7_EXPORT extern const n7core::ErrorCode srp_invalid_arg_hash_algorithm;
N7_EXPORT extern const n7core::ErrorCode srp_invalid_arg_modulus_length;
N7_EXPORT extern const n7core::ErrorCode srp_invalid_arg_size;
N7_EXPORT extern const n7core::ErrorCode srp_protocol_violation;

}  // namespace n7crypto::errors
