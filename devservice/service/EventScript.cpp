#include "devservice/service/EventScript.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace devservice {
namespace {

constexpr std::int64_t kLongestWait = 600'000;
constexpr std::int64_t kMostEventBytes = std::int64_t{1} << 24;
constexpr std::int64_t kMostBatch = 100'000;
constexpr std::int64_t kMostPieces = 1'000'000;
constexpr std::size_t kLongestName = 64;
// Up to here `size` must suffice for the events of a stream without a last one. Nobody receives
// more; those beyond would outgrow `size` by a few bytes.
constexpr std::int64_t kEndlessEnough = 9'999'999'999;
constexpr std::string_view kPaddingStart = ",\"padding\":\"";
constexpr std::string_view kPaddingEnd = "\"";

struct Digits {
  std::array<char, 20> text;
  std::size_t count;

  explicit Digits(std::int64_t number) {
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    count = static_cast<std::size_t>(end - text.data());
  }
  [[nodiscard]] std::string_view view() const { return {text.data(), count}; }
};

bool isNameByte(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' || byte == '_';
}

bool isName(std::string_view text) {
  return !text.empty() && text.size() <= kLongestName && std::ranges::all_of(text, isNameByte);
}

// Reads parameters, each into its place if there is one, and keeps the first complaint.
class Reader {
 public:
  explicit Reader(const Parameters& parameters) : parameters_(parameters) {}

  void number(const char* name, std::int64_t least, std::int64_t most, std::int64_t& place) {
    place = read(name, least, most).value_or(place);
  }

  void number(const char* name, std::int64_t least, std::int64_t most,
              std::optional<std::int64_t>& place) {
    place = read(name, least, most);
  }

  void time(const char* name, std::chrono::milliseconds& place) {
    const auto count = read(name, 0, kLongestWait).value_or(place.count());
    place = std::chrono::milliseconds(count);
  }

  template <class Value, std::size_t count>
  void choice(const char* name, const std::pair<const char*, Value> (&choices)[count],
              Value& place) {
    const auto text = parameter(parameters_, name);
    if (!text) return;
    std::string complaint = std::string(name) + " must be one of";
    for (const auto& [word, value] : choices) {
      if (*text == word) return void(place = value);
      complaint += std::string(" ") + word;
    }
    require(false, complaint);
  }

  void require(bool condition, std::string_view complaint) {
    if (!condition && complaint_.empty()) complaint_ = complaint;
  }

  [[nodiscard]] const std::string& complaint() const { return complaint_; }

 private:
  std::optional<std::int64_t> read(const char* name, std::int64_t least, std::int64_t most) {
    if (!parameter(parameters_, name)) return std::nullopt;
    const auto value = devservice::number(parameters_, name, least, most);
    require(value.has_value(), std::string(name) + " must be a number from " +
                                   std::to_string(least) + " to " + std::to_string(most));
    return value;
  }

