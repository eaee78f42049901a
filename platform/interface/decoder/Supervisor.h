// The parent of the workers: warm, confined, and without ever seeing an image.
#pragma once

#include "platform/interface/protocol/ImageChannel.h"
#include "platform/interface/protocol/ImageMessage.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace kvl::decoder {

class Supervisor {
 public:
  // A worker's life, in its own process. Does not return.
  using Work = std::function<void(interface::Descriptor socket, std::uint64_t number)>;

  static constexpr std::size_t kMostWorkers = 2;

  // `host` becomes readable when the host ends, see pidfd_open(2). `whenIdle` is called once, when
  // a worker has been started and the host has been silent for a moment.
  Supervisor(interface::ImageChannel control, interface::Descriptor host, Work work,
             std::function<void()> whenIdle);

  // Starts workers as it is told and tells how each ended, until the host lets go or ends. Returns
  // the program's status.
  [[nodiscard]] int run();

 private:
  struct Worker {
    std::uint64_t number;
    pid_t process;
    interface::Descriptor life;  // its pidfd
    // A copy of the worker's end, by which its end is told.
    interface::ImageChannel channel;
  };

  [[nodiscard]] bool wait(std::chrono::milliseconds most);
  [[nodiscard]] std::optional<int> obey();
  [[nodiscard]] std::optional<int> start(std::uint64_t number, interface::Descriptor socket);
  [[nodiscard]] bool makeRoom();
  void reap();

  interface::ImageChannel control_;
  const interface::Descriptor host_;
  const Work work_;
  std::function<void()> whenIdle_;
  std::vector<Worker> workers_;
  Bytes message_;
};

}  // namespace kvl::decoder
