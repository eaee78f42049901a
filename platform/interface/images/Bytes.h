// Reading of binary structures: nothing here reads past the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace kvl::images {

using Span = std::span<const std::uint8_t>;

enum class ByteOrder { kBig, kLittle };

// An unsigned number of 1 to 4 bytes at `offset`; none when the bytes end before.
[[nodiscard]] inline std::optional<std::uint32_t> numberAt(Span bytes, std::size_t offset,
                                                           std::size_t length, ByteOrder order) {
  if (offset > bytes.size() || length > bytes.size() - offset) return {};
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < length; ++i) {
    const auto next = order == ByteOrder::kBig ? offset + i : offset + length - 1 - i;
    number = number << 8 | bytes[next];
  }
  return number;
}

// Reads from front to back. Once something is missing, all that follows is missing too.
class ByteCursor {
 public:
  ByteCursor(Span bytes, ByteOrder order) : bytes_(bytes), order_(order) {}

  [[nodiscard]] bool failed() const { return failed_; }
  [[nodiscard]] std::size_t position() const { return position_; }

  std::uint32_t number(std::size_t length) {
    const auto value = numberAt(bytes_, position_, length, order_);
    skip(length);
    return value.value_or(0);
  }

  void skip(std::size_t count) {
    if (count > bytes_.size() - position_) return fail();
    position_ += count;
  }

  void fail() {
    failed_ = true;
    position_ = bytes_.size();
  }

 private:
  Span bytes_;
  ByteOrder order_;
  std::size_t position_ = 0;
  bool failed_ = false;
};

}  // namespace kvl::images
