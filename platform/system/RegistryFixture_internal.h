// Test helpers that point the registry at a temporary store.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "n7utility/platform/base/TempDir_test.h"
#include "n7utility/platform/system/RegistryStore_internal.h"

namespace n7platform {

// A fresh store in a temporary directory for the object's lifetime; the registry goes back to
// the environment's store afterwards. Restart() closes every handle and store, as a process
// restart would, and reopens under the given boot id (another id is a machine restart).
class TemporaryRegistry {
 public:
  explicit TemporaryRegistry(std::string boot_id = "boot-1") { Restart(std::move(boot_id)); }
  ~TemporaryRegistry() { internal::UseRegistryStore(nullptr); }
  TemporaryRegistry(const TemporaryRegistry&) = delete;
  TemporaryRegistry& operator=(const TemporaryRegistry&) = delete;

  void Restart(std::string boot_id) {
    const internal::StoreSettings settings{directory_, std::move(boot_id)};
    internal::UseRegistryStore(&settings);
  }

  const std::string& directory() const { return directory_; }
  std::string HiveFile(internal::Hive hive) const {
    return directory_ + "/" + internal::HiveFileName(hive);
  }

 private:
  test_support::TempDir scratch_;
  std::string directory_ = scratch_.path().string();
};

class RegistryTest : public ::testing::Test {
 protected:
  TemporaryRegistry registry_;
};

}  // namespace n7platform
