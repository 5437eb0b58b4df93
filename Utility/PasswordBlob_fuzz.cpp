// libFuzzer target: the readers of the stored password blob and of the public password
// properties, the same bytes given to both. Each reader must refuse bad input with
// n7core::ErrorException only, and what it reads must survive a round trip:
//   - blob: the fields read, written back in the blob's layout, read back the same, and the
//     blob counts as extended when a password hash was read. A blob with a hash goes
//     through the server's first round, whose properties must read back with the blob's salt,
//     algorithm and iteration count.
//   - properties: the fields read, made into properties text and read again, are the same, and
//     making the text twice gives the same text.
#include <climits>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/Utility/Authentication_internal.h"
#include "n7utility/core/base64.h"
#include "n7utility/core/error.h"
#include "n7utility/core/serialize.h"
#include "n7utility/n7crypto/key.h"
#include "n7utility/platform/base/Check_fuzz.h"

namespace {

using n7fuzz::check;
namespace impl = N7A::impl;

struct BlobFields {
  std::vector<unsigned char> salt;
  std::vector<unsigned char> hash;
  int algorithm = impl::kAlgorithmNone;
  int iterations = 0;
  std::string legacy;
  bool operator==(const BlobFields&) const = default;
};

BlobFields CrackBlob(const std::string& blob) {
  BlobFields fields;
  impl::crack_extended_password_blob(blob, &fields.salt, &fields.hash, &fields.algorithm,
                                     &fields.iterations, &fields.legacy);
  return fields;
}

const char* AlgorithmName(int algorithm) {
  switch (algorithm) {
    case impl::kAlgorithmPbkdf2Sha256:
      return N7A::EXTENDED_PASSWORD_ALGORITHM_PBKDF2_SHA256;
    case impl::kAlgorithmLegacy:
      return N7A::EXTENDED_PASSWORD_ALGORITHM_LEGACY;
    default:
      return "none";
  }
}

template <typename Value>
void WriteField(n7serialize::TextWriter& writer, const char* name, const Value& value, bool first) {
  if (!first) writer.write_sequence_separator();
  writer.write_marker_start();
  writer << name << value;
  writer.write_marker_end();
}

// The fields in the stored blob's layout: a marker around a sequence of (name value) markers.
std::string WriteBlob(const BlobFields& fields) {
  std::ostringstream out;
  n7serialize::TextWriter writer(out, n7serialize::TextWriter::Options().ascii_only(true));
  writer.write_marker_start();
  writer.write_sequence_start();
  WriteField(writer, N7A::EXTENDED_PASSWORD_FIELD_SALT,
             n7core::base64_encode(fields.salt.data(), fields.salt.size()), true);
  WriteField(writer, N7A::EXTENDED_PASSWORD_FIELD_PASSWD_HASH,
             n7core::base64_encode(fields.hash.data(), fields.hash.size()), false);
  WriteField(writer, N7A::EXTENDED_PASSWORD_FIELD_ALGORITHM, AlgorithmName(fields.algorithm),
             false);
  WriteField(writer, N7A::EXTENDED_PASSWORD_FIELD_ITERATIONS, fields.iterations, false);
  WriteField(writer, N7A::EXTENDED_PASSWORD_FIELD_LEGACY, fields.legacy, false);
  writer.write_sequence_end();
  writer.write_marker_end();
  writer.close();
  return out.str();
}

struct PropsFields {
  std::vector<unsigned char> salt;
  int algorithm = impl::kAlgorithmNone;
  unsigned int iterations = 0;
  bool operator==(const PropsFields&) const = default;
};

PropsFields CrackProps(const std::string& props) {
  PropsFields fields;
  impl::crack_public_password_props(props, &fields.salt, &fields.algorithm, &fields.iterations);
  return fields;
}

std::string MakeProps(const PropsFields& fields) {
  return impl::make_public_password_props(fields.salt.data(), fields.salt.size(), fields.algorithm,
                                          static_cast<int>(fields.iterations));
}

// A client's A, made once: the server's first round needs one.
const std::vector<unsigned char>& ClientA() {
  static const std::vector<unsigned char> A = [] {
    n7crypto::Key a;
    std::vector<unsigned char> bytes;
    N7A::SRPClientCreateA(a, bytes);
    return bytes;
  }();
  return A;
}

// The properties the server sends for `blob` carry the blob's fields, as read without the legacy
// value (which the server does not ask for, so a bad one does not stop its read).
void CheckServerProps(const std::string& blob) {
  BlobFields fields;
  impl::crack_extended_password_blob(blob, &fields.salt, &fields.hash, &fields.algorithm,
                                     &fields.iterations, nullptr);
  std::vector<unsigned char> salt;
  std::vector<unsigned char> B;
  n7crypto::Key K;
  std::string props;
  try {
    N7A::MakeExtendedChallengeRound1("user", blob, ClientA(), salt, B, K, props);
  } catch (const n7core::ErrorException&) {
    return;  // refused, for instance a hash that is 0 modulo N
  }
  const PropsFields sent = CrackProps(props);
  check(sent.salt == fields.salt && salt == fields.salt, "server properties changed the salt");
  const int algorithm =
      fields.algorithm == impl::kAlgorithmNone ? impl::kAlgorithmLegacy : fields.algorithm;
  check(sent.algorithm == algorithm, "server properties changed the algorithm");
  if (algorithm == impl::kAlgorithmPbkdf2Sha256 && fields.iterations >= 0) {
    check(sent.iterations == static_cast<unsigned int>(fields.iterations),
          "server properties changed the iteration count");
  }
}

void CheckBlob(const std::string& blob) {
  const BlobFields fields = CrackBlob(blob);
  // Whether a blob counts as extended is whether its hash reads when the hash alone is asked for.
  // That read can go further than one asking for every field (a bad field not asked for is
  // skipped), so a later duplicate hash field may replace the hash the full read found.
  std::vector<unsigned char> hash_alone;
  impl::crack_extended_password_blob(blob, nullptr, &hash_alone, nullptr, nullptr, nullptr);
  check(N7A::LooksLikeExtendedPassword(blob, nullptr) == !hash_alone.empty(),
        "whether a blob is extended does not follow its hash");
  check(CrackBlob(WriteBlob(fields)) == fields, "blob fields changed on a round trip");
  if (!hash_alone.empty()) CheckServerProps(blob);
}

void CheckProps(const std::string& props) {
  PropsFields fields;
  try {
    fields = CrackProps(props);
  } catch (const n7core::ErrorException&) {
    return;  // malformed XML or base64
  }
  if (fields.algorithm == impl::kAlgorithmNone || fields.iterations > INT_MAX) return;
  if (fields.algorithm != impl::kAlgorithmPbkdf2Sha256) fields.iterations = 0;  // not written
  const std::string made = MakeProps(fields);
  const PropsFields reread = CrackProps(made);
  check(reread == fields, "properties fields changed on a round trip");
  check(MakeProps(reread) == made, "making the properties twice gave different texts");
}

// Seeds: a new blob, a legacy blob, and the properties the server sends for each.
void WriteSeeds(const std::filesystem::path& directory) {
  const std::string blob = N7A::MdgM2("user", "secret");
  const std::vector<unsigned char> salt(16, 0x5A);
  std::string legacy;
  N7A::MakeLegacyExtendedPasswordBlob(salt, "user", "legacy-value", legacy);
  n7fuzz::write_seed(directory, "blob", blob);
  n7fuzz::write_seed(directory, "legacy_blob", legacy);
  n7fuzz::write_seed(directory, "legacy_props",
                     N7A::MakeLegacyPublicPasswordProperties(salt.data(), 16));
  const BlobFields fields = CrackBlob(blob);
  n7fuzz::write_seed(directory, "props",
                     impl::make_public_password_props(fields.salt.data(), fields.salt.size(),
                                                      fields.algorithm, fields.iterations));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  n7fuzz::write_seeds_if_asked(WriteSeeds);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;  // both readers refuse an empty text by contract
  const std::string text(n7fuzz::as_text(data, size));
  CheckBlob(text);
  CheckProps(text);
  return 0;
}
