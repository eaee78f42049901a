/// @file
/// Immutable bytes, shared by reference.
#pragma once

#include <local/platform/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kvl {

/// A growable byte buffer.
using Bytes = std::vector<std::uint8_t>;

/// An immutable run of bytes. Copying shares the bytes; a copy may be used on any thread.
/// An empty `Data` is a value of its own: absence is `std::optional<Data>`.
class KVL_EXPORT Data {
 public:
  Data() noexcept = default;

  /// Takes over `bytes` without copying them.
  explicit Data(Bytes bytes);

  /// Shares `bytes`, which `owner` keeps alive and unchanged for as long as any copy exists.
  Data(std::shared_ptr<const void> owner, std::span<const std::uint8_t> bytes) noexcept
      : owner_(std::move(owner)), bytes_(bytes) {}

  /// A copy of the bytes of `text`.
  [[nodiscard]] static Data fromText(std::string_view text);

  /// Takes over the bytes of `text` without copying them.
  [[nodiscard]] static Data adoptingText(std::string text);

  /// All of them. Valid while this object, or a copy, lives.
  [[nodiscard]] std::span<const std::uint8_t> bytes() const noexcept { return bytes_; }
  /// The first byte; may be null when there is none.
  [[nodiscard]] const std::uint8_t* data() const noexcept { return bytes_.data(); }
  /// How many bytes there are.
  [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
  /// Whether there is no byte.
  [[nodiscard]] bool empty() const noexcept { return bytes_.empty(); }

  /// A part of the bytes, which keeps all of them alive. @pre offset + count <= size()
  [[nodiscard]] Data slice(std::size_t offset, std::size_t count) const noexcept {
    return {owner_, bytes_.subspan(offset, count)};
  }

  /// The bytes seen as text, as they are: no check for UTF-8. Valid while this object lives.
  [[nodiscard]] std::string_view text() const noexcept {
    return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()};
  }

  /// Equal bytes, wherever they are stored.
  friend KVL_EXPORT bool operator==(const Data& a, const Data& b) noexcept;

 private:
  std::shared_ptr<const void> owner_;
  std::span<const std::uint8_t> bytes_;
};

}  // namespace kvl
