#include "n7utility/n7crypto/random_provider.h"

#include <openssl/rand.h>

#include <cstdint>

#include "n7utility/core/cpu.h"
#include "n7utility/core/error.h"
#include "n7utility/n7crypto/errors.h"
#include "n7utility/platform/base/NoDestructor.h"

namespace n7crypto {
namespace impl {
namespace {

constexpr n7core::SourceLocation here(int line) {
  return n7core::SourceLocation("n7crypto::impl::DefaultRandomProviderImpl::generate_random()",
                                "n7crypto/random_provider", line);
}

}  // namespace

void DefaultRandomProviderImpl::generate_random(unsigned char* buffer, int size) {
  // The counter adds a little unpredictability on every call; it is credited with no entropy, so
  // it can never weaken OpenSSL's own seeding.
  const std::uint64_t counter = n7core::hardware::Cpu::read_timestamp();
  RAND_add(&counter, sizeof counter, 0.0);
  if (buffer == nullptr) return;
  if (size < 0) {
    n7core::throw_error(errors::random_provider_arguments, "Invalid 'size' argument",
                        here(__LINE__));
  }
  if (RAND_bytes(buffer, size) != 1) {
    n7core::throw_error(errors::random_provider_failed,
                        "Random provider failed to generate requested number of bytes",
                        here(__LINE__));
  }
}

}  // namespace impl

RandomProviderPtr get_default_random_provider() {
  // Never destroyed: threads that outlive static destruction may still draw random bytes.
  static n7platform::NoDestructor<impl::DefaultRandomProviderImpl> provider;
  // An empty owner with a pointer: the handle's ownership word stays null.
  return RandomProviderPtr(RandomProviderPtr(), provider.get());
}

}  // namespace n7crypto
