// Invariant checks for the libFuzzer targets: a broken invariant prints what broke and aborts,
// so libFuzzer records the input as a crash and keeps it as a reproducer. The platform layer is
// the lowest, so every target may use it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace n7fuzz {

[[noreturn]] inline void fail(const char* what) {
  std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
  std::abort();
}

inline void check(bool condition, const char* what) {
  if (!condition) fail(what);
}

// Seed corpora are made by the targets themselves, through the library: run with N7_FUZZ_SEEDS
// naming a directory, a target writes its seeds there and exits (see n7_add_fuzzer's CORPUS).
using SeedWriter = void (*)(const std::filesystem::path& directory);

inline void write_seed(const std::filesystem::path& directory, const char* name,
                       std::string_view bytes) {
  std::ofstream out(directory / name, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out.good()) fail("a seed could not be written");
}

// For LLVMFuzzerInitialize, which runs before any other thread: writes the seeds and exits when
// N7_FUZZ_SEEDS is set.
inline void write_seeds_if_asked(SeedWriter write) {
  const char* directory = std::getenv("N7_FUZZ_SEEDS");  // NOLINT(concurrency-mt-unsafe)
  if (directory == nullptr) return;
  std::filesystem::create_directories(directory);
  write(directory);
  std::exit(0);  // NOLINT(concurrency-mt-unsafe)
}

// The fuzzer's bytes as text.
inline std::string_view as_text(const unsigned char* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace n7fuzz
