#include "Utility/Authentication.h"

#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <exception>
#include <span>
#include <sstream>
#include <string_view>
#include <utility>
#include <variant>

#include "Utility/Authentication_internal.h"
#include "core/base64.h"
#include "core/classic_stream.h"
#include "core/safe_cast.h"
#include "core/serialize.h"
#include "core/text.h"
#include "n7crypto/digest.h"
#include "n7crypto/errors.h"
#include "n7crypto/key.h"
#include "n7crypto/pbkdf2.h"
#include "n7crypto/random_provider.h"
#include "n7crypto/srp.h"
#include "n7crypto/wipe.h"
#include "n7xml/reader.h"
#include "platform/TextCodec.h"

namespace N7A {
namespace {

constexpr std::size_t kStoredLength = 2 * impl::kDigestTextLength;
constexpr std::size_t kChallengeSize = 16;
constexpr int kPbkdf2Iterations = 4096;
constexpr int kPbkdf2DigestSize = 16;
constexpr unsigned char kPbkdf2Marker = 0x11;
constexpr wchar_t kAlphabet[] = L"$ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz1234567890.";
// The keypad digit of each letter from A to Z.
constexpr char kKeypadDigits[] = "22233344455566677778889999";
// Character 21 of a digest text holds the high nibble of the form marker: these four say 0x1.
constexpr std::wstring_view kPbkdf2FormCharacters = L"AQgw";

using n7crypto::WipeOnExit;

// Wide text as UTF-16 code units, low byte first, in a buffer that is wiped when released: the
// bytes a digest made on Windows reads. A value that UTF-16 cannot carry (above U+10FFFF) is
// taken as U+FFFD; a lone surrogate is kept as the unit it is.
class Utf16Bytes {
 public:
  Utf16Bytes(std::wstring_view text, bool withTerminator) : bytes_(size_of(text, withTerminator)) {
    unsigned char* out = bytes_.data();
    for (const wchar_t c : text) {
      n7platform::codec::EncodeUtf16(encodable(c), [&out](char16_t unit) {
        *out++ = static_cast<unsigned char>(unit);
        *out++ = static_cast<unsigned char>(unit >> 8);
      });
    }
  }

  const unsigned char* data() const { return bytes_.data(); }
  std::size_t size() const { return bytes_.size(); }

 private:
  static char32_t encodable(wchar_t c) {
    const auto value = static_cast<char32_t>(c);  // NOLINT(bugprone-signed-char-misuse)
    return value <= n7platform::codec::kMaxCodePoint ? value
                                                     : n7platform::codec::kReplacementCharacter;
  }

  static std::size_t size_of(std::wstring_view text, bool withTerminator) {
    std::size_t units = withTerminator ? 1 : 0;
    for (const wchar_t c : text) units += n7platform::codec::Utf16Length(encodable(c));
    return 2 * units;
  }

  n7crypto::Key bytes_;  // zero-filled: the terminator is already there
};

void update_with_terminator(n7crypto::Md5& md5, const std::wstring& text) {
  const Utf16Bytes bytes(text, true);
  md5.update(bytes.data(), bytes.size());
}

std::wstring md5_digest_text(const std::wstring& lowered, const std::wstring& password,
                             bool keypad) {
  n7crypto::Md5 md5;
  if (keypad) md5.update("D", 1);
  update_with_terminator(md5, lowered);
  update_with_terminator(md5, password);
  unsigned char block[impl::kDigestBlockSize] = {};
  md5.final(block);
  return impl::encode_digest_text(block);
}

std::wstring pbkdf2_digest_text(std::wstring lowered, const std::wstring& password, bool keypad) {
  if (keypad) {
    lowered.push_back(wchar_t{1});
    lowered.push_back(L'D');
  }
  const Utf16Bytes key(lowered, false);
  const Utf16Bytes salt(password, false);
  const n7crypto::Key derived = n7crypto::pbkdf2_sha1(
      key.data(), key.size(), salt.data(), salt.size(), kPbkdf2Iterations, kPbkdf2DigestSize);
  unsigned char block[impl::kDigestBlockSize];
  std::memcpy(block, derived.data(), kPbkdf2DigestSize);
  block[kPbkdf2DigestSize] = kPbkdf2Marker;
  block[kPbkdf2DigestSize + 1] = kPbkdf2Marker;
  std::wstring text = impl::encode_digest_text(block);
  n7crypto::wipe(block, sizeof block);
  return text;
}

// Classification as the Windows runtime does it, for every character whatever the process's
// locale: letters outside A to Z are letters too, and so are dropped rather than marked.
locale_t unicode_ctype() {
  static const locale_t locale = [] {
    locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{});
    return unicode != locale_t{} ? unicode : newlocale(LC_CTYPE_MASK, "C", locale_t{});
  }();
  return locale;
}

// Compares in a time that does not depend on where the texts differ.
bool same_text(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  wchar_t difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i) difference |= a[i] ^ b[i];
  return difference == 0;
}

}  // namespace

