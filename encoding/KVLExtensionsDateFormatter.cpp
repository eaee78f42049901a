#include "platform/formatting/RFC3339.h"

#include <local/KVLExtensionsDateFormatter.h>

// The shared formatters are never destroyed: threads may still use them while the process ends.

const kvl::DateFormatter& KVLExtensions::rfc3339nano() {
  using namespace kvl::formatting;
  static const auto& formatter = *new RFC3339Formatter(SecondFraction::nanoseconds);
  return formatter;
}

const kvl::DateFormatter& KVLExtensions::rfc3339() {
  using namespace kvl::formatting;
  static const auto& formatter = *new RFC3339Formatter(SecondFraction::none);
  return formatter;
}

std::optional<kvl::Date> KVLExtensions::dateFromRFC3339(std::string_view text) {
  if (const auto date = rfc3339nano().dateFromString(text)) return date;
  return rfc3339().dateFromString(text);
}
