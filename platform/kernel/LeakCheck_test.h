// Checks that a test leaves no kernel handle open and no thread of the platform layer running.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>

#include "n7utility/platform/kernel/KernelObjects_internal.h"
#include "n7utility/platform/kernel/Thread_internal.h"

namespace n7platform {

// Records the counts when constructed; ExpectNoLeaks() lets the threads begun since then finish
// (an auto-deleting thread closes its handle as it ends) and compares.
class LeakCheck {
 public:
  LeakCheck() : handles_(Handles()), threads_(Threads()) {}

  void ExpectNoLeaks() const {
    EXPECT_TRUE(internal::AwaitLiveThreadCount(threads_, std::chrono::seconds(30)))
        << "threads still running";
    EXPECT_EQ(Handles(), handles_) << "handles left open";
  }

 private:
  static std::size_t Handles() { return internal::LiveHandleCount(); }
  static std::size_t Threads() { return internal::LiveThreadCount(); }

  const std::size_t handles_;
  const std::size_t threads_;
};

}  // namespace n7platform
