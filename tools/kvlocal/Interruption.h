// Ctrl-C and its relatives.
#pragma once

#include "tools/kvlocal/Rendezvous.h"

#include <atomic>
#include <memory>
#include <thread>

namespace kvlocal {

// Turns SIGINT, SIGTERM and SIGHUP into an interrupt of the rendezvous as long as it lives; a
// second one ends the process at once, for a user whose terminal or pipe blocks the first. Make it
// before any other thread starts: threads inherit that these signals are blocked.
class Interruption {
 public:
  explicit Interruption(std::shared_ptr<Rendezvous> rendezvous);
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

 private:
  void watch();

  const std::shared_ptr<Rendezvous> rendezvous_;
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace kvlocal
