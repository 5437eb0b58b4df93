// Test helpers: a scratch directory removed with everything in it, and an environment variable
// set for a scope.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <optional>
#include <string>

namespace n7platform::test_support {

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "n7test.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
      throw std::filesystem::filesystem_error("mkdtemp", std::make_error_code(std::errc::io_error));
    path_ = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// Sets (or with nothing, unsets) an environment variable and restores it on destruction. Tests that
// use it run on one thread while it is set.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::optional<std::string>& value) : name_(name) {
    const char* old = getenv(name);  // NOLINT(concurrency-mt-unsafe)
    if (old != nullptr) saved_ = old;
    Set(value);
  }
  ~ScopedEnv() { Set(saved_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  void Set(const std::optional<std::string>& value) {
    if (value) {
      setenv(name_.c_str(), value->c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    } else {
      unsetenv(name_.c_str());  // NOLINT(concurrency-mt-unsafe)
    }
  }

  std::string name_;
  std::optional<std::string> saved_;
};

}  // namespace n7platform::test_support
