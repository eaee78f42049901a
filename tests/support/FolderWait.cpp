#include "tests/support/FolderWait.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>

namespace kvltest {
namespace {

constexpr std::chrono::milliseconds kFolderPatience{60'000};

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {
    if (number < 0) throw std::runtime_error("no descriptor to wait for files");
  }
  ~Descriptor() { close(number_); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int number() const { return number_; }

 private:
  const int number_;
};

// What has changed does not matter, only that something has.
void drain(const Descriptor& watch) {
  std::array<char, 4096> events{};
  while (read(watch.number(), events.data(), events.size()) > 0) {
  }
}

}  // namespace

bool waitForFolder(const std::filesystem::path& folder, const ChildProcess& process,
                   const std::function<bool()>& condition) {
  const Descriptor watch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  inotify_add_watch(watch.number(), folder.c_str(), IN_CREATE | IN_MOVED_TO | IN_MODIFY);
  // glibc 2.36 declares pidfd_open without C linkage.
  const Descriptor end(static_cast<int>(syscall(SYS_pidfd_open, process.id(), 0)));
  bool ended = false;
  while (!condition()) {
    if (ended) return false;
    std::array<pollfd, 2> either{pollfd{watch.number(), POLLIN, 0},
                                 pollfd{end.number(), POLLIN, 0}};
    if (poll(either.data(), either.size(), static_cast<int>(kFolderPatience.count())) <= 0) {
      return false;
    }
    ended = either[1].revents != 0;
    drain(watch);
  }
  return true;
}

}  // namespace kvltest
