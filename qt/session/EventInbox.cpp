#include "qt/session/EventInbox.h"

#include <iterator>
#include <utility>

namespace kvl::qt {
namespace {

std::size_t unitsOf(const Event& event) {
  return static_cast<std::size_t>(event.name.size() + event.data.size() + event.identifier.size());
}

}  // namespace

bool EventInbox::add(const std::vector<std::shared_ptr<KVLEvent>>& events) {
  const MutexLock lock(mutex_);
  const bool wasEmpty = events_.empty();
  for (const auto& event : events) {
    events_.push_back(eventOf(*event));
    units_ += unitsOf(events_.back());
    // The latest stays, however large it is.
    while (events_.size() > kMostEvents || (units_ > kMostUnits && events_.size() > 1)) {
      units_ -= unitsOf(events_.front());
      events_.pop_front();
    }
  }
  return wasEmpty && !events_.empty();
}

QList<Event> EventInbox::take() {
  std::deque<Event> events;
  {
    const MutexLock lock(mutex_);
    events.swap(events_);
    units_ = 0;
  }
  return {std::make_move_iterator(events.begin()), std::make_move_iterator(events.end())};
}

}  // namespace kvl::qt
