#include "encoding/EventBuffer.h"

#include <utility>

namespace KVLEncoding::awaitable::detail {

EventBuffer::EventBuffer(const EventLimits& limits, Hold hold)
    : limits_(limits), hold_(std::move(hold)) {}

void EventBuffer::add(const std::vector<Event>& events) {
  if (events.empty()) return;
  std::shared_ptr<Waiter> waiter;
  std::optional<Event> first;
  {
    const kvl::MutexLock lock(mutex_);
    if (isOver_) return;
    for (const auto& event : events) push(event);
    waiter = takeWaiter();
    if (waiter) first = takeFirst();
    wantHoldIfFull();
  }
  settleHold();
  if (waiter) (*waiter)(std::move(first));
}

void EventBuffer::end() {
  std::shared_ptr<Waiter> waiter;
  {
    const kvl::MutexLock lock(mutex_);
    isOver_ = true;
    wantsHold_ = false;
    waiter = takeWaiter();
  }
  settleHold();
  if (waiter) (*waiter)(std::nullopt);
}

void EventBuffer::close() {
  std::deque<Event> dropped;
  {
    const kvl::MutexLock lock(mutex_);
    isClosed_ = true;
    dropped.swap(events_);
    sizes_.clear();
    bytes_ = 0;
  }
  end();
}

void EventBuffer::giveBack(Event event) {
  std::shared_ptr<Waiter> waiter;
  std::optional<Event> first;
  {
    const kvl::MutexLock lock(mutex_);
    if (isClosed_) return;
    sizes_.push_front(event->textSize());
    bytes_ += sizes_.front();
    events_.push_front(std::move(event));
    waiter = takeWaiter();
    if (waiter) first = takeFirst();
    wantHoldIfFull();
  }
  settleHold();
  if (waiter) (*waiter)(std::move(first));
}

void EventBuffer::next(const std::shared_ptr<Waiter>& waiter) {
  std::shared_ptr<Waiter> before;
  std::optional<Event> first;
  bool isWaiting = false;
  {
    const kvl::MutexLock lock(mutex_);
    before = takeWaiter();
    if (!events_.empty()) first = takeFirst();
    isWaiting = !first && !isOver_;
    if (isWaiting) waiter_ = waiter;
    if (isAlmostEmpty()) wantsHold_ = false;
  }
  settleHold();
  if (before) (*before)(std::nullopt);
  if (!isWaiting) (*waiter)(std::move(first));
}

std::shared_ptr<EventBuffer::Waiter> EventBuffer::takeWaiter() {
  return std::exchange(waiter_, {}).lock();
}

EventBuffer::Event EventBuffer::takeFirst() {
  auto event = std::move(events_.front());
  events_.pop_front();
  bytes_ -= sizes_.front();
  sizes_.pop_front();
  return event;
}

void EventBuffer::push(const Event& event) {
  events_.push_back(event);
  sizes_.push_back(event->textSize());
  bytes_ += sizes_.back();
  if (limits_.overflow != EventLimits::Overflow::dropOldest) return;
  while (events_.size() > 1 && (events_.size() > limits_.most || bytes_ > limits_.bytes)) {
    (void)takeFirst();
  }
}

void EventBuffer::wantHoldIfFull() {
  if (limits_.overflow == EventLimits::Overflow::hold && !isOver_ && isFull()) wantsHold_ = true;
}

bool EventBuffer::isFull() const {
  return !events_.empty() && (events_.size() >= limits_.most || bytes_ >= limits_.bytes);
}

bool EventBuffer::isAlmostEmpty() const {
  constexpr std::size_t kPart = 4;
  return events_.empty() ||
         (events_.size() < limits_.most / kPart && bytes_ < limits_.bytes / kPart);
}

// One thread at a time, so that the stream hears of holding and letting go in turn; what is wanted
// meanwhile it finds when it looks again.
void EventBuffer::settleHold() {
  kvl::MutexLock lock(mutex_);
  if (isSettling_) return;
  isSettling_ = true;
  while (wantsHold_ != isHeld_) {
    isHeld_ = wantsHold_;
    const bool holds = isHeld_;
    lock.unlock();
    hold_(holds);
    lock.lock();
  }
  isSettling_ = false;
}

}  // namespace KVLEncoding::awaitable::detail
