#include "eventstream/EventCollector.h"

#include "eventstream/Text.h"
#include "platform/core/UTF8.h"

#include <local/platform/Log.h>

#include <algorithm>
#include <utility>

namespace kvl::eventstream {
namespace {

// Data of at least this size, and of at least one part in so many of the bytes with which it came,
// is not copied: an event that is kept keeps no more than that many times its data.
constexpr std::size_t kSmallestSharedData = 1024;
constexpr std::size_t kMostBytesPerSharedByte = 16;
// Room for so many events is made at once.
constexpr std::size_t kUsualEvents = 16;

std::array<KVLEvent::Text, 3> textsOf(const KVLEvent* event) {
  if (event == nullptr) return {};
  return {event->event(), event->data(), event->identifier()};
}

// With a length that the compiler knows.
template <std::size_t Size>
bool is(std::string_view name, const char (&text)[Size]) {
  return name.size() == Size - 1 && std::equal(text, text + Size - 1, name.begin());
}

}  // namespace

EventCollector::EventCollector(std::shared_ptr<KVLEvent> first)
    : first_(std::move(first)), firstTexts_(textsOf(first_.get())) {
  event_ = firstTexts_[0];
  data_ = firstTexts_[1];
  identifier_ = firstTexts_[2];
}

void EventCollector::take(std::string_view line, bool isText, const Data& source) {
  if (line.empty()) return dispatch();
  const auto colon = line.find(':');
  if (colon == std::string_view::npos || !(isText || core::isUTF8(line))) return reject(line);
  setField(line.substr(0, colon), trimmed(line.substr(colon + 1)), source);
}

EventCollector::Events EventCollector::finish() {
  clear();
  return std::move(events_);
}

void EventCollector::dispatch() {
  if (!isValid()) return;
  if (identifier_) lastIdentifier_ = identifier_;
  if (events_.empty()) events_.reserve(kUsualEvents);
  events_.push_back(makeEvent());
  clear();
}

void EventCollector::reject(std::string_view line) {
  kvl::log("ignoring malformed event-source line: %@",
           core::isUTF8(line) ? std::string(line) : escapingForeignBytes(line));
  clear();
}

void EventCollector::setField(std::string_view name, std::string_view value, const Data& source) {
  if (is(name, "data")) {
    if (data_) return;
    data_ = value;
    dataSource_ = &source;
  } else if (is(name, "event")) {
    event_ = value;
  } else if (is(name, "id")) {
    identifier_ = value;
  }
}

bool EventCollector::isValid() const noexcept {
  return event_ && !event_->empty();
}

bool EventCollector::sharesData() const noexcept {
  return data_ && dataSource_ != nullptr && data_->size() >= kSmallestSharedData &&
         data_->size() >= dataSource_->size() / kMostBytesPerSharedByte;
}

std::shared_ptr<KVLEvent> EventCollector::makeEvent() {
  if (first_) {
    writeToFirst();
    return std::exchange(first_, nullptr);
  }
  if (!sharesData()) return std::make_shared<KVLEvent>(event_, data_, identifier_);
  const auto offset = static_cast<std::size_t>(data_->data() - dataSource_->text().data());
  return std::make_shared<KVLEvent>(
      event_, KVLEvent::SharedData(dataSource_->slice(offset, data_->size())), identifier_);
}

// An event of the host's holds what the lines have said, whatever becomes of it.
void EventCollector::writeToFirst() {
  first_->setEvent(KVLEvent::Text(event_));
  first_->setData(KVLEvent::Text(data_));
  first_->setIdentifier(KVLEvent::Text(identifier_));
}

void EventCollector::clear() {
  if (first_) writeToFirst();
  first_.reset();
  event_.reset();
  data_.reset();
  dataSource_ = nullptr;
  identifier_.reset();
}

}  // namespace kvl::eventstream