namespace impl {

std::wstring encode_digest_text(const unsigned char* block) {
  std::wstring text;
  text.reserve(kDigestBlockSize / 3 * 4);
  for (std::size_t i = 0; i < kDigestBlockSize; i += 3) {
    const unsigned b0 = block[i], b1 = block[i + 1], b2 = block[i + 2];
    text.push_back(kAlphabet[b0 >> 2]);
    text.push_back(kAlphabet[((b0 & 3) << 4) | (b1 >> 4)]);
    text.push_back(kAlphabet[((b1 & 15) << 2) | (b2 >> 6)]);
    text.push_back(kAlphabet[b2 & 63]);
  }
  text.resize(kDigestTextLength);
  return text;
}

std::wstring make_password_digest(const std::wstring& userId, const std::wstring& password,
                                  bool keypad, bool pbkdf2) {
  if (password.empty()) return {};
  std::wstring lowered = lower_copy(userId);
  return pbkdf2 ? pbkdf2_digest_text(std::move(lowered), password, keypad)
                : md5_digest_text(lowered, password, keypad);
}

std::wstring lower_copy(const std::wstring& text) {
  std::wstring lowered = text;
  for (wchar_t& c : lowered) {
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
  }
  return lowered;
}

}  // namespace impl

std::wstring KeyMap(const std::wstring& text, bool markOthers) {
  const locale_t ctype = unicode_ctype();
  std::wstring keys;
  keys.reserve(text.size());  // one allocation: no copy of a password is left behind
  for (const wchar_t c : text) {
    const auto wide = static_cast<wint_t>(static_cast<std::uint32_t>(c));
    if (iswdigit_l(wide, ctype) != 0) {
      keys.push_back(c);
    } else if (iswalpha_l(wide, ctype) != 0) {
      const auto upper = static_cast<wchar_t>(towupper_l(wide, ctype));
      if (upper >= L'A' && upper <= L'Z') keys.push_back(kKeypadDigits[upper - L'A']);
    } else if (markOthers) {
      keys.push_back(L'*');
    }
  }
  return keys;
}

std::wstring MakePassword(const std::wstring& userId, const std::wstring& password) {
  if (password.empty()) return {};
  std::wstring keypad_form = KeyMap(password, false);
  const WipeOnExit wipe_keypad(keypad_form);
  std::wstring typed = impl::make_password_digest(userId, password, false, false);
  const WipeOnExit wipe_typed(typed);
  std::wstring dialled = impl::make_password_digest(userId, keypad_form, true, false);
  const WipeOnExit wipe_dialled(dialled);
  std::wstring stored;
  stored.reserve(typed.size() + dialled.size());
  stored.append(typed).append(dialled);
  return stored;
}

CString MakePassword(const wchar_t* userId, const wchar_t* password) {
  std::wstring password_copy(password != nullptr ? password : L"");
  const WipeOnExit wipe(password_copy);
  return CString(MakePassword(std::wstring(userId != nullptr ? userId : L""), password_copy));
}

bool Validate(const std::wstring& userId, const std::wstring& password, bool keypad,
              const std::wstring& stored) {
  if (password.empty() || stored.size() != kStoredLength) return false;
  const bool pbkdf2 =
      kPbkdf2FormCharacters.find(stored[impl::kDigestTextLength - 1]) != std::wstring_view::npos;
  std::wstring digest = impl::make_password_digest(userId, password, keypad, pbkdf2);
  const WipeOnExit wipe(digest);
  const std::size_t half = keypad ? impl::kDigestTextLength : 0;
  return same_text(digest, std::wstring_view{stored}.substr(half, impl::kDigestTextLength));
}

void MdgC(const unsigned char* data, int length, unsigned char* digest) {
  n7crypto::Md5 md5;
  md5.update(data, static_cast<std::size_t>(std::max(length, 0)));
  md5.final(digest);
}

void MdgR(const std::wstring& userId, const std::wstring& password, const unsigned char* challenge,
          unsigned char* digest) {
  n7crypto::Md5 md5;
  update_with_terminator(md5, impl::lower_copy(userId));
  update_with_terminator(md5, password);
  md5.update(challenge, kChallengeSize);
  md5.final(digest);
}

void MdgR(const std::wstring& userId, const unsigned char* first, const unsigned char* second,
          unsigned char* digest) {
  n7crypto::Md5 md5;
  update_with_terminator(md5, impl::lower_copy(userId));
  md5.update(first, kChallengeSize);
  md5.update(second, kChallengeSize);
  md5.final(digest);
}

}  // namespace N7A

