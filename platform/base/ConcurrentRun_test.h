// Test helper: runs one body on several threads that start together, for the tests that look for
// races. The threads wait on a latch until all exist, so that they overlap as much as they can.
#pragma once

#include <latch>
#include <thread>
#include <vector>

namespace n7platform::test_support {

// Calls `body(t)` for t = 0 .. threads - 1, each on a thread of its own, and returns once all
// have returned.
template <typename Body>
void RunConcurrently(int threads, Body body) {
  std::latch start(threads);
  std::vector<std::thread> running;
  running.reserve(static_cast<std::size_t>(threads));
  for (int t = 0; t < threads; ++t) {
    running.emplace_back([&start, &body, t] {
      start.arrive_and_wait();
      body(t);
    });
  }
  for (std::thread& thread : running) thread.join();
}

}  // namespace n7platform::test_support
