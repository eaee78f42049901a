/// @file
/// Points in time.
#pragma once

#include <local/platform/Export.h>

#include <chrono>
#include <compare>
#include <string>

namespace kvl {

/// A point in time: a 64-bit floating count of seconds since the reference date,
/// 2001-01-01 00:00:00 UTC. Leap seconds are not counted, as in POSIX time.
class KVL_EXPORT Date {
 public:
  /// The reference date itself, in seconds since 1970-01-01 00:00:00 UTC.
  static constexpr double kReferenceDateSince1970 = 978307200.0;

  Date() noexcept = default;
  /// The date so many seconds after the reference date; before it, if negative.
  explicit Date(double secondsSinceReferenceDate) noexcept : seconds_(secondsSinceReferenceDate) {}

  /// The wall clock's present time, or what a test's clock says.
  [[nodiscard]] static Date now();

  /// The date so many seconds after 1970-01-01 00:00:00 UTC.
  [[nodiscard]] static Date since1970(double seconds) noexcept {
    return Date(seconds - kReferenceDateSince1970);
  }

  /// Negative before the reference date. Fractions are kept.
  [[nodiscard]] double secondsSinceReferenceDate() const noexcept { return seconds_; }
  /// As `time(2)` counts, with fractions.
  [[nodiscard]] double secondsSince1970() const noexcept {
    return seconds_ + kReferenceDateSince1970;
  }

  /// Seconds from `other` to this date; negative when this date is the earlier one.
  [[nodiscard]] double secondsSince(Date other) const noexcept { return seconds_ - other.seconds_; }

  /// The date `seconds` after this one.
  [[nodiscard]] Date adding(double seconds) const noexcept { return Date(seconds_ + seconds); }

  /// In UTC to the second, such as `2024-05-01 12:34:56 +0000`.
  [[nodiscard]] std::string description() const;

  /// By time. A date of not-a-number is neither before, after nor equal to any other.
  friend auto operator<=>(Date, Date) noexcept = default;

 private:
  double seconds_ = 0;
};

}  // namespace kvl
