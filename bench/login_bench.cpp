// SRP-6a logins through the N7A functions against the bare arithmetic one login cannot avoid.
//
// - Login/Whole: one whole login against a PBKDF2 blob, client and server side in turn.
// - Login/<step>: each of the five steps alone, on the values of one earlier login.
// - Login/Bound: what any implementation of the same login must compute, with OpenSSL directly:
//   the seven modular exponentiations (client g^a, g^x, (B - k g^x)^(a + u x); server g^x, g^b,
//   v^u, (A v^u)^b) and the client's PBKDF2-HMAC-SHA1 with the blob's 1024 iterations, by
//   OpenSSL's PKCS5_PBKDF2_HMAC. BoundEnginePbkdf2 takes the engine's faster PBKDF2 instead,
//   BoundEnginePbkdf2ConstTime also does the secret exponents in constant time as the login
//   must, and BoundModExpOnly shows the exponentiations' share.
// - MdgM2: making one new password blob.

#include <benchmark/benchmark.h>
#include <openssl/bn.h>
#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/n7crypto/key.h"
#include "n7utility/n7crypto/pbkdf2.h"
#include "n7utility/n7crypto/srp.h"

namespace {

constexpr std::string_view kUser = "Operator";
constexpr std::string_view kPassword = "correct horse battery staple";
constexpr int kIterations = 1024;

using Bytes = std::vector<unsigned char>;

// One login's values, as each side holds them between the steps.
struct Login {
  const std::string user{kUser}, password{kPassword};
  std::string blob = N7A::MdgM2(user, password);
  n7crypto::Key a, clientK, serverK;
  Bytes A, B, M1, M2, salt;
  std::string props;

  void create_a() { N7A::SRPClientCreateA(a, A); }
  void round1() { N7A::MakeExtendedChallengeRound1(user, blob, A, salt, B, serverK, props); }
  void create_m1() { N7A::SRPClientCreateM1(user, password, props, salt, a, A, B, clientK, M1); }
  bool round2() { return N7A::MakeExtendedChallengeRound2(user, blob, A, M1, B, serverK, M2); }
  bool validate_m2() { return N7A::SRPClientValidateM2(props, A, M1, clientK, M2); }

