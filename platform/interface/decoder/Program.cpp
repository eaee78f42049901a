#include "platform/interface/decoder/Program.h"

#include "platform/interface/decoder/ResourceLimits.h"
#include "platform/interface/decoder/Status.h"
#include "platform/interface/decoder/Supervisor.h"
#include "platform/interface/decoder/Worker.h"
#include "platform/interface/protocol/ImageChannel.h"
#include "platform/interface/protocol/ImageMessage.h"

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <utility>

namespace kvl::decoder {
namespace {

using interface::Descriptor;
using interface::ImageChannel;

constexpr int kSocket = 3;

int processDescriptor(pid_t process) {
  return static_cast<int>(syscall(SYS_pidfd_open, process, 0));
}

// The process that made the socket. It may have ended before this one could look, and its number
// may be another's by now: it counts only while it is this one's parent.
Descriptor openHost() {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (getsockopt(kSocket, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return {};
  Descriptor host(processDescriptor(peer.pid));
  return getppid() == peer.pid ? std::move(host) : Descriptor();
}

// A fork takes one thread along, and the rules hold for the thread that asked for them.
bool hasOneThread() {
  DIR* const folder = opendir("/proc/self/task");
  if (folder == nullptr) return true;
  int entries = 0;
  while (readdir(folder) != nullptr) ++entries;
  closedir(folder);
  return entries == 3;  // itself, "." and ".."
}

// Each means by itself: what the system lacks is left out.
interface::Hello confine(const Program& program) {
  interface::Hello hello;
  hello.landlockVersion = program.landlockVersion;
  if (!limitProcess()) hello.lacks |= interface::kNoLimits;
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  if (!restrictFiles(program.readable, program.landlockVersion)) {
    hello.lacks |= interface::kNoLandlock;
    hello.landlockVersion = 0;
  }
  if (hello.landlockVersion < kLandlockNetworkVersion) hello.lacks |= interface::kNoNetworkRules;
  if (!SystemCallFilter::forParent(program.denied).apply()) {
    hello.lacks |= interface::kNoSystemCallFilter;
  }
  return hello;
}

// What a worker has of its parent, and what it does with it.
class Birth {
 public:
  Birth(const Program& program, Descriptor size) : program_(program), size_(std::move(size)) {}

  [[nodiscard]] bool knowsSize() const { return MemoryLimit::sizeNow(size_).has_value(); }

  // In the worker's process.
  [[noreturn]] void work(Descriptor socket, std::uint64_t number, bool isFiltered) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent_) _exit(kNoHost);
    const MemoryLimit memory(MemoryLimit::sizeNow(size_).value_or(0));
    // Nothing of what the parent has open, the socket of the other worker above all.
    if (dup3(socket.release(), kSocket, O_CLOEXEC) < 0) _exit(kNoHost);
    if (close_range(kSocket + 1, ~0U, 0) != 0) _exit(kNoHost);
    ImageChannel channel{Descriptor(kSocket)};
    Descriptor self(processDescriptor(getpid()));
    memory.begin();
    const bool isFilteredFurther = SystemCallFilter::forWorker(program_.denied).apply();
    if (isFiltered && !isFilteredFurther) _exit(kNotConfined);
    _exit(serve(std::move(channel), std::move(self), number, program_, memory));
  }

 private:
  const Program program_;
  const Descriptor size_;
  const pid_t parent_ = getpid();
};

}  // namespace

int run(const Program& program) {
  close_range(kSocket + 1, ~0U, 0);
  auto host = openHost();
  if (!host) return kNoHost;
  expectTheWorst();
  // Each of more would reserve 64 MiB of the address space.
  mallopt(M_ARENA_MAX, 1);
  program.loadDecoders();
  if (!hasOneThread()) return kSeveralThreads;
  const Birth birth(program, MemoryLimit::openSize());
  auto hello = confine(program);
  if (!birth.knowsSize()) hello.lacks |= interface::kNoLimits;

  const bool isFiltered = (hello.lacks & interface::kNoSystemCallFilter) == 0;
  ImageChannel control{Descriptor(kSocket)};
  Bytes message;
  write(hello, message);
  if (!control.send(message)) return kNoHost;
  return Supervisor(
             std::move(control), std::move(host),
             [&birth, isFiltered](Descriptor socket, std::uint64_t number) {
               birth.work(std::move(socket), number, isFiltered);
             },
             program.warmText)
      .run();
}

}  // namespace kvl::decoder
