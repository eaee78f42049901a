// Fields of a message, read by their offsets.
#pragma once

#include <local/platform/Data.h>

#include <cstddef>
#include <cstring>

namespace kvl::fuzz {

// @pre offset + sizeof(T) <= message.size()
template <class T>
[[nodiscard]] T at(const Bytes& message, std::size_t offset) {
  T value{};
  std::memcpy(&value, message.data() + offset, sizeof value);
  return value;
}

}  // namespace kvl::fuzz
