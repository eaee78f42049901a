// Who reads standard output.
#pragma once

#include <functional>
#include <thread>

namespace kvlocal {

// Notices while nothing is written that nobody reads standard output any more, when that is a pipe.
class ReaderWatch {
 public:
  // Calls `onLeaving` at most once, on a thread of its own, and never after its destruction.
  explicit ReaderWatch(std::function<void()> onLeaving);
  ~ReaderWatch();
  ReaderWatch(const ReaderWatch&) = delete;
  ReaderWatch& operator=(const ReaderWatch&) = delete;

 private:
  void watch() const;

  const std::function<void()> onLeaving_;
  const int end_;
  std::thread thread_;
};

}  // namespace kvlocal
