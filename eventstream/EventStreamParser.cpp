#include "eventstream/EventStreamParser.h"

#include "platform/core/LineScan.h"
#include "platform/core/UTF8.h"

#include <local/platform/Log.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

namespace kvl::eventstream {
namespace {

// Data of at least this size, and of at least one part in so many of the bytes with which it came,
// is not copied: an event that is kept keeps no more than that many times its data.
constexpr std::size_t kSmallestSharedData = 1024;
constexpr std::size_t kMostBytesPerSharedByte = 16;
// Room for so many events is made at once.
constexpr std::size_t kUsualEvents = 16;

constexpr std::uint8_t kFirstForeignByte = 0x80;
constexpr std::uint8_t kContinuationMask = 0xc0;
constexpr std::uint8_t kContinuationByte = 0x80;
constexpr std::size_t kLongestContinuation = 3;

// Of a longer line the log has the beginning only.
constexpr std::size_t kLongestShownLine = std::size_t{64} << 10;

// Every character of category Zs (Unicode 15) beyond ASCII, in UTF-8.
constexpr std::array<std::string_view, 16> kForeignSpaces = {
    "\u00a0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005",
    "\u2006", "\u2007", "\u2008", "\u2009", "\u200a", "\u202f", "\u205f", "\u3000"};

std::uint8_t byteAt(std::string_view bytes, std::size_t index) {
  return static_cast<std::uint8_t>(bytes[index]);
}

bool isASCIISpace(std::uint8_t byte) {
  return byte == ' ' || byte == '\t';
}

// The length of the space that the text begins with, or 0.
std::size_t leadingSpace(std::string_view text) {
  const std::uint8_t first = byteAt(text, 0);
  if (first < kFirstForeignByte) return isASCIISpace(first) ? 1 : 0;
  const auto space =
      std::ranges::find_if(kForeignSpaces, [text](auto each) { return text.starts_with(each); });
  return space == kForeignSpaces.end() ? 0 : space->size();
}

// The length of the space that the text ends with, or 0.
std::size_t trailingSpace(std::string_view text) {
  const std::uint8_t last = byteAt(text, text.size() - 1);
  if (last < kFirstForeignByte) return isASCIISpace(last) ? 1 : 0;
  const auto space =
      std::ranges::find_if(kForeignSpaces, [text](auto each) { return text.ends_with(each); });
  return space == kForeignSpaces.end() ? 0 : space->size();
}

// Without tabs and Unicode space separators (category Zs) at both ends. The text is UTF-8.
std::string_view trimmed(std::string_view text) noexcept {
  while (const auto space = text.empty() ? 0 : leadingSpace(text)) text.remove_prefix(space);
  while (const auto space = text.empty() ? 0 : trailingSpace(text)) text.remove_suffix(space);
  return text;
}

// The bytes with everything outside ASCII written as \xNN.
std::string escapingForeignBytes(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = byteAt(bytes, i);
    if (byte < kFirstForeignByte) {
      text += bytes[i];
    } else {
      text += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    }
  }
  return text;
}

// At most so many bytes of the line, as text for the log.
std::string shownBeginning(std::string_view line) {
  if (line.size() > kLongestShownLine) {
    std::size_t size = kLongestShownLine;
    while (size > kLongestShownLine - kLongestContinuation &&
           (byteAt(line, size) & kContinuationMask) == kContinuationByte) {
      --size;
    }
    line = line.substr(0, size);
  }
  return core::isUTF8(line) ? std::string(line) : escapingForeignBytes(line);
}

// The line for the log; of a longer one the beginning and the length.
std::string shown(std::string_view line) {
  auto text = shownBeginning(line);
  if (line.size() > kLongestShownLine) {
    text += "\u2026 (" + std::to_string(line.size()) + " bytes)";
  }
  return text;
}

// A line that is given up, in two parts.
void logTooLong(std::size_t longestLine, std::string_view carried, std::string_view rest) {
  std::string beginning(carried.substr(0, kLongestShownLine + 1));
  beginning += rest.substr(0, kLongestShownLine + 1);
  kvl::log(kvl::LogCategory::events, kvl::LogLevel::warning,
           "ignoring event-source line of more than %ld bytes: %@\u2026", longestLine,
           shownBeginning(beginning));
}

std::array<KVLEvent::Text, 3> textsOf(const KVLEvent* event) {
  if (event == nullptr) return {};
  return {event->event(), event->data(), event->identifier()};
}

// With a length that the compiler knows.
template <std::size_t Size>
bool is(std::string_view name, const char (&text)[Size]) {
  return name.size() == Size - 1 && std::equal(text, text + Size - 1, name.begin());
}

// Collects the fields of one event after the other from the lines of a chunk.
//
// The lines are looked at where they stand, which has to stay until the collector is gone; an event
// is made when it is complete. One thread.
class EventCollector {
 public:
  using Events = std::vector<std::shared_ptr<KVLEvent>>;

  // Begins with `first` if there is one, otherwise with a new event.
  EventCollector(std::shared_ptr<KVLEvent> first, std::size_t longestLine);

