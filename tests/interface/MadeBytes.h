// Pieces of binary files.
#pragma once

#include "platform/interface/images/Bytes.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kvltest {

inline kvl::images::Span spanOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline std::string numberBytes(std::uint64_t number, std::size_t length,
                               kvl::images::ByteOrder order = kvl::images::ByteOrder::kBig) {
  std::string bytes;
  for (std::size_t i = 0; i < length; ++i) {
    const auto place = order == kvl::images::ByteOrder::kBig ? length - 1 - i : i;
    bytes += static_cast<char>(number >> 8 * place);
  }
  return bytes;
}

inline std::string repeated(std::string_view text, std::size_t times) {
  std::string all;
  for (std::size_t i = 0; i < times; ++i) all += text;
  return all;
}

struct Sides {
  std::uint32_t width;
  std::uint32_t height;
};

// Each at a limit.
inline constexpr Sides kDecodableSides[] = {{1, 1},       {2048, 2048}, {16384, 256},
                                            {256, 16384}, {16384, 1},   {1, 16384}};
// Each just beyond one limit.
inline constexpr Sides kUndecodableSides[] = {
    {0, 1},       {1, 0},     {2048, 2049}, {2049, 2048}, {16384, 257},
    {257, 16384}, {16385, 1}, {1, 16385},   {65535, 1},   {1, 65535}};

}  // namespace kvltest
