// N7OS::CN7DateTime: a point in time as whole seconds since 1601-01-01 00:00:00 UTC.
//
// A negative count means invalid; a default-constructed value is invalid (-1). Values order by
// their count, so an invalid value sorts before every valid one.
#pragma once

#include <compare>
#include <cstdint>

#include "n7utility/platform/base/Export.h"

namespace N7OS {

class N7_EXPORT CN7DateTime {
 public:
  constexpr CN7DateTime() = default;
  constexpr explicit CN7DateTime(std::int64_t seconds_since_1601) : seconds_(seconds_since_1601) {}

  // The library clock's system time, with the fraction of a second dropped; a count with its top
  // bit set gives the invalid value.
  static CN7DateTime now();

  constexpr bool is_valid() const noexcept { return seconds_ >= 0; }
  constexpr std::int64_t seconds() const noexcept { return seconds_; }

  // Adds seconds to a valid value; an invalid value is left unchanged.
  constexpr CN7DateTime& add_seconds(std::int64_t seconds) noexcept {
    if (is_valid()) seconds_ += seconds;
    return *this;
  }

  // The difference in seconds; 0 when either value is invalid.
  friend constexpr std::int64_t operator-(const CN7DateTime& a, const CN7DateTime& b) noexcept {
    return a.is_valid() && b.is_valid() ? a.seconds_ - b.seconds_ : 0;
  }

  // NOLINTNEXTLINE(modernize-use-nullptr): a false report on defaulted comparisons
  friend constexpr auto operator<=>(const CN7DateTime&, const CN7DateTime&) = default;

 private:
  std::int64_t seconds_ = -1;
};

}  // namespace N7OS
