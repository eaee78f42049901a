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

// The beginnings of the lines that count.
constexpr std::string_view kEventField = "event:";
constexpr std::string_view kDataField = "data:";
constexpr std::string_view kIdentifierField = "id:";

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

// A character of ASCII that is neither a space nor a control character.
bool isGraphic(char character) {
  return character > ' ' && character < '\x7f';
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
std::string_view trimmedAnywhere(std::string_view text) noexcept {
  while (const auto space = text.empty() ? 0 : leadingSpace(text)) text.remove_prefix(space);
  while (const auto space = text.empty() ? 0 : trailingSpace(text)) text.remove_suffix(space);
  return text;
}

// The same. Most services write one space, and then what needs no closer look.
inline std::string_view trimmed(std::string_view text) noexcept {
  if (text.starts_with(' ')) text.remove_prefix(1);
  if (!text.empty() && isGraphic(text.front()) && isGraphic(text.back())) return text;
  return trimmedAnywhere(text);
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

using Texts = std::array<KVLEvent::Text, 3>;

std::unique_ptr<const Texts> textsOf(const KVLEvent* event) {
  if (event == nullptr) return nullptr;
  return std::make_unique<const Texts>(Texts{event->event(), event->data(), event->identifier()});
}

// Where lines stand.
struct LineSource {
  const Data& bytes;
  // Whether an event shares them.
  bool isKept = false;
};

// Collects the fields of one event after the other from the lines of a chunk.
//
// The lines are looked at where they stand, which has to stay until the collector is gone; an event
// is made when it is complete. One thread.
class EventCollector {
 public:
  using Events = std::vector<std::shared_ptr<KVLEvent>>;

  // Begins with `first` if there is one, otherwise with a new event.
  EventCollector(std::shared_ptr<KVLEvent> first, std::size_t longestLine);

  // A line of `source` without its end.
  void take(std::string_view line, bool isASCII, LineSource& source);
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
  void setData(std::string_view value, LineSource& source);
  [[nodiscard]] bool isValid() const noexcept;
  [[nodiscard]] bool sharesData() const noexcept;
  [[nodiscard]] std::shared_ptr<KVLEvent> makeEvent();
  void writeToFirst();

  // The event that was there before the chunk, until it is complete or given up, and what it held.
  std::shared_ptr<KVLEvent> first_;
  const std::unique_ptr<const Texts> firstTexts_;
  const std::size_t longestLine_;
  Value event_;
  Value data_;
  LineSource* dataSource_ = nullptr;
  Value identifier_;
  Events events_;
  Value lastIdentifier_;
};

EventCollector::EventCollector(std::shared_ptr<KVLEvent> first, std::size_t longestLine)
    : first_(std::move(first)), firstTexts_(textsOf(first_.get())), longestLine_(longestLine) {
  if (!firstTexts_) return;
  event_ = firstTexts_->at(0);
  data_ = firstTexts_->at(1);
  identifier_ = firstTexts_->at(2);
}

[[gnu::always_inline]] inline void EventCollector::take(std::string_view line, bool isASCII,
                                                        LineSource& source) {
  if (line.empty()) return dispatch();
  if (line.size() > longestLine_) return giveUp(line, {});
  if (!isASCII && !core::isUTF8(line)) return reject(line);
  if (line.starts_with(kDataField)) return setData(trimmed(line.substr(kDataField.size())), source);
  if (line.starts_with(kEventField)) {
    event_ = trimmed(line.substr(kEventField.size()));
  } else if (line.starts_with(kIdentifierField)) {
    identifier_ = trimmed(line.substr(kIdentifierField.size()));
  } else if (line.find(':') == std::string_view::npos) {
    reject(line);
  }
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

void EventCollector::setData(std::string_view value, LineSource& source) {
  if (data_) return;
  data_ = value;
  dataSource_ = &source;
}

bool EventCollector::isValid() const noexcept {
  return event_ && !event_->empty();
}

bool EventCollector::sharesData() const noexcept {
  return data_ && dataSource_ != nullptr && data_->size() >= kSmallestSharedData &&
         data_->size() >= dataSource_->bytes.size() / kMostBytesPerSharedByte;
}

std::shared_ptr<KVLEvent> EventCollector::makeEvent() {
  if (first_) {
    writeToFirst();
    return std::exchange(first_, nullptr);
  }
  if (!sharesData()) return std::make_shared<KVLEvent>(event_, data_, identifier_);
  dataSource_->isKept = true;
  const Data& bytes = dataSource_->bytes;
  const auto offset = static_cast<std::size_t>(data_->data() - bytes.text().data());
  return std::make_shared<KVLEvent>(
      event_, KVLEvent::SharedData(bytes.slice(offset, data_->size())), identifier_);
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

// Takes the lines off `bytes`, the first of which is `line`. Returns whether what has no end yet is
// ASCII.
bool takeLines(EventCollector& collector, core::LineScan scan, core::ScannedLine line,
               std::string_view& bytes, LineSource& source) {
  while (line.length < bytes.size()) {
    collector.take(bytes.substr(0, line.length), line.isASCII, source);
    bytes.remove_prefix(line.length + 1);
    line = scan(bytes);
  }
  return line.isASCII;
}

}  // namespace

std::optional<Data> EventStreamParser::data() const {
  const MutexLock lock(mutex_);
  return hasData_ ? std::optional(partialLine_.share()) : std::nullopt;
}

void EventStreamParser::setData(const std::optional<Data>& data) {
  const MutexLock lock(mutex_);
  hasData_ = data.has_value();
  isGiven_ = true;
  partialLine_.assign(data ? data->text() : std::string_view());
}

std::shared_ptr<KVLEvent> EventStreamParser::event() const {
  const MutexLock lock(mutex_);
  return event_;
}

// What was there before is destroyed with the caller's value, outside the lock.
void EventStreamParser::setEvent(std::shared_ptr<KVLEvent> event) {
  const MutexLock lock(mutex_);
  event_.swap(event);
}

std::optional<std::string> EventStreamParser::lastEventID() const {
  const MutexLock lock(mutex_);
  return lastEventID_;
}

void EventStreamParser::setLastEventID(std::optional<std::string> identifier) {
  const MutexLock lock(mutex_);
  lastEventID_.swap(identifier);
}

std::vector<std::shared_ptr<KVLEvent>> EventStreamParser::read(const Data& chunk) {
  const core::LineScan scan = scan_;
  std::string_view bytes = chunk.text();
  core::ScannedLine line = scan(bytes);
  if (isSkipping()) {
    if (line.length == bytes.size()) return {};
    bytes.remove_prefix(line.length + 1);
    line = scan(bytes);
  }
  if (line.length == bytes.size()) {
    carry(bytes, line.isASCII, nullptr);
    return {};
  }
  const Beginning before = begin(bytes.substr(0, line.length), line.isASCII);
  EventCollector collector(before.event, longestLine_);
  LineSource carried{before.line};
  LineSource source{chunk};
  if (!before.line.empty()) {
    std::string_view text = before.line.text();
    if (before.isTooLong) {
      collector.giveUp(text, bytes.substr(0, line.length));
    } else if (before.isGiven) {
      const bool isASCII = takeLines(collector, scan, scan(text), text, carried);
      collector.take(text, isASCII, carried);
    } else {
      collector.take(text, before.isASCII, carried);
    }
    bytes.remove_prefix(line.length + 1);
    line = scan(bytes);
  }
  const bool isASCII = takeLines(collector, scan, line, bytes, source);
  auto events = collector.finish();
  if (const auto identifier = collector.lastIdentifier()) setLastEventID(std::string(*identifier));
  // Last: what the collector has collected stands in the carried line, too.
  const Data nothing;
  carry(bytes, isASCII, carried.isKept ? &nothing : &before.line);
  return events;
}

EventStreamParser::Beginning EventStreamParser::begin(std::string_view rest, bool isASCII) {
  const MutexLock lock(mutex_);
  if (partialLine_.empty()) return {event_, {}};
  if (isTooLong(rest.size())) return {event_, partialLine_.share(), false, true};
  return {event_, partialLine_.completed(rest), partialLine_.isASCII() && isASCII, false, isGiven_};
}

// Whether the carried line is too long with so many bytes more.
bool EventStreamParser::isTooLong(std::size_t more) const {
  return partialLine_.text().size() + more > longestLine_;
}

// Adds to the line that goes on with the next chunk, unless it is too long already: then the rest
// of it is not kept. `completed` is there if the line before has ended, and what nobody keeps of
// it.
void EventStreamParser::carry(std::string_view rest, bool isASCII, const Data* completed) {
  {
    const MutexLock lock(mutex_);
    if (completed != nullptr) {
      partialLine_.reclaim(*completed);
      partialLine_.clear();
      isGiven_ = false;
    }
    hasData_ = true;
    skipping_ = isTooLong(rest.size());
    if (!skipping_) return partialLine_.append(rest, isASCII);
  }
  skip(rest);
}

// Gives up the line that goes on with the next chunk.
void EventStreamParser::skip(std::string_view rest) {
  Data givenUp;
  {
    const MutexLock lock(mutex_);
    givenUp = partialLine_.share();
    partialLine_.clear();
  }
  logTooLong(longestLine_, givenUp.text(), rest);
}

// A stream that was cancelled, and a host that has set other bytes, begin a line.
bool EventStreamParser::isSkipping() const {
  if (!skipping_) return false;
  const MutexLock lock(mutex_);
  return hasData_ && partialLine_.empty();
}

}  // namespace kvl::eventstream
