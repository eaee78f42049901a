#include "platform/urlloading/WakeupSockets.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace kvl::urlloading {
namespace {

// The system may allow a million. libcurl's are new, and new ones have low numbers.
constexpr long kMostLooked = 4096;
// A socket takes some hundreds.
constexpr int kMostWakes = 8192;
constexpr int kWakesAtOnce = 64;

bool isInheritedPipe(int descriptor) {
  const int flags = fcntl(descriptor, F_GETFD);
  if (flags < 0 || (flags & FD_CLOEXEC) != 0) return false;
  sockaddr_storage own{};
  socklen_t size = sizeof own;
  return getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size) == 0 &&
         own.ss_family == AF_UNIX;
}

std::vector<int> inheritedPipes() {
  std::vector<int> found;
  const long most = sysconf(_SC_OPEN_MAX);
  const auto end = static_cast<int>(most < 0 ? kMostLooked : std::min(most, kMostLooked));
  for (int descriptor = 0; descriptor < end; ++descriptor)
    if (isInheritedPipe(descriptor)) found.push_back(descriptor);
  return found;
}

bool allows(int descriptor, short event) {
  pollfd entry{descriptor, event, 0};
  return poll(&entry, 1, 0) == 1 && (entry.revents & event) != 0;
}

bool isReadable(int descriptor) {
  return allows(descriptor, POLLIN);
}

bool isFull(int descriptor) {
  return !allows(descriptor, POLLOUT);
}

// False when libcurl cannot be woken.
bool fill(CURLM* multi, const std::vector<int>& sockets) {
  for (int wakes = 0; wakes < kMostWakes; ++wakes) {
    if (curl_multi_wakeup(multi) != CURLM_OK) return false;
    if (wakes % kWakesAtOnce == 0 && std::ranges::any_of(sockets, isFull)) break;
  }
  return true;
}

}  // namespace

// They are the socket that can be read once libcurl has been woken, and the one that takes no more
// once it has been woken often; afterwards both are as before.
void keepWakeupSocketsFromChildren(CURLM* multi) {
  std::vector<int> readers = inheritedPipes();
  std::erase_if(readers, [](int socket) { return isReadable(socket) || isFull(socket); });
  std::vector<int> writers = readers;
  if (readers.empty() || !fill(multi, writers)) return;
  std::erase_if(readers, [](int socket) { return !isReadable(socket); });
  std::erase_if(writers, [](int socket) { return !isFull(socket); });
  curl_multi_poll(multi, nullptr, 0, 0, nullptr);
  std::erase_if(readers, isReadable);
  std::erase_if(writers, isFull);
  for (const int socket : readers) fcntl(socket, F_SETFD, FD_CLOEXEC);
  for (const int socket : writers) fcntl(socket, F_SETFD, FD_CLOEXEC);
}

}  // namespace kvl::urlloading
