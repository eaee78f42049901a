#include "tests/integration/EventRecorder.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

namespace kvltest {
namespace {

// Generous: a sanitizer on a machine that is busy with other tests.
constexpr std::chrono::seconds kLongestSilence{60};
constexpr std::int64_t kDamaged = -1;
constexpr std::string_view kDataStart = R"({"number":)";
constexpr std::string_view kPaddingStart = R"(,"padding":")";
constexpr std::string_view kPaddingEnd = R"("})";

// Whether this may follow the number: nothing, or a padding of x.
bool isTail(std::string_view tail) {
  if (tail == "}") return true;
  if (!tail.starts_with(kPaddingStart) || !tail.ends_with(kPaddingEnd)) return false;
  tail.remove_prefix(kPaddingStart.size());
  tail.remove_suffix(kPaddingEnd.size());
  return tail.find_first_not_of('x') == std::string_view::npos;
}

std::size_t sizeOnTheWire(std::string_view name, std::string_view identifier,
                          std::string_view data) {
  constexpr std::string_view frame = "event: \nid: \ndata: \n\n";
  return frame.size() + name.size() + identifier.size() + data.size();
}

}  // namespace

void EventRecorder::setHook(Hook hook) {
  kvl::MutexLock lock(mutex_);
  hook_ = std::move(hook);
  while (hooksRunning_ != 0) changed_.wait(lock);
}

Tally EventRecorder::tally() const {
  const kvl::MutexLock lock(mutex_);
  return tally_;
}

std::vector<SeenEvent> EventRecorder::events() const {
  const kvl::MutexLock lock(mutex_);
  return seen_;
}

bool EventRecorder::waitForNumber(std::int64_t number) {
  return waitUntil([number](const Tally& tally) { return tally.last >= number; });
}

bool EventRecorder::waitForCount(std::int64_t count) {
  return waitUntil([count](const Tally& tally) { return tally.count >= count; });
}

// The test is made where events come in, so that nobody wakes up for each batch.
bool EventRecorder::waitUntil(const Test& isMet) {
  kvl::MutexLock lock(mutex_);
  awaited_ = isMet;
  std::int64_t before = -1;
  while (!isMet(tally_) && tally_.count > before) {
    before = tally_.count;
    const auto end = std::chrono::steady_clock::now() + kLongestSilence;
    while (!isMet(tally_) && changed_.waitUntil(lock, end)) {
    }
  }
  awaited_ = nullptr;
  return isMet(tally_);
}

void EventRecorder::eventStream(KVLSession& session,
                                const std::vector<std::shared_ptr<KVLEvent>>& events) {
  Hook hook;
  Tally now;
  {
    const kvl::MutexLock lock(mutex_);
    ++tally_.batches;
    if (events.empty()) ++tally_.damaged;
    for (const auto& event : events) record(*event);
    if (awaited_ && awaited_(tally_)) changed_.notifyAll();
    hook = hook_;
    now = tally_;
    if (hook) ++hooksRunning_;
  }
  if (hook) run(hook, session, now);
}

void EventRecorder::run(const Hook& hook, KVLSession& session, const Tally& tally) {
  hook(session, tally);
  const kvl::MutexLock lock(mutex_);
  if (--hooksRunning_ == 0) changed_.notifyAll();
}

void EventRecorder::record(const KVLEvent& event) {
  const auto number = numberOf(event);
  ++tally_.count;
  if (seen_.size() < kept_) {
    seen_.push_back({event.event().value_or(""), event.identifier().value_or(""),
                     event.data().value_or("").substr(0, kKeptData), number,
                     std::this_thread::get_id(), std::chrono::steady_clock::now()});
  }
  if (number == kDamaged) {
    ++tally_.damaged;
  } else if (number <= tally_.last) {
    ++tally_.disorder;
  } else {
    tally_.missing += number - tally_.last - 1;
    tally_.last = number;
  }
}

std::int64_t EventRecorder::numberOf(const KVLEvent& event) const {
  const auto name = event.event().value_or("");
  const auto identifier = event.identifier().value_or("");
  const auto data = event.data().value_or("");
  if (!data.starts_with(kDataStart)) return kDamaged;
  if (eventSize_ > 0 && sizeOnTheWire(name, identifier, data) != eventSize_) return kDamaged;
  std::int64_t number = kDamaged;
  const char* const end = data.data() + data.size();
  const auto parsed = std::from_chars(data.data() + kDataStart.size(), end, number);
  if (parsed.ec != std::errc() || !isTail({parsed.ptr, end})) return kDamaged;
  return identifier == std::to_string(number) ? number : kDamaged;
}

}  // namespace kvltest