  bool run() {
    create_a();
    round1();
    create_m1();
    return round2() && validate_m2();
  }
};

void BM_Login_Whole(benchmark::State& state) {
  Login login;
  for (auto _ : state) {
    if (!login.run()) state.SkipWithError("login refused");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Login_Whole)->Unit(benchmark::kMicrosecond);

template <auto Step>
void BM_Login_Step(benchmark::State& state) {
  Login login;
  if (!login.run()) state.SkipWithError("login refused");
  for (auto _ : state) (login.*Step)();
}
// ---- The bound ----

struct BnFree {
  void operator()(BIGNUM* n) const { BN_free(n); }
};
using Bn = std::unique_ptr<BIGNUM, BnFree>;

Bn random_bits(int bits) {
  Bn n(BN_new());
  BN_rand(n.get(), bits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY);
  return n;
}

// Values of the right sizes for each exponentiation: 256-bit a, b, x and u as the login draws or
// derives them, and bases and an a + u x reduced modulo N.
struct BoundValues {
  BN_CTX* ctx = BN_CTX_new();
  Bn n = Bn(BN_bin2bn(n7crypto::srp_group_1024().modulus, 128, nullptr));
  Bn g = Bn(BN_new());
  Bn a = random_bits(256), b = random_bits(256), x = random_bits(256), u = random_bits(256);
  Bn v = Bn(BN_new()), A = Bn(BN_new()), base = Bn(BN_new()), exponent = Bn(BN_new());
  Bn result = Bn(BN_new());
  Bytes salt = Bytes(32, 0x5A);

  BoundValues() {
    BN_set_word(g.get(), 2);
    BN_mod_exp(v.get(), g.get(), x.get(), n.get(), ctx);
    BN_mod_exp(A.get(), g.get(), a.get(), n.get(), ctx);
    // Any residue stands for B - k g^x and for A v^u: the cost does not depend on the value.
    BN_mod_mul(base.get(), A.get(), v.get(), n.get(), ctx);
    BN_mod_mul(exponent.get(), u.get(), x.get(), n.get(), ctx);
    BN_mod_add(exponent.get(), exponent.get(), a.get(), n.get(), ctx);
  }
  BoundValues(const BoundValues&) = delete;
  BoundValues& operator=(const BoundValues&) = delete;
  ~BoundValues() {
    BN_MONT_CTX_free(mont);
    BN_CTX_free(ctx);
  }

  // An exponentiation with a public exponent (u), and one with a secret exponent (a, b, x,
  // a + u x): bare, or in constant time on a Montgomery form of N set up once.
  void exp(const BIGNUM* base_value, const BIGNUM* power) {
    BN_mod_exp(result.get(), base_value, power, n.get(), ctx);
  }
  template <bool kConstantTime>
  void secret_exp(const BIGNUM* base_value, const BIGNUM* power) {
    if (kConstantTime) {
      BN_mod_exp_mont_consttime(result.get(), base_value, power, n.get(), ctx, mont);
    } else {
      exp(base_value, power);
    }
  }

  BN_MONT_CTX* mont = make_mont();

 private:
  BN_MONT_CTX* make_mont() {
    BN_MONT_CTX* m = BN_MONT_CTX_new();
    BN_MONT_CTX_set(m, n.get(), ctx);
    return m;
  }
};

void openssl_pbkdf2(const Bytes& salt, unsigned char* x, std::size_t size) {
  PKCS5_PBKDF2_HMAC(kPassword.data(), static_cast<int>(kPassword.size()), salt.data(),
                    static_cast<int>(salt.size()), kIterations, EVP_sha1(), static_cast<int>(size),
                    x);
}

void engine_pbkdf2(const Bytes& salt, unsigned char* x, std::size_t size) {
  const n7crypto::Key key = n7crypto::pbkdf2_sha1(
      reinterpret_cast<const unsigned char*>(kPassword.data()), kPassword.size(), salt.data(),
      salt.size(), kIterations, static_cast<int>(size));
  std::copy(key.data(), key.data() + key.size(), x);
}

void no_pbkdf2(const Bytes& /*salt*/, unsigned char* /*x*/, std::size_t /*size*/) {}

// The bound with the client's PBKDF2 done by `Pbkdf2`, and the secret exponents in constant time
// or not.
template <void (*Pbkdf2)(const Bytes&, unsigned char*, std::size_t), bool kConstantTime>
void BM_Login_Bound(benchmark::State& state) {
  BoundValues w;
  unsigned char x[32];
  for (auto _ : state) {
    // Client.
    Pbkdf2(w.salt, x, sizeof x);
    w.secret_exp<kConstantTime>(w.g.get(), w.a.get());
    w.secret_exp<kConstantTime>(w.g.get(), w.x.get());
    w.secret_exp<kConstantTime>(w.base.get(), w.exponent.get());
    // Server.
    w.secret_exp<kConstantTime>(w.g.get(), w.x.get());
    w.secret_exp<kConstantTime>(w.g.get(), w.b.get());
    w.exp(w.v.get(), w.u.get());
    w.secret_exp<kConstantTime>(w.base.get(), w.b.get());
    benchmark::DoNotOptimize(x);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}
struct Named {
  const char* name;
  void (*run)(benchmark::State&);
};

// Registered here rather than with BENCHMARK(), for the names that the template arguments would
// otherwise make. NOLINTNEXTLINE(cert-err58-cpp): a failure here could not be handled anyway
const bool kRegistered = [] {
  const Named benchmarks[] = {
      {"BM_Login_ClientCreateA", BM_Login_Step<&Login::create_a>},
      {"BM_Login_ServerRound1", BM_Login_Step<&Login::round1>},
      {"BM_Login_ClientCreateM1", BM_Login_Step<&Login::create_m1>},
      {"BM_Login_ServerRound2", BM_Login_Step<&Login::round2>},
      {"BM_Login_ClientValidateM2", BM_Login_Step<&Login::validate_m2>},
      // Bare BN_mod_exp and OpenSSL's PBKDF2, as a login written straight on OpenSSL does it.
      {"BM_Login_Bound", BM_Login_Bound<openssl_pbkdf2, false>},
      // The same with the engine's faster PBKDF2: the tightest bound.
      {"BM_Login_BoundEnginePbkdf2", BM_Login_Bound<engine_pbkdf2, false>},
      // With the secret exponents in constant time, as the login does them: what is left between
      // this and Login_Whole is the login functions' own work (parsing, hashing, copying).
      {"BM_Login_BoundEnginePbkdf2ConstTime", BM_Login_Bound<engine_pbkdf2, true>},
      // The seven bare exponentiations alone.
      {"BM_Login_BoundModExpOnly", BM_Login_Bound<no_pbkdf2, false>},
  };
  for (const Named& b : benchmarks) {
    benchmark::RegisterBenchmark(b.name, b.run)->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

void BM_MdgM2(benchmark::State& state) {
  const std::string user{kUser}, password{kPassword};
  for (auto _ : state) benchmark::DoNotOptimize(N7A::MdgM2(user, password));
}
BENCHMARK(BM_MdgM2)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
