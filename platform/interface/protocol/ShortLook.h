// Looking for what comes next, for a moment, before one sleeps.
#pragma once

#include <sched.h>
#include <unistd.h>

#include <chrono>

namespace kvl::interface {

// Being woken costs both sides more than drawing some icons. But where others want the processor
// each look costs a slice of theirs: who notices that does not look for a while, as the kernel lets
// sleepers in at once. One thread at a time.
class ShortLook {
 public:
  struct Times {
    std::chrono::microseconds moment{200};  // how long to look
    std::chrono::milliseconds taken{1};     // who gives the processor up and gets it back later
    std::chrono::milliseconds pause{100};   // does not look for so long
  };

  ShortLook() : ShortLook({}, [] { sched_yield(); }) {}
  // `giveUp` offers the processor to others.
  ShortLook(const Times& times, void (*giveUp)()) : times_(times), giveUp_(giveUp) {}

  // Whether `isThere` has become true within the moment.
  template <class Condition>
  [[nodiscard]] bool sees(Condition isThere) {
    if (!severalProcessors_) return false;
    const auto begin = Clock::now();
    if (begin < again_) return false;
    for (auto now = begin; now < begin + times_.moment;) {
      if (isThere()) return true;
      giveUp_();
      const auto after = Clock::now();
      if (after - now > times_.taken) again_ = after + times_.pause;
      now = after;
    }
    return false;
  }

 private:
  using Clock = std::chrono::steady_clock;

  const Times times_;
  void (*const giveUp_)();
  const bool severalProcessors_ = sysconf(_SC_NPROCESSORS_ONLN) > 1;
  Clock::time_point again_ = Clock::time_point::min();
};

}  // namespace kvl::interface
