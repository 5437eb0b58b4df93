// The extended password blob a server keeps for each user (salt, hash, algorithm, iteration count
// and the stored password value) and the public password properties it gives a client.
#include <charconv>
#include <exception>
#include <span>
#include <string_view>
#include <variant>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/Utility/Authentication_internal.h"
#include "n7utility/core/base64.h"
#include "n7utility/core/classic_stream.h"
#include "n7utility/core/serialize.h"
#include "n7utility/core/text.h"
#include "n7utility/n7crypto/digest.h"
#include "n7utility/n7crypto/errors.h"
#include "n7utility/n7crypto/key.h"
#include "n7utility/n7crypto/pbkdf2.h"
#include "n7utility/n7crypto/random_provider.h"
#include "n7utility/n7crypto/wipe.h"
#include "n7utility/n7xml/reader.h"

namespace N7A {

using n7crypto::WipeOnExit;

const char EXTENDED_PASSWORD_FIELDS_ROOT[] = "passwd-props";
const char EXTENDED_PASSWORD_FIELD_SALT[] = "salt";
const char EXTENDED_PASSWORD_FIELD_PASSWD_HASH[] = "passwd-hash";
const char EXTENDED_PASSWORD_FIELD_ALGORITHM[] = "alg";
const char EXTENDED_PASSWORD_FIELD_ITERATIONS[] = "iterations";
const char EXTENDED_PASSWORD_FIELD_LEGACY[] = "legacy";
const char EXTENDED_PASSWORD_ALGORITHM_PBKDF2_SHA256[] = "PBKDF2-SHA256";
const char EXTENDED_PASSWORD_ALGORITHM_LEGACY[] = "legacy";

namespace {

constexpr std::size_t kSaltSize = 32;
constexpr std::size_t kHashSize = 32;
constexpr int kBlobIterations = 1024;
constexpr std::string_view kBlanks = " \r\n\t";

// A blob field's value: base64 and names as narrow text, the count as an int, the stored
// MakePassword value as wide text. The texts are views of the caller's strings, so that no copy
// of a secret is made on the way into the blob.
using BlobValue = std::variant<std::string_view, int, std::wstring_view>;
struct BlobField {
  const char* name;
  BlobValue value;
};

std::string write_blob(std::span<const BlobField> fields) {
  n7crypto::SecretOStream out;
  n7serialize::TextWriter::Options options;
  options.ascii_only(true);
  options.escape_spaces(false);
  n7serialize::TextWriter writer(out, options);
  writer.write_marker_start();
  writer.write_sequence_start();
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i != 0) writer.write_sequence_separator();
    writer.write_marker_start();
    writer << fields[i].name;
    std::visit([&writer](const auto& value) { writer << value; }, fields[i].value);
    writer.write_marker_end();
  }
  writer.write_sequence_end();
  writer.write_marker_end();
  writer.close();
  return std::string(out.text().view());
}

std::string trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

int algorithm_of(std::string_view name) {
  if (name == EXTENDED_PASSWORD_ALGORITHM_PBKDF2_SHA256) return impl::kAlgorithmPbkdf2Sha256;
  if (name == EXTENDED_PASSWORD_ALGORITHM_LEGACY) return impl::kAlgorithmLegacy;
  return impl::kAlgorithmNone;
}

const char* algorithm_name(int algorithm) {
  return algorithm == impl::kAlgorithmPbkdf2Sha256 ? EXTENDED_PASSWORD_ALGORITHM_PBKDF2_SHA256
                                                   : EXTENDED_PASSWORD_ALGORITHM_LEGACY;
}

// Base64 of a secret, decoded into `out`; the text is wiped whatever happens.
void decode_secret(std::string text, std::vector<unsigned char>& out) {
  const WipeOnExit wipe(text);
  out = impl::decode_base64(text);
}

// The stored value of a legacy field, trimmed; the text as read is wiped.
std::string read_legacy(n7serialize::TextReader& reader) {
  std::string text = reader.read_string();
  const WipeOnExit wipe(text);
  return trim(text);
}

