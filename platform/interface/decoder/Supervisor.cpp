#include "platform/interface/decoder/Supervisor.h"

#include "platform/interface/decoder/Status.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace kvl::decoder {
namespace {

using interface::Descriptor;
using interface::ImageChannel;
using interface::Start;
using interface::WorkerEnded;

constexpr std::chrono::milliseconds kSilence{100};
// A worker that the host has ended may take a moment to give its memory back.
constexpr std::chrono::milliseconds kEnding{2000};
constexpr std::chrono::milliseconds kForEver{-1};

bool readable(const pollfd& entry) {
  return entry.revents != 0;
}

}  // namespace

Supervisor::Supervisor(ImageChannel control, Descriptor host, Work work,
                       std::function<void()> whenIdle)
    : control_(std::move(control)),
      host_(std::move(host)),
      work_(std::move(work)),
      whenIdle_(std::move(whenIdle)) {
  workers_.reserve(kMostWorkers);
}

int Supervisor::run() {
  while (true) {
    const bool idle = whenIdle_ != nullptr && !workers_.empty();
    if (!wait(idle ? kSilence : kForEver)) return kLetGo;
    if (const auto status = obey()) return *status;
  }
}

// Until anything happens. False when the host has ended.
bool Supervisor::wait(std::chrono::milliseconds most) {
  std::vector<pollfd> entries{{host_.get(), POLLIN, 0}, {control_.descriptor(), POLLIN, 0}};
  for (const auto& worker : workers_) entries.push_back({worker.life.get(), POLLIN, 0});
  const int ready = poll(entries.data(), entries.size(), static_cast<int>(most.count()));
  if (readable(entries[0])) return false;
  reap();
  if (ready == 0 && most == kSilence) std::exchange(whenIdle_, nullptr)();
  return true;
}

// A status when the program ends with it.
std::optional<int> Supervisor::obey() {
  ImageChannel::Packet packet;
  while (true) {
    switch (control_.receive(packet, 1)) {
      case ImageChannel::Receipt::kNothingYet:
        return std::nullopt;
      case ImageChannel::Receipt::kOver:
        return kLetGo;
      case ImageChannel::Receipt::kPacket:
        break;
    }
    const auto command = interface::readStart(packet.message, packet.count);
    if (!command) return kWrongMessage;
    if (const auto status = start(command->worker, std::move(packet.descriptors[0]))) return status;
  }
}

std::optional<int> Supervisor::start(std::uint64_t number, Descriptor socket) {
  if (!makeRoom()) return kWrongMessage;
  const pid_t process = fork();
  const int error = errno;
  if (process == 0) {
    work_(std::move(socket), number);
    _exit(kWrongMessage);
  }
  ImageChannel channel(std::move(socket));
  if (process < 0) {
    write(WorkerEnded{.number = number, .error = error}, message_);
    static_cast<void>(channel.send(message_));
    return std::nullopt;
  }
  Descriptor life(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
  // Workers end with this process.
  if (!life) return errno;
  workers_.push_back({number, process, std::move(life), std::move(channel)});
  return std::nullopt;
}

// The host starts a worker instead of one that it has ended without waiting for its end. False when
// there would be too many.
bool Supervisor::makeRoom() {
  reap();
  while (workers_.size() >= kMostWorkers) {
    std::vector<pollfd> entries{{host_.get(), POLLIN, 0}};
    for (const auto& worker : workers_) entries.push_back({worker.life.get(), POLLIN, 0});
    const int ready = poll(entries.data(), entries.size(), static_cast<int>(kEnding.count()));
    if (ready == 0 || readable(entries[0])) return false;
    reap();
  }
  return true;
}

void Supervisor::reap() {
  std::erase_if(workers_, [this](Worker& worker) {
    int status = 0;
    rusage use{};
    if (wait4(worker.process, &status, WNOHANG, &use) != worker.process) return false;
    write(WorkerEnded{.number = worker.number,
                      .status = status,
                      .error = 0,
                      .peakKiB = static_cast<std::uint64_t>(use.ru_maxrss)},
          message_);
    static_cast<void>(worker.channel.send(message_));
    return true;
  });
}

}  // namespace kvl::decoder
