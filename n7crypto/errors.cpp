#include "n7utility/n7crypto/errors.h"

namespace n7crypto::errors {

// Defined in one file so that they register while the library loads in this order, parents
// before their children.
const n7core::ErrorCode root("error.n7crypto", true);
const n7core::ErrorCode key("error.n7crypto.key", true);
const n7core::ErrorCode key_size("error.n7crypto.key.size", true);
const n7core::ErrorCode openssl("error.n7crypto.openssl", true);
const n7core::ErrorCode random_provider("error.n7crypto.randomProvider", true);
const n7core::ErrorCode random_provider_arguments("error.n7crypto.randomProvider.arguments", true);
const n7core::ErrorCode random_provider_failed("error.n7crypto.randomProvider.failed", true);
const n7core::ErrorCode rsa("error.n7crypto.rsa", true);
const n7core::ErrorCode rsa_cipher_data_size("error.n7crypto.rsa.cipherDataSize", true);
const n7core::ErrorCode rsa_decryption("error.n7crypto.rsa.decryption", true);
const n7core::ErrorCode rsa_encryption("error.n7crypto.rsa.encryption", true);
const n7core::ErrorCode rsa_key("error.n7crypto.rsa.key", true);
const n7core::ErrorCode rsa_keygen("error.n7crypto.rsa.keygen", true);
const n7core::ErrorCode rsa_keystore("error.n7crypto.rsa.keystore", true);
const n7core::ErrorCode rsa_keystore_cipher("error.n7crypto.rsa.keystore.cipher", true);
const n7core::ErrorCode rsa_keystore_decoding("error.n7crypto.rsa.keystore.decoding", true);
const n7core::ErrorCode rsa_keystore_decrypt("error.n7crypto.rsa.keystore.decrypt", true);
const n7core::ErrorCode rsa_keystore_encoding("error.n7crypto.rsa.keystore.encoding", true);
const n7core::ErrorCode rsa_keystore_password("error.n7crypto.rsa.keystore.password", true);
const n7core::ErrorCode rsa_padding("error.n7crypto.rsa.padding", true);
const n7core::ErrorCode rsa_padding_size("error.n7crypto.rsa.padding.size", true);
const n7core::ErrorCode rsa_padding_unknown("error.n7crypto.rsa.padding.unknown", true);
const n7core::ErrorCode rsa_padding_unsupported("error.n7crypto.rsa.padding.unsupported", true);
const n7core::ErrorCode rsa_plain_data_size("error.n7crypto.rsa.plainDataSize", true);
const n7core::ErrorCode rsa_signature("error.n7crypto.rsa.signature", true);
const n7core::ErrorCode rsa_signature_hash("error.n7crypto.rsa.signature.hash", true);
const n7core::ErrorCode rsa_signature_padding("error.n7crypto.rsa.signature.padding", true);
const n7core::ErrorCode rsa_signature_sign("error.n7crypto.rsa.signature.sign", true);
const n7core::ErrorCode rsa_signature_verify("error.n7crypto.rsa.signature.verify", true);
const n7core::ErrorCode srp("error.n7crypto.srp", true);
const n7core::ErrorCode srp_invalid_arg("error.n7crypto.srp.invalidArg", true);
const n7core::ErrorCode srp_invalid_arg_blob("error.n7crypto.srp.invalidArg.blob", true);
const n7core::ErrorCode srp_invalid_arg_hash_algorithm(
    "error.n7crypto.srp.invalidArg.hashAlgorithm", true);
const n7core::ErrorCode srp_invalid_arg_modulus_length(
    "error.n7crypto.srp.invalidArg.modulusLength", true);
const n7core::ErrorCode srp_invalid_arg_size("error.n7crypto.srp.invalidArg.size", true);
const n7core::ErrorCode srp_protocol_violation("error.n7crypto.srp.protocolViolation", true);

}  // namespace n7crypto::errors
