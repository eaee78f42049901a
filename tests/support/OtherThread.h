// A call on a thread of its own, of which the test sees whether it waits.
#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

namespace kvltest {

// Its destructor waits for the end of the call, so what the call waits for must outlive it.
class OtherThread {
 public:
  template <class Call>
  explicit OtherThread(Call call)
      : thread_([this, call = std::move(call)]() mutable {
          identifier_ = gettid();
          call();
          ended_ = true;
        }) {}

  // True as soon as the call sleeps and nothing but somebody else's doing will wake it; false when
  // it has ended. A thread that merely has no processor does not sleep.
  [[nodiscard]] bool isWaiting() const {
    constexpr int kEnough = 10;
    auto before = standing();
    for (int same = 0; same < kEnough;) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      if (ended_) return false;
      auto now = standing();
      same = now == before && now.starts_with('S') ? same + 1 : 0;
      before = std::move(now);
    }
    return true;
  }
  [[nodiscard]] bool hasEnded() const { return ended_; }
  void join() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  // The thread's state and how often it has gone to sleep.
  [[nodiscard]] std::string standing() const {
    std::ifstream status("/proc/self/task/" + std::to_string(identifier_) + "/status");
    std::string state;
    std::string sleeps;
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("State:\t")) state = line.substr(7);
      if (line.starts_with("voluntary_ctxt_switches:")) sleeps = line;
    }
    return state + sleeps;
  }

  std::atomic<pid_t> identifier_ = 0;
  std::atomic<bool> ended_ = false;
  std::jthread thread_;
};

}  // namespace kvltest
