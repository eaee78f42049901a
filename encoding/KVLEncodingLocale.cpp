#include "platform/formatting/Duration.h"
#include "platform/formatting/UserLocale.h"

#include <local/KVLEncodingLocale.h>

std::string KVLEncoding::duration(std::int64_t seconds) {
  using namespace kvl::formatting;
  return spelledOutDuration(seconds, userTimeLocale());
}
