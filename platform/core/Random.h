// Unpredictable random numbers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace kvl::core {

// Gives one random byte per call, each value as likely as any other.
using ByteSource = std::function<std::uint8_t()>;

// The system's strong random source (getentropy(3)). Copies give bytes of their own; one object
// belongs to one thread at a time. Ends the process when the system has no such source: whoever
// asks for secrets must not go on with guessable ones.
class StrongRandom {
 public:
  StrongRandom() = default;
  StrongRandom(const StrongRandom&) noexcept {}
  StrongRandom& operator=(const StrongRandom&) = delete;

  [[nodiscard]] std::uint8_t operator()() noexcept;

 private:
  std::array<std::uint8_t, 32> bytes_{};
  std::size_t used_ = bytes_.size();
};

// The number of byte values.
inline constexpr unsigned kByteValues = 256;

// A number below `bound`, each as likely as any other as long as the source's bytes are: bytes from
// the last, incomplete run of `bound` values are drawn again.
// @pre 1 <= bound <= kByteValues
[[nodiscard]] unsigned uniformDraw(unsigned bound, const ByteSource& source);

}  // namespace kvl::core
