#include "platform/core/Clock.h"
#include "platform/core/NoDestructor.h"

#include <local/platform/Atomic.h>
#include <local/platform/Date.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <ctime>
#include <utility>

namespace kvl {
namespace {

Atomic<core::WallClock>& replacedClock() {
  static NoDestructor<Atomic<core::WallClock>> clock;
  return *clock;
}

// Beyond this many seconds from 1970 gmtime_r's year no longer fits.
constexpr double kPrintableSeconds = 6.7e16;

}  // namespace

void core::setWallClock(WallClock clock) {
  replacedClock().set(std::move(clock));
}

Date Date::now() {
  if (const auto clock = replacedClock().get()) return clock();
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return since1970(std::chrono::duration<double>(sinceEpoch).count());
}

std::string Date::description() const {
  const double seconds = std::floor(secondsSince1970());
  std::array<char, 64> text{};
  if (!(std::fabs(seconds) < kPrintableSeconds)) {
    const auto [last, error] = std::to_chars(text.data(), text.data() + text.size(), seconds_);
    return std::string(text.data(), last) + " s after 2001-01-01 00:00:00 +0000";
  }
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&time, &parts);
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S +0000", &parts);
  return text.data();
}

}  // namespace kvl
