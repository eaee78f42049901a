#include "platform/core/Random.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdlib>
#include <span>

namespace kvl::core {
namespace {

void fill(std::span<std::uint8_t> bytes) noexcept {
  while (!bytes.empty()) {
    const auto count = getrandom(bytes.data(), bytes.size(), 0);
    if (count > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      std::abort();
    }
  }
}

}  // namespace

std::uint8_t StrongRandom::operator()() noexcept {
  if (used_ == bytes_.size()) {
    fill(bytes_);
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
