#include "platform/core/Random.h"

#include <unistd.h>

#include <cstdlib>

namespace kvl::core {

std::uint8_t StrongRandom::operator()() noexcept {
  if (used_ == bytes_.size()) {
    if (getentropy(bytes_.data(), bytes_.size()) != 0) std::abort();
    used_ = 0;
  }
  return bytes_[used_++];
}

unsigned uniformDraw(unsigned bound, const ByteSource& source) {
  const unsigned limit = kByteValues - kByteValues % bound;
  unsigned byte = source();
  while (byte >= limit) byte = source();
  return byte % bound;
}

}  // namespace kvl::core