// Reads the value of the field `name` into its output, when it was given and the name is known;
// otherwise the value stays unread for read_marker_end() to skip.
void read_blob_field(n7serialize::TextReader& reader, const std::string& name,
                     std::vector<unsigned char>* salt, std::vector<unsigned char>* hash,
                     int* algorithm, int* iterations, std::string* legacy) {
  if (name == EXTENDED_PASSWORD_FIELD_PASSWD_HASH && hash != nullptr) {
    decode_secret(reader.read_string(), *hash);
  } else if (name == EXTENDED_PASSWORD_FIELD_LEGACY && legacy != nullptr) {
    *legacy = read_legacy(reader);
  } else if (name == EXTENDED_PASSWORD_FIELD_SALT && salt != nullptr) {
    *salt = impl::decode_base64(reader.read_string());
  } else if (name == EXTENDED_PASSWORD_FIELD_ALGORITHM && algorithm != nullptr) {
    *algorithm = algorithm_of(reader.read_string());
  } else if (name == EXTENDED_PASSWORD_FIELD_ITERATIONS && iterations != nullptr) {
    *iterations = reader.read_int();
  }
}

unsigned int parse_iterations(std::string_view text) {
  unsigned int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? value : 0;
}

}  // namespace

namespace impl {

n7crypto::Key legacy_password_key(const std::vector<unsigned char>& salt, const std::string& userId,
                                  const std::string& legacyPassword) {
  n7crypto::Key inner(n7crypto::Sha256::kDigestSize);
  n7crypto::Key hash(n7crypto::Sha256::kDigestSize);
  {
    n7crypto::Sha256 sha;
    sha.update(userId.data(), userId.size());
    sha.update(":", 1);
    sha.update(legacyPassword.data(), legacyPassword.size());
    sha.final(inner.data());
  }
  n7crypto::Sha256 sha;
  sha.update(salt.data(), salt.size());
  sha.update(inner.data(), inner.size());
  sha.final(hash.data());
  return hash;
}

void raise_blob_error(const char* message, const char* function, int line) {
  n7core::throw_error(n7crypto::errors::srp_invalid_arg_blob, message,
                      n7core::SourceLocation(function, kSourceFile, line));
}

std::vector<unsigned char> decode_base64(std::string_view text) {
  return n7core::base64_decode(text, n7core::Base64LoneGroup::kAccept);
}

void crack_extended_password_blob(const std::string& blob, std::vector<unsigned char>* salt,
                                  std::vector<unsigned char>* hash, int* algorithm, int* iterations,
                                  std::string* legacy) {
  if (salt != nullptr) salt->clear();
  if (hash != nullptr) hash->clear();
  if (algorithm != nullptr) *algorithm = kAlgorithmNone;
  if (iterations != nullptr) *iterations = 0;
  if (legacy != nullptr) legacy->clear();
  if (blob.empty()) {
    raise_blob_error("Ill-formatted (empty) password blob", "impl::crack_extended_password_blob()",
                     __LINE__);
  }
  // A damaged blob still yields what was read before the damage: callers decide from the
  // fields they got, so the reading error itself is dropped.
  try {
    n7serialize::TextReader reader(blob);
    reader.read_marker_start();
    reader.read_sequence_start();
    while (reader.read_sequence_next()) {
      reader.read_marker_start();
      const std::string name = reader.read_string();
      read_blob_field(reader, name, salt, hash, algorithm, iterations, legacy);
      reader.read_marker_end();
    }
    reader.read_marker_end();
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): see above
  }
}

void crack_public_password_props(const std::string& props, std::vector<unsigned char>* salt,
                                 int* algorithm, unsigned int* iterations) {
  static constexpr char kFunction[] = "impl::crack_public_password_props()";
  if (salt != nullptr) salt->clear();
  if (algorithm != nullptr) *algorithm = kAlgorithmNone;
  if (iterations != nullptr) *iterations = 0;
  if (props.empty()) raise_blob_error("Ill-formatted password blob", kFunction, __LINE__);
  try {
    n7xml::XmlReader reader(props);
    if (!reader.read() || reader.node_kind() != n7xml::NodeKind::Element ||
        reader.name() != EXTENDED_PASSWORD_FIELDS_ROOT) {
      return;
    }
    // Reading on to the end checks the whole document, not just the elements wanted.
    while (reader.read()) {
      if (reader.node_kind() != n7xml::NodeKind::Element || reader.depth() != 2) continue;
      const std::string& name = reader.name();
      if (name == EXTENDED_PASSWORD_FIELD_ALGORITHM && algorithm != nullptr) {
        const int found = algorithm_of(trim(reader.read_element_text()));
        if (found != kAlgorithmNone) *algorithm = found;
      } else if (name == EXTENDED_PASSWORD_FIELD_ITERATIONS && iterations != nullptr) {
        *iterations = parse_iterations(trim(reader.read_element_text()));
      } else if (name == EXTENDED_PASSWORD_FIELD_SALT && salt != nullptr) {
        *salt = decode_base64(trim(reader.read_element_text()));
      }
    }
  } catch (const std::exception&) {
    raise_blob_error("Ill-formatted password blob", kFunction, __LINE__);
  }
}

