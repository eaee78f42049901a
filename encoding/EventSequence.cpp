#include <local/KVLEncodingAwaitEvents.h>
#include <local/KVLSession.h>
#include <local/platform/Mutex.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

using KVLEncoding::awaitable::EventLimits;

namespace {

// The events that wait for a coroutine, and the stream that is held while they are many.
// Thread-safe. Nothing is called with its lock held.
class EventBuffer {
 public:
  using Event = std::shared_ptr<KVLEvent>;
  struct Item {
    Event event;
    std::uint64_t number = 0;  // in the order in which they came
    std::size_t size = 0;      // of its text then, which may change
  };
  // Receives the next event, or none at the end. Whoever waits holds it, and forgets it by letting
  // go.
  using Waiter = std::function<void(std::optional<Item>)>;
  // Called with whether the stream is to be held, never twice with the same.
  using Hold = std::function<void(bool)>;

  EventBuffer(const EventLimits& limits, Hold hold);

  void add(const std::vector<Event>& events);
  // No more will come; what waits stays.
  void end();
  // The same, and what waits is dropped.
  void close();
  // Takes an event back that its waiter has no use for: it has its old place again.
  void giveBack(Item item);
  // Calls `waiter` once, now or later. One that waits already gets none.
  void next(const std::shared_ptr<Waiter>& waiter);

 private:
  [[nodiscard]] std::shared_ptr<Waiter> takeWaiter() KVL_REQUIRES(mutex_);
  [[nodiscard]] Item takeFirst() KVL_REQUIRES(mutex_);
  void push(const Event& event) KVL_REQUIRES(mutex_);
  void wantHoldIfFull() KVL_REQUIRES(mutex_);
  [[nodiscard]] bool isFull() const KVL_REQUIRES(mutex_);
  [[nodiscard]] bool isAlmostEmpty() const KVL_REQUIRES(mutex_);
  void settleHold();

