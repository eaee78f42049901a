#include "platform/urlloading/WakeupSockets.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <charconv>
#include <memory>
#include <string_view>
#include <vector>

namespace kvl::urlloading {
namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

bool isInheritedPipe(int descriptor) {
  int domain = 0;
  socklen_t size = sizeof(domain);
  const int flags = fcntl(descriptor, F_GETFD);
  return flags >= 0 && (flags & FD_CLOEXEC) == 0 &&
         getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

std::vector<int> inheritedPipes() {
  std::vector<int> found;
  const std::unique_ptr<DIR, DirectoryCloser> directory(opendir("/proc/self/fd"));
  if (!directory) return found;
  while (const dirent* entry = readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    int descriptor = -1;
    std::from_chars(name.data(), name.data() + name.size(), descriptor);
    if (descriptor >= 0 && isInheritedPipe(descriptor)) found.push_back(descriptor);
  }
  return found;
}

// Whether bytes are on their way through the socket, in either direction.
bool isBusy(int descriptor) {
  int received = 0;
  int sent = 0;
  return ioctl(descriptor, SIOCINQ, &received) == 0 && ioctl(descriptor, SIOCOUTQ, &sent) == 0 &&
         (received > 0 || sent > 0);
}

}  // namespace

// They are the sockets in which a wake-up can be seen, before it is taken and no more afterwards.
void keepWakeupSocketsFromChildren(CURLM* multi) {
  std::vector<int> sockets = inheritedPipes();
  std::erase_if(sockets, [](int descriptor) { return isBusy(descriptor); });
  if (curl_multi_wakeup(multi) != CURLM_OK) return;
  std::erase_if(sockets, [](int descriptor) { return !isBusy(descriptor); });
  curl_multi_poll(multi, nullptr, 0, 0, nullptr);
  std::erase_if(sockets, [](int descriptor) { return isBusy(descriptor); });
  for (const int descriptor : sockets) fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

}  // namespace kvl::urlloading