std::string make_public_password_props(const unsigned char* salt, std::size_t saltLength,
                                       int algorithm, int iterations) {
  n7core::ClassicOStringStream out;
  out << '<' << EXTENDED_PASSWORD_FIELDS_ROOT << ">\r\n";
  out << "  <salt>" << n7core::base64_encode(salt, salt != nullptr ? saltLength : 0)
      << "</salt>\r\n";
  out << "  <alg>" << algorithm_name(algorithm) << "</alg>\r\n";
  if (algorithm == kAlgorithmPbkdf2Sha256) {
    out << "  <iterations>" << iterations << "</iterations>\r\n";
  }
  out << "</" << EXTENDED_PASSWORD_FIELDS_ROOT << ">\r\n";
  return out.str();
}

}  // namespace impl

bool LooksLikeExtendedPassword(const std::string& text, std::string* legacy) {
  if (text.empty()) {
    if (legacy != nullptr) legacy->clear();
    return false;
  }
  std::vector<unsigned char> hash;
  impl::crack_extended_password_blob(text, nullptr, &hash, nullptr, nullptr, legacy);
  const bool found = !hash.empty();
  n7crypto::wipe(hash);
  return found;
}

std::string MdgM2(const std::string& userId, const std::string& password) {
  std::vector<unsigned char> salt(kSaltSize);
  n7crypto::get_default_random_provider()->generate_random(salt.data(),
                                                           static_cast<int>(salt.size()));
  // A salt never starts with a zero byte, so its big-number form keeps its full length.
  if (salt[0] == 0x00) salt[0] = 0x80;
  const n7crypto::Key hash = n7crypto::pbkdf2_sha1(
      reinterpret_cast<const unsigned char*>(password.data()), password.size(), salt.data(),
      salt.size(), kBlobIterations, static_cast<int>(kHashSize));
  std::wstring widePassword = n7core::to_wstring(password);
  const WipeOnExit wipePassword(widePassword);
  const std::string saltText = n7core::base64_encode(salt.data(), salt.size());
  std::string hashText = n7core::base64_encode(hash.data(), hash.size());
  const WipeOnExit wipeHash(hashText);
  std::wstring stored = MakePassword(n7core::to_wstring(userId), widePassword);
  const WipeOnExit wipeStored(stored);
  const BlobField fields[] = {
      {EXTENDED_PASSWORD_FIELD_SALT, saltText},
      {EXTENDED_PASSWORD_FIELD_PASSWD_HASH, hashText},
      {EXTENDED_PASSWORD_FIELD_ALGORITHM, EXTENDED_PASSWORD_ALGORITHM_PBKDF2_SHA256},
      {EXTENDED_PASSWORD_FIELD_ITERATIONS, kBlobIterations},
      {EXTENDED_PASSWORD_FIELD_LEGACY, stored},
  };
  return write_blob(fields);
}

CString MdgM2(const CString& userId, const CString& password) {
  std::string narrowPassword = n7core::to_string(password.str());
  const WipeOnExit wipePassword(narrowPassword);
  std::string blob = MdgM2(n7core::to_string(userId.str()), narrowPassword);
  const WipeOnExit wipeBlob(blob);
  return CString(n7core::to_wstring(blob));
}

void MakeLegacyExtendedPasswordBlob(const std::vector<unsigned char>& salt,
                                    const std::string& userId, const std::string& legacyPassword,
                                    std::string& blob) {
  const std::string saltText = n7core::base64_encode(salt.data(), salt.size());
  std::string hashText;
  const WipeOnExit wipeHash(hashText);
  if (!userId.empty()) {
    const n7crypto::Key hash = impl::legacy_password_key(salt, userId, legacyPassword);
    hashText = n7core::base64_encode(hash.data(), hash.size());
  }
  const BlobField fields[] = {
      {EXTENDED_PASSWORD_FIELD_SALT, saltText},
      {EXTENDED_PASSWORD_FIELD_ALGORITHM, EXTENDED_PASSWORD_ALGORITHM_LEGACY},
      {EXTENDED_PASSWORD_FIELD_PASSWD_HASH, hashText},
  };
  blob = write_blob(std::span<const BlobField>(fields, userId.empty() ? 2 : 3));
}

std::string MakeLegacyPublicPasswordProperties(const unsigned char* salt, unsigned int saltLength) {
  return impl::make_public_password_props(salt, saltLength, impl::kAlgorithmLegacy, 0);
}

}  // namespace N7A
