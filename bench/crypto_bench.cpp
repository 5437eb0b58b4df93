// PBKDF2-HMAC-SHA1 against OpenSSL's PKCS5_PBKDF2_HMAC, and the stored password values.
//
// - Pbkdf2/<bytes>/<iterations>: the engine's pbkdf2_sha1 and OpenSSL's PKCS5_PBKDF2_HMAC with
//   SHA-1 on the same inputs, for the two shapes the library uses (32 bytes with 1024 iterations,
//   16 bytes with 4096).
// - Sha1CompressionBound/<bytes>/<iterations>: the same shape as a bare chain of SHA-1
//   compressions, two per iteration and block: the least any PBKDF2-HMAC-SHA1 can do.
// - MakePassword, and Validate in both forms of the stored value.

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <string>
#include <string_view>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/Utility/Authentication_internal.h"
#include "n7utility/n7crypto/pbkdf2.h"
#include "n7utility/n7crypto/sha1_internal.h"

namespace {

constexpr std::string_view kPassword = "correct horse battery staple";
constexpr std::string_view kSalt = "0123456789abcdef";

void ShapeArgs(benchmark::internal::Benchmark* benchmark) {
  benchmark->Args({32, 1024})->Args({16, 4096})->Unit(benchmark::kMicrosecond);
}

int Blocks(int bytes) { return (bytes + 19) / 20; }

void BM_Pbkdf2_N7(benchmark::State& state) {
  const auto bytes = static_cast<int>(state.range(0));
  const auto iterations = static_cast<int>(state.range(1));
  for (auto _ : state) {
    n7crypto::Key key = n7crypto::pbkdf2_sha1(
        reinterpret_cast<const unsigned char*>(kPassword.data()), kPassword.size(),
        reinterpret_cast<const unsigned char*>(kSalt.data()), kSalt.size(), iterations, bytes);
    benchmark::DoNotOptimize(key.data());
  }
}
BENCHMARK(BM_Pbkdf2_N7)->Apply(ShapeArgs);

void BM_Pbkdf2_OpenSSL(benchmark::State& state) {
  const auto bytes = static_cast<int>(state.range(0));
  const auto iterations = static_cast<int>(state.range(1));
  unsigned char out[32];
  for (auto _ : state) {
    PKCS5_PBKDF2_HMAC(kPassword.data(), static_cast<int>(kPassword.size()),
                      reinterpret_cast<const unsigned char*>(kSalt.data()),
                      static_cast<int>(kSalt.size()), iterations, EVP_sha1(), bytes, out);
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(BM_Pbkdf2_OpenSSL)->Apply(ShapeArgs);

void BM_Sha1CompressionBound(benchmark::State& state) {
  const long compressions = 2L * Blocks(static_cast<int>(state.range(0))) * state.range(1);
  n7crypto::impl::Sha1 chain;
  unsigned char block[n7crypto::impl::Sha1::kBlockSize] = {1, 2, 3};
  for (auto _ : state) {
    // Each compression starts from the previous one's result, as in PBKDF2.
    for (long i = 0; i < compressions; ++i) chain.compress_from(chain, block);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Sha1CompressionBound)->Apply(ShapeArgs);

void BM_MakePassword(benchmark::State& state) {
  const std::wstring user = L"Operator", password = L"Night-Shift 7";
  for (auto _ : state) benchmark::DoNotOptimize(N7A::MakePassword(user, password));
}
BENCHMARK(BM_MakePassword)->Unit(benchmark::kMicrosecond);

void BM_Validate_Md5(benchmark::State& state) {
  const std::wstring user = L"Operator", password = L"Night-Shift 7";
  const std::wstring stored = N7A::MakePassword(user, password);
  for (auto _ : state) benchmark::DoNotOptimize(N7A::Validate(user, password, false, stored));
}
BENCHMARK(BM_Validate_Md5)->Unit(benchmark::kMicrosecond);

void BM_Validate_Pbkdf2(benchmark::State& state) {
  const std::wstring user = L"Operator", password = L"Night-Shift 7";
  // A value in the PBKDF2 form: both halves as the library computes that form.
  const std::wstring stored =
      N7A::impl::make_password_digest(user, password, false, true) +
      N7A::impl::make_password_digest(user, N7A::KeyMap(password, false), true, true);
  for (auto _ : state) benchmark::DoNotOptimize(N7A::Validate(user, password, false, stored));
}
BENCHMARK(BM_Validate_Pbkdf2)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
