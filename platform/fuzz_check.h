// Invariant checks for the libFuzzer targets: a broken invariant prints what broke and aborts,
// so libFuzzer records the input as a crash and keeps it as a reproducer. The platform layer is
// the lowest, so every target may use it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace n7fuzz {

[[noreturn]] inline void fail(const char* what) {
  std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
  std::abort();
}

inline void check(bool condition, const char* what) {
  if (!condition) fail(what);
}

// The fuzzer's bytes as text.
inline std::string_view as_text(const unsigned char* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace n7fuzz
