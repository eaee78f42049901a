#include "platform/formatting/RFC3339.h"

#include <local/KVLExtensionsDateFormatter.h>

const kvl::DateFormatter& KVLExtensions::rfc3339nano() {
  using namespace kvl::formatting;
  return rfc3339Formatter(SecondFraction::nanoseconds);
}

const kvl::DateFormatter& KVLExtensions::rfc3339() {
  using namespace kvl::formatting;
  return rfc3339Formatter(SecondFraction::none);
}

std::optional<kvl::Date> KVLExtensions::dateFromRFC3339(std::string_view text) {
  if (const auto date = rfc3339nano().dateFromString(text)) return date;
  return rfc3339().dateFromString(text);
}
