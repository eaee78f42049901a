#include <local/platform/Date.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <ctime>
#include <utility>

namespace kvl {
namespace {

// Beyond this many seconds from 1970 gmtime_r's year no longer fits.
constexpr double kPrintableSeconds = 6.7e16;

}  // namespace

Date Date::now() {
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
