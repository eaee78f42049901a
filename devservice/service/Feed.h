// What the service tells whoever follows it: events in order, with consecutive numbers.
#pragma once

#include <local/platform/Mutex.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace devservice {

// Keeps the latest events; those who come later get them, too. Used by many threads.
//
// Whoever has followed the service before its restart knows higher numbers than this one has given:
// the first who says so lets it go on counting from there.
class Feed {
 public:
  // Begins with the event "started".
  Feed();

  // `data` is JSON text on one line.
  void publish(std::string_view name, std::string_view data);
  // Publishes a "tick" when nothing of that name has come for so long.
  void tickEvery(std::chrono::milliseconds interval);

  // Where a follower begins who has seen `lastEventID`, which may be anything.
  [[nodiscard]] std::int64_t positionAfter(std::string_view lastEventID);
  // The text of the events from `position` on, which then stands behind them; empty for none.
  [[nodiscard]] std::string take(std::int64_t& position);

 private:
  struct Event {
    std::string name;
    std::string data;
  };

  [[nodiscard]] std::int64_t end() const KVL_REQUIRES(mutex_);
  void append(std::string_view name, std::string_view data) KVL_REQUIRES(mutex_);

  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  kvl::Mutex mutex_;
  std::deque<Event> events_ KVL_GUARDED_BY(mutex_);
  std::int64_t dropped_ KVL_GUARDED_BY(mutex_) = 0;  // events before the first one that is kept
  std::int64_t offset_ KVL_GUARDED_BY(mutex_) = 0;   // of numbers to positions
  std::chrono::steady_clock::time_point lastTick_ KVL_GUARDED_BY(mutex_) = start_;
};

}  // namespace devservice
