// An open registry key closed at the end of its scope, for the registry's tests and fuzz targets.
#pragma once

#include "n7utility/platform/system/Registry.h"

namespace n7platform::internal {

class ScopedKey {
 public:
  ScopedKey() = default;
  ~ScopedKey() {
    if (handle_ != nullptr) RegCloseKey(handle_);
  }
  ScopedKey(const ScopedKey&) = delete;
  ScopedKey& operator=(const ScopedKey&) = delete;

  // Where a Reg...Ex call stores the key it opens.
  HKEY* out() { return &handle_; }
  operator HKEY() const { return handle_; }  // NOLINT(google-explicit-constructor)

 private:
  HKEY handle_ = nullptr;
};

}  // namespace n7platform::internal
