#include "platform/urlloading/Waker.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace kvl::urlloading {

Waker::~Waker() {
  if (descriptor_ >= 0) close(descriptor_);
}

bool Waker::open() noexcept {
  if (descriptor_ < 0) descriptor_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  return descriptor_ >= 0;
}

// Neither call fails for any other reason than that there is nothing to do.
void Waker::wake() const noexcept {
  static_cast<void>(eventfd_write(descriptor_, 1));
}

bool Waker::wait(CURLM* multi, int milliseconds) const noexcept {
  curl_waitfd event{.fd = descriptor_, .events = CURL_WAIT_POLLIN, .revents = 0};
  int ready = 0;
  curl_multi_wait(multi, &event, 1, milliseconds, &ready);
  if (event.revents == 0) return ready > 0;
  std::uint64_t wakes = 0;
  static_cast<void>(eventfd_read(descriptor_, &wakes));
  return ready > 1;
}

}  // namespace kvl::urlloading