  const EventLimits limits_;
  const Hold hold_;
  kvl::Mutex mutex_;
  std::deque<Item> items_ KVL_GUARDED_BY(mutex_);
  std::uint64_t added_ KVL_GUARDED_BY(mutex_) = 0;
  std::size_t bytes_ KVL_GUARDED_BY(mutex_) = 0;
  std::weak_ptr<Waiter> waiter_ KVL_GUARDED_BY(mutex_);
  bool isOver_ KVL_GUARDED_BY(mutex_) = false;
  bool isClosed_ KVL_GUARDED_BY(mutex_) = false;
  bool wantsHold_ KVL_GUARDED_BY(mutex_) = false;
  bool isHeld_ KVL_GUARDED_BY(mutex_) = false;
  bool isSettling_ KVL_GUARDED_BY(mutex_) = false;
};

EventBuffer::EventBuffer(const EventLimits& limits, Hold hold)
    : limits_(limits), hold_(std::move(hold)) {}

void EventBuffer::add(const std::vector<Event>& events) {
  if (events.empty()) return;
  std::shared_ptr<Waiter> waiter;
  std::optional<Item> first;
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
  std::deque<Item> dropped;
  {
    const kvl::MutexLock lock(mutex_);
    isClosed_ = true;
    dropped.swap(items_);
    bytes_ = 0;
  }
  end();
}

void EventBuffer::giveBack(Item item) {
  std::shared_ptr<Waiter> waiter;
  std::optional<Item> first;
  {
    const kvl::MutexLock lock(mutex_);
    if (isClosed_) return;
    bytes_ += item.size;
    const auto later =
        std::ranges::find_if(items_, [&](const Item& other) { return other.number > item.number; });
    items_.insert(later, std::move(item));
    waiter = takeWaiter();
    if (waiter) first = takeFirst();
    wantHoldIfFull();
  }
  settleHold();
  if (waiter) (*waiter)(std::move(first));
}

void EventBuffer::next(const std::shared_ptr<Waiter>& waiter) {
  std::shared_ptr<Waiter> before;
  std::optional<Item> first;
  bool isWaiting = false;
  {
    const kvl::MutexLock lock(mutex_);
    before = takeWaiter();
    if (!items_.empty()) first = takeFirst();
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

EventBuffer::Item EventBuffer::takeFirst() {
  auto item = std::move(items_.front());
  items_.pop_front();
  bytes_ -= item.size;
  return item;
}

void EventBuffer::push(const Event& event) {
  items_.push_back({event, ++added_, event->textSize()});
  bytes_ += items_.back().size;
  if (limits_.overflow != EventLimits::Overflow::dropOldest) return;
  while (items_.size() > 1 && (items_.size() > limits_.most || bytes_ > limits_.bytes)) {
    (void)takeFirst();
  }
}

void EventBuffer::wantHoldIfFull() {
  if (limits_.overflow == EventLimits::Overflow::hold && !isOver_ && isFull()) wantsHold_ = true;
}

bool EventBuffer::isFull() const {
  return !items_.empty() && (items_.size() >= limits_.most || bytes_ >= limits_.bytes);
}

bool EventBuffer::isAlmostEmpty() const {
  constexpr std::size_t kPart = 4;
  return items_.empty() || (items_.size() < limits_.most / kPart && bytes_ < limits_.bytes / kPart);
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

// An event on its way from the buffer to a `next`, which may be cancelled before it goes on.
// Thread-safe.
class Delivery {
 public:
  explicit Delivery(std::shared_ptr<EventBuffer> buffer) noexcept : buffer_(std::move(buffer)) {}

  void begin(EventBuffer::Item item) {
    {
      const kvl::MutexLock lock(mutex_);
      if (!isOver_) {
        item_ = std::move(item);
        return;
      }
    }
    buffer_->giveBack(std::move(item));
  }
  // Nobody waits any more.
  void end(bool hasArrived) {
    std::optional<EventBuffer::Item> item;
    {
      const kvl::MutexLock lock(mutex_);
      isOver_ = true;
      item.swap(item_);
    }
    if (item && !hasArrived) buffer_->giveBack(*std::move(item));
  }

 private:
  const std::shared_ptr<EventBuffer> buffer_;
  kvl::Mutex mutex_;
  std::optional<EventBuffer::Item> item_ KVL_GUARDED_BY(mutex_);
  bool isOver_ KVL_GUARDED_BY(mutex_) = false;
};

}  // namespace

struct KVLEncoding::awaitable::EventSequence::Observed {
  std::weak_ptr<KVLSession> session;
  std::shared_ptr<EventBuffer> buffer;
  kvl::Observation events;
  kvl::Observation states;

  void close() {
    events.end();
    states.end();
    buffer->close();
  }
};

KVLEncoding::awaitable::EventSequence::EventSequence(std::unique_ptr<Observed> observed) noexcept
    : observed_(std::move(observed)) {}

KVLEncoding::awaitable::EventSequence::EventSequence(EventSequence&& other) noexcept = default;

KVLEncoding::awaitable::EventSequence& KVLEncoding::awaitable::EventSequence::operator=(
    EventSequence&& other) noexcept {
  if (this != &other) {
    close();
    observed_ = std::move(other.observed_);
  }
  return *this;
}

KVLEncoding::awaitable::EventSequence::~EventSequence() {
  close();
}

void KVLEncoding::awaitable::EventSequence::close() {
  if (observed_) observed_->close();
}

KVLEncoding::awaitable::Operation<std::optional<std::shared_ptr<KVLEvent>>>
KVLEncoding::awaitable::EventSequence::next() {
  using Next = Operation<std::optional<std::shared_ptr<KVLEvent>>>;
  if (!observed_) return Next([](const auto& rendezvous) { rendezvous->complete(std::nullopt); });
  return Next(
      [session = observed_->session.lock(), buffer = observed_->buffer](const auto& rendezvous) {
        if (!session) buffer->end();
        const auto delivery = std::make_shared<Delivery>(buffer);
        const auto waiter = std::make_shared<EventBuffer::Waiter>(
            [rendezvous, delivery](std::optional<EventBuffer::Item> item) {
              if (!item) return rendezvous->complete(std::nullopt);
              const auto event = item->event;
              delivery->begin(*std::move(item));
              rendezvous->complete(event);
            });
        const std::shared_ptr<void> whenLetGo(
            nullptr, [delivery, watch = std::weak_ptr(rendezvous)](std::nullptr_t) {
              const auto awaited = watch.lock();
              delivery->end(awaited && awaited->isTaken());
            });
        // The buffer forgets who lets go of this.
        rendezvous->holds([session, waiter, whenLetGo] {});
        buffer->next(waiter);
      });
}

KVLEncoding::awaitable::EventSequence KVLEncoding::awaitable::events(KVLSession& session,
                                                                     const EventLimits& limits) {
  const std::weak_ptr<KVLSession> weak = session.weak_from_this();
  auto buffer = std::make_shared<EventBuffer>(limits, [weak](bool holds) {
    if (const auto held = weak.lock()) held->holdEvents(holds);
  });
  auto observed = std::make_unique<EventSequence::Observed>();
  observed->session = weak;
  observed->buffer = buffer;
  observed->events = session.observeEvents([buffer](const auto& events) { buffer->add(events); });
  observed->states = session.observeState([buffer](KVLSessionState state) {
    if (state == KVLSessionStateEnded) buffer->end();
  });
  return EventSequence(std::move(observed));
}
