// Events on their way to a thread of Qt's.
#pragma once

#include <local/KVLEvent.h>
#include <local/platform/Mutex.h>
#include <local/qt/Events.h>

#include <QList>
#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

namespace kvl::qt {

// Takes events in on the framework's queue until somebody takes them out. However fast they come,
// no more than the latest are kept. Any thread.
class EventInbox {
 public:
  static constexpr std::size_t kMostEvents = 10'000;
  static constexpr std::size_t kMostUnits = std::size_t{32} << 20;  // UTF-16 code units in all

  // Whether there is something to take out and nothing was.
  [[nodiscard]] bool add(const std::vector<std::shared_ptr<KVLEvent>>& events);
  // What has come since the last time.
  [[nodiscard]] QList<Event> take();

 private:
  Mutex mutex_;
  std::deque<Event> events_ KVL_GUARDED_BY(mutex_);
  std::size_t units_ KVL_GUARDED_BY(mutex_) = 0;
};

}  // namespace kvl::qt
