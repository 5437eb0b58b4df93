// Test helpers that point the registry at a temporary store.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "platform/RegistryStore_internal.h"

namespace n7platform {

// A fresh store in a temporary directory for the object's lifetime; the registry goes back to
// the environment's store afterwards. Restart() closes every handle and store, as a process
// restart would, and reopens under the given boot id (another id is a machine restart).
class TemporaryRegistry {
 public:
  explicit TemporaryRegistry(std::string boot_id = "boot-1") {
    std::string pattern = (std::filesystem::temp_directory_path() / "n7registry.XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) directory_ = pattern;
    Restart(std::move(boot_id));
  }
  ~TemporaryRegistry() {
    internal::UseRegistryStore(nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
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
  std::string directory_;
};

class RegistryTest : public ::testing::Test {
 protected:
  TemporaryRegistry registry_;
};

}  // namespace n7platform