  const Parameters& parameters_;
  std::string complaint_;
};

void readNumbers(Reader& reader, const Parameters& parameters, EventScript& script) {
  script.name = parameter(parameters, "name").value_or(script.name);
  reader.require(isName(script.name), "name must be 1 to 64 letters, digits and -._");
  reader.number("first", 0, kLastNumber, script.first);
  reader.number("last", script.first, kLastNumber, script.last);
}

void readEnd(Reader& reader, EventScript& script) {
  reader.number("close", 0, kLastNumber, script.close);
  reader.choice<StreamEnd>(
      "then",
      {{"close", StreamEnd::Close}, {"silence", StreamEnd::Silence}, {"reset", StreamEnd::Reset}},
      script.then);
}

void readTimes(Reader& reader, EventScript& script) {
  reader.time("interval", script.interval);
  reader.number("pause-after", 0, kLastNumber, script.pauseAfter);
  reader.time("pause", script.pause);
  reader.require(script.pauseAfter || script.pause.count() == 0, "pause needs pause-after");
}

// After the name, the numbers and the newline, which decide what the smallest size is.
void readSizes(Reader& reader, EventScript& script) {
  const std::int64_t greatest =
      script.last < kLastNumber ? script.last : std::max(script.first, kEndlessEnough);
  const auto smallest = static_cast<std::int64_t>(EventText(script).smallestPadded(greatest));
  reader.number("size", smallest, kMostEventBytes, script.size);
  reader.number("batch", 1, kMostBatch, script.batch);
  reader.require(script.size.value_or(1) <= kMostText / script.batch,
                 "size times batch must be at most " + std::to_string(kMostText));
}

void readChunks(Reader& reader, EventScript& script) {
  reader.number("pieces", 1, kMostPieces, script.pieces);
  reader.time("gap", script.gap);
  reader.number("chunk", 1, kMostEventBytes, script.chunk);
  reader.require(!script.chunk || (script.batch == 1 && script.pieces == 1),
                 "chunk excludes batch and pieces");
  reader.require(script.pieces > 1 || script.gap.count() == 0, "gap needs pieces");
}

}  // namespace

std::variant<EventScript, std::string> parseEventScript(const Parameters& parameters) {
  EventScript script;
  Reader reader(parameters);
  readNumbers(reader, parameters, script);
  readEnd(reader, script);
  readTimes(reader, script);
  reader.choice<std::string>("newline", {{"lf", "\n"}, {"crlf", "\r\n"}}, script.newline);
  readSizes(reader, script);
  readChunks(reader, script);
  if (!reader.complaint().empty()) return reader.complaint();
  return script;
}

std::int64_t firstNumber(const EventScript& script, std::string_view lastEventID) {
  const auto seen = wholeNumber(lastEventID);
  const bool isInside = seen && *seen >= script.first && *seen <= script.last;
  return isInside ? *seen + 1 : script.first;
}

std::int64_t nextBatch(const EventScript& script, const StreamPosition& position) {
  std::int64_t count = std::min(script.batch, script.last - position.next + 1);
  count = std::min(count, script.close - position.sent);
  // A pause ends a batch early.
  if (script.pauseAfter.value_or(0) > position.sent)
    count = std::min(count, *script.pauseAfter - position.sent);
  return count;
}

std::chrono::milliseconds waitBefore(const EventScript& script, const StreamPosition& position) {
  using namespace std::chrono_literals;
  if (script.pauseAfter == position.sent) return script.pause;
  const bool isBetweenEvents = position.sent > 0 && nextBatch(script, position) > 0;
  return isBetweenEvents ? script.interval : 0ms;
}

std::string_view piece(std::string_view text, std::int64_t index, std::int64_t count) {
  const auto parts = static_cast<std::size_t>(count);
  const auto part = static_cast<std::size_t>(index);
  const std::size_t begin = text.size() * part / parts;
  return text.substr(begin, text.size() * (part + 1) / parts - begin);
}

EventText::EventText(const EventScript& script)
    : start_("event: " + script.name + script.newline + "id: "),
      middle_(script.newline + "data: {\"number\":"),
      end_("}" + script.newline + script.newline) {
  if (script.size) size_ = static_cast<std::size_t>(*script.size);
}

void EventText::append(std::string& text, std::int64_t number) const {
  const Digits digits(number);
  text.append(start_).append(digits.view()).append(middle_).append(digits.view());
  if (size_) {
    const std::size_t smallest = smallestPadded(number);
    text.append(kPaddingStart);
    text.append(*size_ > smallest ? *size_ - smallest : 0, 'x');
    text.append(kPaddingEnd);
  }
  text.append(end_);
}

std::size_t EventText::smallestPadded(std::int64_t number) const {
  return start_.size() + middle_.size() + end_.size() + 2 * Digits(number).count +
         kPaddingStart.size() + kPaddingEnd.size();
}

}  // namespace devservice
