#include "platform/urlloading/Waker.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>

namespace kvl::urlloading {

Waker::~Waker() {
  if (reader_ < 0) return;
  close(reader_);
  close(writer_);
}

bool Waker::open() noexcept {
  if (reader_ >= 0) return true;
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return false;
  reader_ = ends[0];
  writer_ = ends[1];
  return true;
}

// A full pipe wakes as well.
void Waker::wake() const noexcept {
  [[maybe_unused]] const auto written = write(writer_, "", 1);
}

bool Waker::wait(CURLM* multi, int milliseconds) const noexcept {
  curl_waitfd event{.fd = reader_, .events = CURL_WAIT_POLLIN, .revents = 0};
  int ready = 0;
  curl_multi_wait(multi, &event, 1, milliseconds, &ready);
  if (event.revents == 0) return ready > 0;
  std::array<char, 256> wakes{};
  while (read(reader_, wakes.data(), wakes.size()) == static_cast<ssize_t>(wakes.size())) {
  }
  return ready > 1;
}

}  // namespace kvl::urlloading
