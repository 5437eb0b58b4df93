// The processor's cycle counter, for cheap timestamps and seeding.
#pragma once

#include <cstdint>

#include "n7utility/platform/base/Export.h"

namespace n7core::hardware {

class N7_EXPORT Cpu {
 public:
  // The time-stamp counter on x86-64; elsewhere, nanoseconds of the monotonic clock. Only
  // differences between readings on one machine mean anything.
  static std::uint64_t read_timestamp() noexcept;
};

}  // namespace n7core::hardware
