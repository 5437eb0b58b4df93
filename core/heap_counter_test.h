// Heap accounting for tests and benchmarks. A program that links heap_counter_test.cpp has its
// global operator new and delete replaced by counting ones, so it can show that a piece of code
// allocates nothing, or how many bytes a structure holds.
#pragma once

#include <cstddef>

namespace n7testing {

// False under AddressSanitizer and ThreadSanitizer, which own operator new: nothing is counted.
bool CountsAllocations();
// Allocations made by the calling thread so far.
std::size_t AllocationsOnThisThread();
// Bytes currently allocated by the whole program, by their usable size.
std::size_t LiveHeapBytes();

// Called with every block given back through operator delete, before it is freed, with its usable
// size (null: none). A test of what freed memory still holds installs one.
using FreedBlockObserver = void (*)(const void* block, std::size_t size);
void SetFreedBlockObserver(FreedBlockObserver observer);

}  // namespace n7testing
