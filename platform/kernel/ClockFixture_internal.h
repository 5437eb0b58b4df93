// Test helpers that install a ManualClock for a scope or for one test.
//
// Tests that start waiting threads must join them before the scope ends: the clock is uninstalled
// then, and no thread may still sleep on it.
#pragma once

#include <gtest/gtest.h>

#include "n7utility/platform/kernel/ManualClock.h"

namespace n7platform {

// Installs a clock for its lifetime and then restores the previous one.
class ScopedClock {
 public:
  explicit ScopedClock(Clock& clock) : previous_(SetClock(&clock)) {}
  ~ScopedClock() { SetClock(previous_); }
  ScopedClock(const ScopedClock&) = delete;
  ScopedClock& operator=(const ScopedClock&) = delete;

 private:
  Clock* previous_;
};

class ManualClockTest : public ::testing::Test {
 protected:
  ManualClock clock_{ManualClock::SystemTimeOf(2024, 1, 1, 0, 0, 0)};

 private:
  ScopedClock installed_{clock_};
};

}  // namespace n7platform
