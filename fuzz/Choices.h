// Choices, numbers and texts taken off the bytes of an input, for what is made from them.
#pragma once

#include "fuzz/Target.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kvl::fuzz {

// What is missing at the end counts as zero or as empty.
class Choices {
 public:
  explicit Choices(std::string_view bytes) : rest_(bytes) {}
  explicit Choices(Input input) : rest_(textOf(input)) {}

  [[nodiscard]] bool left() const { return !rest_.empty(); }
  [[nodiscard]] std::string_view rest() const { return rest_; }

  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    const char first = rest_.front();
    rest_.remove_prefix(1);
    return static_cast<std::uint8_t>(first);
  }

  // From 0 to `count` - 1.
  std::size_t below(std::size_t count) { return byte() % count; }
  bool yes() { return (byte() & 1U) != 0; }

  template <class T, std::size_t N>
  const T& of(const std::array<T, N>& all) {
    return all[below(N)];
  }

  std::uint64_t number(int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = value << 8 | byte();
    return value;
  }

  std::string_view text(std::size_t size) {
    const auto taken = rest_.substr(0, size);
    rest_.remove_prefix(taken.size());
    return taken;
  }

  // Of a length that stands before it.
  std::string_view text() { return text(byte()); }

 private:
  std::string_view rest_;
};

}  // namespace kvl::fuzz
