#include "examples/qthost/EventInbox.h"

#include <utility>

namespace qthost {

EventInbox::EventInbox(std::function<void()> arrived) : arrived_(std::move(arrived)) {}

void EventInbox::eventStream(KVLSession& /*session*/,
                             const std::vector<std::shared_ptr<KVLEvent>>& events) {
  add(events);
}

void EventInbox::add(const std::vector<std::shared_ptr<KVLEvent>>& events) {
  bool wasEmpty = false;
  {
    const std::lock_guard lock(mutex_);
    wasEmpty = events_.empty();
    events_.insert(events_.end(), events.begin(), events.end());
    while (events_.size() > kMostKept) events_.pop_front();
  }
  if (wasEmpty) arrived_();
}

EventInbox::Events EventInbox::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(events_, {});
}

}  // namespace qthost