  // A line of `source` without its end. `isText`: it is known to be UTF-8.
  void take(std::string_view line, bool isText, const Data& source);
  // A line that is too long, in two parts.
  void giveUp(std::string_view carried, std::string_view rest);

  // Drops what has been collected and returns the events in order.
  [[nodiscard]] Events finish();
  // The identifier of the last event that had one.
  [[nodiscard]] KVLEvent::TextView lastIdentifier() const { return lastIdentifier_; }

 private:
  using Value = KVLEvent::TextView;

  void dispatch();
  void reject(std::string_view line);
  void clear();
  void setField(std::string_view name, std::string_view value, const Data& source);
  [[nodiscard]] bool isValid() const noexcept;
  [[nodiscard]] bool sharesData() const noexcept;
  [[nodiscard]] std::shared_ptr<KVLEvent> makeEvent();
  void writeToFirst();

  // The event that was there before the chunk, until it is complete or given up, and what it held.
  std::shared_ptr<KVLEvent> first_;
  const std::array<KVLEvent::Text, 3> firstTexts_;
  const std::size_t longestLine_;
  Value event_;
  Value data_;
  const Data* dataSource_ = nullptr;
  Value identifier_;
  Events events_;
  Value lastIdentifier_;
};

EventCollector::EventCollector(std::shared_ptr<KVLEvent> first, std::size_t longestLine)
    : first_(std::move(first)), firstTexts_(textsOf(first_.get())), longestLine_(longestLine) {
  event_ = firstTexts_[0];
  data_ = firstTexts_[1];
  identifier_ = firstTexts_[2];
}

void EventCollector::take(std::string_view line, bool isText, const Data& source) {
  if (line.empty()) return dispatch();
  if (line.size() > longestLine_) return giveUp(line, {});
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
  kvl::log(kvl::LogCategory::events, kvl::LogLevel::warning,
           "ignoring malformed event-source line: %@", shown(line));
  clear();
}

void EventCollector::giveUp(std::string_view carried, std::string_view rest) {
  logTooLong(longestLine_, carried, rest);
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

// The length of `bytes` up to and with its last line end.
std::size_t lengthOfLines(std::string_view bytes) {
  const void* last = bytes.empty() ? nullptr : memrchr(bytes.data(), '\n', bytes.size());
  if (last == nullptr) return 0;
  return static_cast<std::size_t>(static_cast<const char*>(last) - bytes.data()) + 1;
}

// Whole lines of `source`, each with its end.
void takeLines(EventCollector& collector, std::string_view lines, const Data& source) {
  static const auto scan = core::lineScan();
  while (!lines.empty()) {
    const core::ScannedLine line = scan(lines);
    collector.take(line.text, line.isASCII, source);
    lines.remove_prefix(line.text.size() + 1);
  }
}

}  // namespace

std::vector<std::shared_ptr<KVLEvent>> EventStreamParser::read(const Data& chunk) {
  std::string_view bytes = chunk.text();
  partialLine_.resume(data());
  if (isSkipping() && !skip(bytes)) return {};
  std::string_view lines = bytes.substr(0, lengthOfLines(bytes));
  const std::string_view rest = bytes.substr(lines.size());
  if (lines.empty()) {
    carry(rest);
    return {};
  }
  EventCollector collector(event(), longestLine_);
  Data carriedLine;
  if (!partialLine_.empty()) {
    const auto size = lines.find('\n');
    if (isTooLong(size)) {
      collector.giveUp(partialLine_.text(), lines.substr(0, size));
    } else {
      partialLine_.append(lines.substr(0, size + 1));
      carriedLine = partialLine_.share();
      takeLines(collector, carriedLine.text(), carriedLine);
    }
    lines.remove_prefix(size + 1);
  }
  takeLines(collector, lines, chunk);
  partialLine_.resume(std::nullopt);
  carry(rest);
  auto events = collector.finish();
  if (const auto identifier = collector.lastIdentifier()) setLastEventID(std::string(*identifier));
  return events;
}

// Whether the carried line is too long with so many bytes more.
bool EventStreamParser::isTooLong(std::size_t more) const {
  return partialLine_.text().size() + more > longestLine_;
}

// Adds to the line that goes on with the next chunk, unless it is too long already: then the rest
// of it is not kept.
void EventStreamParser::carry(std::string_view rest) {
  skipping_ = isTooLong(rest.size());
  if (skipping_) {
    logTooLong(longestLine_, partialLine_.text(), rest);
    partialLine_.resume(std::nullopt);
  } else {
    partialLine_.append(rest);
  }
  setData(partialLine_.share());
}

// A stream that was cancelled, and a host that has set other bytes, begin a line.
bool EventStreamParser::isSkipping() {
  const auto carried = data();
  return skipping_ && carried && carried->empty();
}

// Takes the rest of the line that was given up off the front. False when its end is not there.
bool EventStreamParser::skip(std::string_view& bytes) {
  const auto end = bytes.find('\n');
  if (end == std::string_view::npos) return false;
  bytes.remove_prefix(end + 1);
  skipping_ = false;
  return true;
}

}  // namespace kvl::eventstream
