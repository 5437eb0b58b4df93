#include "n7utility/platform/kernel/N7DateTime.h"

#include "n7utility/platform/kernel/Clock.h"

namespace N7OS {

CN7DateTime CN7DateTime::now() {
  const auto ticks = static_cast<std::uint64_t>(n7platform::GetClock().SystemTime());
  if ((ticks >> 63) != 0) return CN7DateTime();
  return CN7DateTime(static_cast<std::int64_t>(ticks / 10'000'000));
}

}  // namespace N7OS
