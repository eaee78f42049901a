#include "platform/urlloading/Waker.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace kvl::urlloading {

Waker::~Waker() {
  if (reader_ >= 0) close(reader_);
}

bool Waker::open() noexcept {
  if (reader_ < 0) reader_ = writer_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  return reader_ >= 0;
}

// Neither call fails for any other reason than that there is nothing to do.
void Waker::wake() const noexcept {
  static_cast<void>(eventfd_write(writer_, 1));
}

bool Waker::wait(CURLM* multi, int milliseconds) const noexcept {
  curl_waitfd event{.fd = reader_, .events = CURL_WAIT_POLLIN, .revents = 0};
  int ready = 0;
  curl_multi_wait(multi, &event, 1, milliseconds, &ready);
  if (event.revents == 0) return ready > 0;
  std::uint64_t wakes = 0;
  static_cast<void>(eventfd_read(reader_, &wakes));
  return ready > 1;
}

}  // namespace kvl::urlloading
