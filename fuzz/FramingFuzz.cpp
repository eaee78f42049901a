// Any stream, arriving in any pieces at any times: every byte is handed over once and in order,
// events are cut only where they may be, and nothing waits for too long.
#include "eventstream/EventFraming.h"
#include "fuzz/Choices.h"

#include <algorithm>
#include <memory>
#include <string>

namespace {

using kvl::eventstream::EventFraming;
using kvl::fuzz::Choices;
using kvl::fuzz::require;
using kvl::urlloading::PendingBody;
using std::chrono::milliseconds;

constexpr std::size_t kLongestOpenEvent = 64;

// Reads the whole stream from its beginning and remembers where no event is open.
class EventEnds {
 public:
  // `handedOver` bytes have gone. A line whose beginning went without its end counts as one that is
  // not empty: its event has been cut anyway.
  void take(std::string_view bytes, std::size_t handedOver) {
    for (const char byte : bytes) {
      stream_ += byte;
      if (byte != '\n') continue;
      auto line = std::string_view(stream_).substr(lineBegin_);
      line.remove_suffix(1);
      if (lineBegin_ >= handedOver && (line.empty() || line == "\r")) last_ = stream_.size();
      lineBegin_ = stream_.size();
    }
  }
  [[nodiscard]] std::size_t last() const { return last_; }
  [[nodiscard]] const std::string& stream() const { return stream_; }

 private:
  std::string stream_;
  std::size_t lineBegin_ = 0;
  std::size_t last_ = 0;
};

class Receiver {
 public:
  void arrive(std::string_view bytes) {
    if (bytes.empty()) return;
    if (body_.empty()) firstArrival_ = now_;
    ends_.take(bytes, taken_.size());
    body_.append(bytes, now_);
    lastArrival_ = now_;
    arrived_ = true;
  }

  void wait(milliseconds time) { now_ += time; }

  void pass(PendingBody::Source source) {
    if (body_.empty()) return;
    require(body_.latest() == lastArrival_ + EventFraming::kSettlingTime,
            "bytes are due a while after the last of them");
    const auto count = body_.due(source, now_);
    require(count == expected(source), "what goes is what may go");
    arrived_ = false;
    if (count > 0) takeOff(count);
  }

  void finish() {
    takeOff(body_.size());
    require(taken_ == ends_.stream(), "all bytes are handed over in order");
  }

 private:
  [[nodiscard]] std::size_t whole() const {
    return ends_.last() - std::min(ends_.last(), taken_.size());
  }

  [[nodiscard]] std::size_t expected(PendingBody::Source source) const {
    if (source == PendingBody::Source::held) return whole();
    if (body_.size() >= kLongestOpenEvent) return whole() > 0 ? whole() : body_.size();
    if (source == PendingBody::Source::flowing && arrived_)
      return now_ - firstArrival_ >= EventFraming::kGrowingTime ? whole() : 0;
    return now_ - lastArrival_ >= EventFraming::kSettlingTime ? body_.size() : whole();
  }

  void takeOff(std::size_t count) {
    const auto bytes = body_.take(count);
    require(bytes.size() == count, "what is due is there");
    taken_.append(bytes.begin(), bytes.end());
    firstArrival_ = lastArrival_;
  }

  PendingBody body_{std::make_unique<EventFraming>(kLongestOpenEvent)};
  EventEnds ends_;
  std::string taken_;
  PendingBody::Time now_;
  PendingBody::Time firstArrival_;
  PendingBody::Time lastArrival_;
  bool arrived_ = false;
};

void checkFraming(kvl::fuzz::Input input) {
  constexpr std::array kSources{PendingBody::Source::quiet, PendingBody::Source::flowing,
                                PendingBody::Source::held};
  Choices choices(input);
  Receiver receiver;
  while (choices.left()) {
    const auto step = choices.byte();
    if (step % 4 == 0) receiver.wait(milliseconds(choices.byte()));
    if (step % 4 == 1) receiver.pass(kSources[step / 4 % kSources.size()]);
    if (step % 4 >= 2) receiver.arrive(choices.text(step / 4));
  }
  receiver.finish();
}

const kvl::fuzz::Target framing("framing", checkFraming);

}  // namespace
