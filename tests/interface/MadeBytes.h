// Pieces of binary files.
#pragma once

#include <cstdint>
#include <string>

namespace kvltest {

enum class ByteOrder { kLittle, kBig };

inline std::string numberBytes(std::uint64_t number, std::size_t length,
                               ByteOrder order = ByteOrder::kBig) {
  std::string bytes;
  for (std::size_t i = 0; i < length; ++i) {
    const auto place = order == ByteOrder::kBig ? length - 1 - i : i;
    bytes += static_cast<char>(number >> 8 * place);
  }
  return bytes;
}

struct Sides {
  std::uint32_t width;
  std::uint32_t height;
};

}  // namespace kvltest
