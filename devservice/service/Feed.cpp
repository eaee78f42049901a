#include "devservice/service/Feed.h"

#include "devservice/service/Json.h"
#include "devservice/service/Parameters.h"

#include <algorithm>
#include <iterator>

namespace devservice {
namespace {

constexpr std::ptrdiff_t kMostKept = 1000;
// No feed has numbered so many events; a client that claims more could make the sum overflow.
constexpr std::int64_t kMostTold = std::int64_t{1} << 53;

// 0 for a text that is not the number of an event.
std::int64_t eventNumber(std::string_view text) {
  const std::int64_t number = wholeNumber(text).value_or(0);
  return number >= 0 && number <= kMostTold ? number : 0;
}

}  // namespace

Feed::Feed() {
  const kvl::MutexLock lock(mutex_);
  append("started", JsonObject().add("service", "kvlocal-devservice").text());
}

std::int64_t Feed::end() const {
  return dropped_ + std::ssize(events_);
}

void Feed::append(std::string_view name, std::string_view data) {
  events_.push_back({std::string(name), std::string(data)});
  if (std::ssize(events_) <= kMostKept) return;
  events_.pop_front();
  ++dropped_;
}

void Feed::publish(std::string_view name, std::string_view data) {
  const kvl::MutexLock lock(mutex_);
  append(name, data);
}

void Feed::tickEvery(std::chrono::milliseconds interval) {
  const auto now = std::chrono::steady_clock::now();
  const kvl::MutexLock lock(mutex_);
  if (now - lastTick_ < interval) return;
  lastTick_ = now;
  const auto up = std::chrono::duration_cast<std::chrono::seconds>(now - start_);
  append("tick", JsonObject().add("uptime", static_cast<std::int64_t>(up.count())).text());
}

std::int64_t Feed::positionAfter(std::string_view lastEventID) {
  const kvl::MutexLock lock(mutex_);
  const std::int64_t seen = eventNumber(lastEventID);
  if (seen > offset_ + end()) offset_ = seen;
  return std::max<std::int64_t>(seen - offset_, 0);
}

std::string Feed::take(std::int64_t& position) {
  const kvl::MutexLock lock(mutex_);
  std::string text;
  for (position = std::max(position, dropped_); position < end();) {
    const Event& event = events_[static_cast<std::size_t>(position - dropped_)];
    ++position;
    text += "event: " + event.name + "\nid: " + std::to_string(offset_ + position) +
            "\ndata: " + event.data + "\n\n";
  }
  return text;
}

}  // namespace devservice
