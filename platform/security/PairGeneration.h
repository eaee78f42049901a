// The making of an RSA pair, which takes longer than anything else at a host's start.
#pragma once

#include <local/platform/Security.h>

#include <memory>
#include <optional>

namespace kvl::security {

struct KeyPair {
  KeyRef publicKey;
  KeyRef privateKey;
};

// Absent when OpenSSL fails.
[[nodiscard]] std::optional<KeyPair> generatePair(unsigned int sizeInBits);

// A pair that is generated on a thread of its own while its owner does something else.
class PairGeneration {
 public:
  explicit PairGeneration(unsigned int sizeInBits);

  [[nodiscard]] unsigned int sizeInBits() const noexcept;
  // Whether `take` would wait for nothing.
  [[nodiscard]] bool isDone() const noexcept;
  // Once. Waits for the pair, or generates it here when the thread has not begun with it.
  [[nodiscard]] std::optional<KeyPair> take();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace kvl::security
