// Invariant checks for the libFuzzer targets: a broken invariant prints what broke and aborts,
// so libFuzzer records the input as a crash and keeps it as a reproducer.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/error.h"

namespace n7fuzz {

[[noreturn]] inline void fail(const char* what) {
  std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
  std::abort();
}

inline void check(bool condition, const char* what) {
  if (!condition) fail(what);
}

// Whether `error` carries the code named `name` ("error.n7core.safeCast.valueTruncated").
inline bool has_code(const n7core::ErrorException& error, const char* name) {
  return std::strcmp(error.info().code().name(), name) == 0;
}

// The fuzzer's bytes as text.
inline std::string_view as_text(const unsigned char* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace n7fuzz
