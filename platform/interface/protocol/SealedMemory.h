// Memory files by which encoded bytes and pixels go between processes that do not trust each other.
#pragma once

#include "platform/interface/protocol/ImageChannel.h"

#include <local/platform/Data.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace kvl::interface {

// A memory file with `bytes`, which nobody can change any more. None without descriptors or memory,
// or below the process's RLIMIT_FSIZE, which would raise a signal.
[[nodiscard]] std::optional<Descriptor> sealedFile(Span bytes);
// One of `size` zeros to be drawn into; its size is sealed. None likewise.
[[nodiscard]] std::optional<Descriptor> drawableFile(std::size_t size);
// Seals what was drawn and maps it, read-only. None while anybody has it mapped for writing, or
// when it is not of that size.
[[nodiscard]] std::optional<Data> sealedData(const Descriptor& file, std::size_t size);

// A mapped file of the other side. Empty when the file is not sealed as it should be, or not of
// that size.
class MappedBytes {
 public:
  [[nodiscard]] static MappedBytes readable(const Descriptor& file, std::size_t size);
  [[nodiscard]] static MappedBytes writable(const Descriptor& file, std::size_t size);

  MappedBytes() noexcept = default;
  ~MappedBytes();
  MappedBytes(MappedBytes&& other) noexcept;
  MappedBytes& operator=(MappedBytes&& other) noexcept;

  [[nodiscard]] Span bytes() const noexcept { return bytes_; }
  // Only of one that is writable.
  [[nodiscard]] std::span<std::uint8_t> pixels() const noexcept { return bytes_; }

 private:
  explicit MappedBytes(std::span<std::uint8_t> bytes) noexcept : bytes_(bytes) {}

  std::span<std::uint8_t> bytes_;
};

}  // namespace kvl::interface
