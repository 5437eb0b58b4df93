// The source of random bytes for salts and SRP secrets: an interface, so a host can hand the
// engine a provider of its own, and the process-wide default over OpenSSL's generator.
#pragma once

#include <memory>

#include "n7utility/platform/base/Export.h"

namespace n7crypto {

// A provider is never destroyed through this interface (the default one is never destroyed at
// all), hence the protected, non-virtual destructor.
class N7_EXPORT IRandomProvider {
 public:
  // Fills buffer[0..size) with random bytes. A null buffer or a size of 0 does nothing; a
  // negative size throws "error.n7crypto.randomProvider.arguments", and a generator failure
  // "error.n7crypto.randomProvider.failed" (the buffer's contents are then undefined).
  virtual void generate_random(unsigned char* buffer, int size) = 0;

 protected:
  IRandomProvider() = default;
  IRandomProvider(const IRandomProvider&) = default;
  IRandomProvider& operator=(const IRandomProvider&) = default;
  ~IRandomProvider() = default;
};

// A handle on a provider. The default provider's handle owns nothing: releasing it never
// destroys the provider.
using RandomProviderPtr = std::shared_ptr<IRandomProvider>;

namespace impl {

// The only implementation: OpenSSL's generator, given the cycle counter as extra input on every
// call. Holds no state and takes no lock; OpenSSL serialises its own pool, so any number of
// threads may call it at once.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): final, and never destroyed
class N7_EXPORT DefaultRandomProviderImpl final : public IRandomProvider {
 public:
  void generate_random(unsigned char* buffer, int size) override;
};

}  // namespace impl

// The process-wide default provider; the same one on every call.
N7_EXPORT RandomProviderPtr get_default_random_provider();

}  // namespace n7crypto
