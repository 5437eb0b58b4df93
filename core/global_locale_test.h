// Test helper: runs a scope under a locale a host program might install, as both the C global
// locale (setlocale) and the C++ global locale, and restores both afterwards.
#pragma once

#include <clocale>
#include <locale>
#include <optional>
#include <stdexcept>
#include <string>

namespace n7test {

// setlocale is process-wide by nature, which is what these tests set out to exercise; they switch
// it while no other thread of theirs runs.
// NOLINTBEGIN(concurrency-mt-unsafe)
class ScopedGlobalLocale {
 public:
  explicit ScopedGlobalLocale(const char* name) : saved_c_(std::setlocale(LC_ALL, nullptr)) {
    try {
      saved_cpp_ = std::locale::global(std::locale(name));
    } catch (const std::runtime_error&) {
      return;  // not installed on this machine; installed() says so
    }
    std::setlocale(LC_ALL, name);
  }
  ~ScopedGlobalLocale() {
    if (saved_cpp_) std::locale::global(*saved_cpp_);
    std::setlocale(LC_ALL, saved_c_.c_str());
  }
  ScopedGlobalLocale(const ScopedGlobalLocale&) = delete;
  ScopedGlobalLocale& operator=(const ScopedGlobalLocale&) = delete;

  bool installed() const { return saved_cpp_.has_value(); }

 private:
  std::string saved_c_;
  std::optional<std::locale> saved_cpp_;
};
// NOLINTEND(concurrency-mt-unsafe)

}  // namespace n7test

// Enters `name` for the rest of the enclosing scope, or skips the test when the machine lacks it.
#define N7_TEST_UNDER_LOCALE(name)                          \
  ::n7test::ScopedGlobalLocale n7_test_global_locale(name); \
  if (!n7_test_global_locale.installed())                   \
  GTEST_SKIP() << "locale " << (name)                       \
               << " is not installed (scripts/setup generates it with localedef)"
