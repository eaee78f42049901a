// What ICU is needed for: texts in the user's language.
#pragma once

#include "platform/formatting/LocalisedTime.h"

#include <local/platform/Date.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kvl::formatting {

// Locales are POSIX or BCP 47 names. Each answer is absent where ICU lacks the data for it.
// Thread-safe.
class Texts {
 public:
  // The day and the time that a clock in GMT shows at `wallClock`.
  [[nodiscard]] virtual std::optional<std::string> date(Date wallClock, DateStyle style,
                                                        const std::string& locale) = 0;
  [[nodiscard]] virtual std::optional<std::string> duration(std::int64_t seconds,
                                                            const std::string& locale) = 0;
  // In the first of the locales, between which there are colons, whose words are known.
  [[nodiscard]] virtual std::optional<std::string> updateCount(std::int64_t count,
                                                               const std::string& locales) = 0;

 protected:
  ~Texts() = default;
};

// The process's own, or null where that part of the library is not to be had.
[[nodiscard]] Texts* texts() noexcept;

// As ICU gives them.
[[nodiscard]] Texts& icuTexts() noexcept;

}  // namespace kvl::formatting
