// Numbers that whoever runs a test may choose.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace kvltest {

inline std::uint64_t setting(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

}  // namespace kvltest
