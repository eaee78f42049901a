#include "tools/kvlocal/ReaderWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace kvlocal {

ReaderWatch::ReaderWatch(std::function<void()> onLeaving)
    : onLeaving_(std::move(onLeaving)), end_(eventfd(0, EFD_CLOEXEC)) {
  // Without it the watch could not be ended; the next write notices as well.
  if (end_ >= 0) thread_ = std::thread([this] { watch(); });
}

ReaderWatch::~ReaderWatch() {
  if (end_ < 0) return;
  eventfd_write(end_, 1);
  thread_.join();
  close(end_);
}

void ReaderWatch::watch() const {
  // Asked for nothing, poll still tells of errors: a pipe has one when its last reader has gone.
  std::array<pollfd, 2> either{pollfd{STDOUT_FILENO, 0, 0}, pollfd{end_, POLLIN, 0}};
  while (poll(either.data(), either.size(), -1) < 0 && errno == EINTR) {
  }
  if ((either[0].revents & POLLERR) != 0) onLeaving_();
}

}  // namespace kvlocal