// ---- The extended password blob and the public password properties ----

namespace N7A {

const char EXTENDED_PASSWORD_FIELDS_ROOT[] = "passwd-props";
const char EXTENDED_PASSWORD_FIELD_SALT[] = "salt";
const char EXTENDED_PASSWORD_FIELD_PASSWD_HASH[] = "passwd-hash";
const char EXTENDED_PASSWORD_FIELD_ALGORITHM[] = "alg";
const char EXTENDED_PASSWORD_FIELD_ITERATIONS[] = "iterations";
const char EXTENDED_PASSWORD_FIELD_LEGACY[] = "legacy";
const char EXTENDED_PASSWORD_ALGORITHM_PBKDF2_SHA256[] = "PBKDF2-SHA256";
const char EXTENDED_PASSWORD_ALGORITHM_LEGACY[] = "legacy";

namespace {

constexpr char kFileLabel[] = "Utility/Authentication";
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

// x of a "legacy" blob: SHA-256(salt, SHA-256(userId ":" legacyPassword)), the user ID as given.
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

[[noreturn]] void raise_blob_error(const char* message, const char* function, int line) {
  n7core::throw_error(n7crypto::errors::srp_invalid_arg_blob, message,
                      n7core::SourceLocation(function, kFileLabel, line));
}

}  // namespace

namespace impl {

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
    const n7crypto::Key hash = legacy_password_key(salt, userId, legacyPassword);
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

// ---- The SRP-6a login ----

namespace N7A {
namespace {

constexpr char kCreateM1[] = "N7Authentication::SRPClientCreateM1()";
constexpr char kValidateM2[] = "N7Authentication::SRPClientValidateM2()";
constexpr char kRound1[] = "N7Authentication::MakeExtendedChallengeRound1()";
constexpr char kRound2[] = "N7Authentication::MakeExtendedChallengeRound2()";
// The iteration counts a client accepts from a server: enough for any real blob, while a hostile
// server cannot make the client derive x for minutes.
constexpr int kMinIterations = 1;
constexpr int kMaxIterations = 10'000'000;

const n7crypto::SrpContext& srp() { return n7crypto::get_default_srp_context(); }

n7crypto::IRandomProvider& random_source() { return *n7crypto::get_default_random_provider(); }

// The bytes of a vector as the SRP context takes them: an empty vector as a null pointer, which
// the context counts as no bytes.
const unsigned char* data_of(const std::vector<unsigned char>& bytes) {
  return bytes.empty() ? nullptr : bytes.data();
}

const unsigned char* data_of(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

void copy_to(const n7crypto::Key& from, std::vector<unsigned char>& to) {
  to.assign(from.data(), from.data() + from.size());
}

// A blob from which no password hash can be read would give the verifier g^0 = 1, which a client
// using x = 0 satisfies without knowing the password: both server rounds refuse it before
// anything is computed.
void require_password_hash(const std::vector<unsigned char>& hash, const char* function, int line) {
  if (hash.empty()) raise_blob_error("Ill-formatted (empty) password blob", function, line);
}

// The peer's iteration count as the derivation takes it. Counts beyond an int fail the checked
// cast; counts outside the accepted range are refused as out of range the same way.
int bounded_iterations(unsigned int iterations) {
  const int count = n7core::safe_cast<int>(iterations);
  if (count < kMinIterations || count > kMaxIterations) {
    n7core::safe_cast_throw_value_truncated("int32_t", std::int64_t{count});
  }
  return count;
}

void require_known_algorithm(int algorithm, const char* function, int line) {
  if (algorithm != impl::kAlgorithmPbkdf2Sha256 && algorithm != impl::kAlgorithmLegacy) {
    n7core::throw_error(n7crypto::errors::srp_invalid_arg_hash_algorithm, "Unknown hash algorithm",
                        n7core::SourceLocation(function, kFileLabel, line));
  }
}

// x of a "legacy" blob from the password itself: the blob holds the hash of the stored
// MakePassword value, so the client makes that value first.
n7crypto::Key legacy_password_key_of(const std::vector<unsigned char>& salt,
                                     const std::string& userId, const std::string& password) {
  std::wstring widePassword = n7core::to_wstring(password);
  const WipeOnExit wipePassword(widePassword);
  std::wstring stored = MakePassword(n7core::to_wstring(userId), widePassword);
  const WipeOnExit wipeStored(stored);
  std::string narrowStored = n7core::to_string(stored);
  const WipeOnExit wipeNarrow(narrowStored);
  return legacy_password_key(salt, userId, narrowStored);
}

// The password key x the server's verifier was made from, derived as the properties say.
n7crypto::Key password_key(const std::string& userId, const std::string& password,
                           const std::vector<unsigned char>& salt, int algorithm,
                           unsigned int iterations) {
  require_known_algorithm(algorithm, kCreateM1, __LINE__);
  if (algorithm == impl::kAlgorithmLegacy) return legacy_password_key_of(salt, userId, password);
  return n7crypto::pbkdf2_sha1(data_of(password), password.size(), data_of(salt), salt.size(),
                               bounded_iterations(iterations),
                               static_cast<int>(srp().digest_size()));
}

}  // namespace

void SRPClientCreateA(n7crypto::Key& a, std::vector<unsigned char>& A) {
  const n7crypto::Key challenge = srp().client_create_challenge(a, random_source(), 0);
  copy_to(challenge, A);
}

void SRPClientCreateM1(const std::string& userId, const std::string& password,
                       const std::string& props, const std::vector<unsigned char>& /*unusedSalt*/,
                       const n7crypto::Key& a, const std::vector<unsigned char>& A,
                       const std::vector<unsigned char>& B, n7crypto::Key& K,
                       std::vector<unsigned char>& M1) {
  std::vector<unsigned char> salt;
  int algorithm = impl::kAlgorithmNone;
  unsigned int iterations = 0;
  impl::crack_public_password_props(props, &salt, &algorithm, &iterations);
  const n7crypto::Key x = password_key(userId, password, salt, algorithm, iterations);
  n7crypto::Key m1;
  n7crypto::Key clientK =
      srp().client_create_key(data_of(userId), userId.size(), x.data(), x.size(), data_of(salt),
                              salt.size(), data_of(A), A.size(), data_of(B), B.size(), a, m1);
  std::swap(K, clientK);  // the old K is wiped with clientK
  copy_to(m1, M1);
}

bool SRPClientValidateM2(const std::string& props, const std::vector<unsigned char>& A,
                         const std::vector<unsigned char>& M1, const n7crypto::Key& K,
                         const std::vector<unsigned char>& M2) {
  int algorithm = impl::kAlgorithmNone;
  unsigned int iterations = 0;
  impl::crack_public_password_props(props, nullptr, &algorithm, &iterations);
  require_known_algorithm(algorithm, kValidateM2, __LINE__);
  return srp().client_verify(data_of(A), A.size(), data_of(M1), M1.size(), K, data_of(M2),
                             M2.size());
}

void MakeExtendedChallengeRound1(const std::string& /*userId*/, const std::string& blob,
                                 const std::vector<unsigned char>& A,
                                 std::vector<unsigned char>& salt, std::vector<unsigned char>& B,
                                 n7crypto::Key& K, std::string& props) {
  salt.clear();
  B.clear();
  K = n7crypto::Key();
  props.clear();
  std::vector<unsigned char> hash;
  const WipeOnExit wipeHash(hash);
  int algorithm = impl::kAlgorithmNone;
  int iterations = 0;
  impl::crack_extended_password_blob(blob, &salt, &hash, &algorithm, &iterations, nullptr);
  require_password_hash(hash, kRound1, __LINE__);
  require_known_algorithm(algorithm, kRound1, __LINE__);
  props = impl::make_public_password_props(salt.data(), salt.size(), algorithm, iterations);
  // The verifier is made afresh from x at every login: the blob stores x, not v.
  const n7crypto::Key v = srp().create_password_verifier(data_of(hash), hash.size());
  n7crypto::Key serverB;
  n7crypto::Key serverK = srp().server_create_key(v.data(), v.size(), data_of(A), A.size(), serverB,
                                                  random_source(), 0);
  std::swap(K, serverK);
  copy_to(serverB, B);
}

bool MakeExtendedChallengeRound2(const std::string& userId, const std::string& blob,
                                 const std::vector<unsigned char>& A,
                                 const std::vector<unsigned char>& M1,
                                 const std::vector<unsigned char>& B, const n7crypto::Key& K,
                                 std::vector<unsigned char>& M2) {
  M2.clear();
  // The algorithm is read with the salt but not checked: the proofs do not depend on it.
  std::vector<unsigned char> salt;
  std::vector<unsigned char> hash;
  const WipeOnExit wipeHash(hash);
  int algorithm = impl::kAlgorithmNone;
  int iterations = 0;
  impl::crack_extended_password_blob(blob, &salt, &hash, &algorithm, &iterations, nullptr);
  require_password_hash(hash, kRound2, __LINE__);
  n7crypto::Key m2;
  if (!srp().server_authenticate(data_of(userId), userId.size(), data_of(salt), salt.size(),
                                 data_of(A), A.size(), data_of(B), B.size(), data_of(M1), M1.size(),
                                 K, m2)) {
    return false;
  }
  copy_to(m2, M2);
  return true;
}

}  // namespace N7A
