#include "session/RenewalDelay.h"

#include <algorithm>

namespace kvl::session {
namespace {

constexpr double kUsedShare = 0.8;
// A delay is counted in nanoseconds, of which 64 bits hold 292 years.
constexpr double kLongestDelay = 9.0e9;

}  // namespace

std::int64_t renewalDelay(std::optional<Date> expires, Date now) noexcept {
  const double share = expires ? expires->secondsSince(now) * kUsedShare : 0;
  if (!(share > 0)) return kDefaultDelay;
  return static_cast<std::int64_t>(std::min(share, kLongestDelay));
}

}  // namespace kvl::session
