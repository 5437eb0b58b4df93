// Counts the bytes the process holds on the heap, for the benchmarks' memory figures. Linking
// heap_counter.cpp replaces the global operator new and delete.
#pragma once

#include <cstddef>

namespace n7bench {

// Bytes currently allocated through operator new, by their usable size.
std::size_t LiveHeapBytes();

}  // namespace n7bench
