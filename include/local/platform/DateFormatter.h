/// @file
/// Dates as text.
#pragma once

#include <local/platform/Date.h>
#include <local/platform/Export.h>

#include <optional>
#include <string>
#include <string_view>

namespace kvl {

/// Writes and reads dates in one fixed format. Immutable; any thread may use one at any time.
class KVL_EXPORT DateFormatter {
 public:
  virtual ~DateFormatter();
  DateFormatter(const DateFormatter&) = delete;
  DateFormatter& operator=(const DateFormatter&) = delete;

  /// The text of `date`; empty for a date that the format cannot show.
  [[nodiscard]] virtual std::string stringFromDate(Date date) const = 0;
  /// The date that `text` stands for, or none when the text does not have this format from its
  /// first byte to its last.
  [[nodiscard]] virtual std::optional<Date> dateFromString(std::string_view text) const = 0;

 protected:
  DateFormatter() = default;
};

}  // namespace kvl
