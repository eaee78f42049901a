#include "platform/core/UTF8.h"

#include <simdjson.h>

namespace kvl::core {

bool isUTF8(std::string_view bytes) noexcept {
  return simdjson::validate_utf8(bytes.data(), bytes.size());
}

}  // namespace kvl::core
