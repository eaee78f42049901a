#include "platform/formatting/UserLocale.h"

#include <time.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace kvl::formatting {
namespace {

// Far beyond the last year of RFC 3339, far below what a `time_t` holds.
constexpr double kLastSecond = 1e15;

// Checking whether /etc/localtime has changed takes longer than formatting a date.
constexpr std::chrono::nanoseconds kZoneCheckInterval = std::chrono::seconds(1);
constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::min() / 2;

std::int64_t coarseNow() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::chrono::nanoseconds(std::chrono::seconds(now.tv_sec)).count() + now.tv_nsec;
}

// localtime_r alone would keep the zone that it read first.
void refreshTimeZone() {
  static std::atomic<std::int64_t> fileCheckedAt = kNever;
  const bool isFile = std::getenv("TZ") == nullptr;
  const auto now = coarseNow();
  if (isFile && now - fileCheckedAt.load() < kZoneCheckInterval.count()) return;
  tzset();
  fileCheckedAt = isFile ? now : kNever;
}

}  // namespace

std::string userTimeLocale() {
  return core::localeFrom({"LC_ALL", "LC_TIME", "LANG"});
}

std::optional<Date> userWallClock(Date date) {
  const double second = std::floor(date.secondsSince1970());
  if (!(std::abs(second) <= kLastSecond)) return std::nullopt;
  refreshTimeZone();
  const auto time = static_cast<time_t>(second);
  tm fields{};
  if (localtime_r(&time, &fields) == nullptr) return std::nullopt;
  return Date::since1970(second).adding(static_cast<double>(fields.tm_gmtoff));
}

}  // namespace kvl::formatting
