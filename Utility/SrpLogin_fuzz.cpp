// libFuzzer target: the SRP client's second and third steps fed arbitrary public password
// properties, as a hostile or broken server could send them. The client either refuses with
// n7core::ErrorException or succeeds with a 32-byte key and proof. Properties whose iteration
// count is below 1 or above 10,000,000 must be refused with the safe-cast error, so that a peer
// cannot make the client spin (a count the client derives anyway would also run into the
// per-input timeout CI gives the target).
//
// Counts in range are derived for real; to keep runs fast, properties asking for more than
// kMaxDerivedIterations are read but not handed to the client.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/Utility/Authentication_internal.h"
#include "n7utility/core/error.h"
#include "n7utility/n7crypto/key.h"
#include "n7utility/platform/base/Check_fuzz.h"

namespace {

using n7fuzz::check;
namespace impl = N7A::impl;

constexpr unsigned int kMinIterations = 1;
constexpr unsigned int kMaxIterations = 10'000'000;
constexpr unsigned int kMaxDerivedIterations = 4096;
constexpr char kSafeCastError[] = "error.n7core.safeCast.valueTruncated";

// The client's secret a and its A, and a server's B, made once: the target varies the properties.
struct Exchange {
  n7crypto::Key a;
  std::vector<unsigned char> A;
  std::vector<unsigned char> B;
};

const Exchange& TheExchange() {
  static const Exchange exchange = [] {
    Exchange made;
    N7A::SRPClientCreateA(made.a, made.A);
    n7crypto::Key b;
    N7A::SRPClientCreateA(b, made.B);  // any g^b mod N serves as the server's B here
    return made;
  }();
  return exchange;
}

// Whether the client would derive a PBKDF2 key with `props`, and with how many iterations. The
// properties are read as the client reads them (salt included), so that properties it refuses as
// malformed do not count.
bool Pbkdf2Count(const std::string& props, unsigned int* iterations) {
  std::vector<unsigned char> salt;
  int algorithm = impl::kAlgorithmNone;
  try {
    impl::crack_public_password_props(props, &salt, &algorithm, iterations);
  } catch (const n7core::ErrorException&) {
    return false;
  }
  return algorithm == impl::kAlgorithmPbkdf2Sha256;
}

void CheckClient(const std::string& props) {
  unsigned int iterations = 0;
  const bool pbkdf2 = Pbkdf2Count(props, &iterations);
  const bool out_of_range = pbkdf2 && (iterations < kMinIterations || iterations > kMaxIterations);
  if (pbkdf2 && !out_of_range && iterations > kMaxDerivedIterations) return;

  const Exchange& exchange = TheExchange();
  n7crypto::Key K;
  std::vector<unsigned char> M1;
  try {
    N7A::SRPClientCreateM1("user", "password", props, {}, exchange.a, exchange.A, exchange.B, K,
                           M1);
  } catch (const n7core::ErrorException& error) {
    if (out_of_range && std::strcmp(error.info().code().name(), kSafeCastError) != 0) {
      std::fprintf(stderr, "iterations %u refused with %s\n", iterations,
                   error.info().code().name());
      n7fuzz::fail("an out-of-range iteration count was refused with another error");
    }
    check(K.size() == 0 && M1.empty(), "a refused step wrote its outputs");
    return;
  }
  check(!out_of_range, "the client accepted an iteration count outside 1 to 10,000,000");
  check(K.size() == 32 && M1.size() == 32, "the client's key or proof is not 32 bytes");
  try {
    // A proof the server never made must not validate.
    check(!N7A::SRPClientValidateM2(props, exchange.A, M1, K, M1), "a forged M2 validated");
  } catch (const n7core::ErrorException&) {
  }
}

// Seeds: the properties a server sends for a new blob and for a legacy one, and properties at
// the smallest iteration count.
void WriteSeeds(const std::filesystem::path& directory) {
  std::vector<unsigned char> salt(32);
  for (std::size_t i = 0; i < salt.size(); ++i) salt[i] = static_cast<unsigned char>(i);
  n7fuzz::write_seed(directory, "pbkdf2",
                     impl::make_public_password_props(salt.data(), salt.size(),
                                                      impl::kAlgorithmPbkdf2Sha256, 1024));
  n7fuzz::write_seed(
      directory, "pbkdf2_one",
      impl::make_public_password_props(salt.data(), salt.size(), impl::kAlgorithmPbkdf2Sha256, 1));
  n7fuzz::write_seed(directory, "legacy", N7A::MakeLegacyPublicPasswordProperties(salt.data(), 16));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  n7fuzz::write_seeds_if_asked(WriteSeeds);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CheckClient(std::string(n7fuzz::as_text(data, size)));
  return 0;
}
