#include "platform/formatting/LocalisedTime.h"

#include <local/KVLEncodingLocale.h>

std::string KVLEncoding::duration(std::int64_t seconds) {
  return kvl::formatting::spelledOutDuration(seconds);
}
