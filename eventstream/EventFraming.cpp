#include "eventstream/EventFraming.h"

#include <cstring>
#include <utility>

namespace kvl::eventstream {
namespace {

// The last line end in [begin, end) of `bytes`; `end` for none.
std::size_t lastLineEnd(std::string_view bytes, std::size_t begin, std::size_t end) {
  const void* found = memrchr(bytes.data() + begin, '\n', end - begin);
  if (found == nullptr) return end;
  return static_cast<std::size_t>(static_cast<const char*>(found) - bytes.data());
}

}  // namespace

void EventFraming::arrived(std::string_view pending, std::size_t from, Time now) {
  if (from == 0) firstArrival_ = now;
  lastArrival_ = now;
  arrived_ = true;
  findEventsEnd(pending, from);
}

// Looks at what lies behind `from` only, so that a long line is looked at once. A carriage return
// alone on its line ends every event too: those of a stream with such line ends never arrive.
void EventFraming::findEventsEnd(std::string_view pending, std::size_t from) {
  std::size_t limit = pending.size();
  for (std::size_t end = lastLineEnd(pending, from, limit); end != limit;
       end = lastLineEnd(pending, from, limit)) {
    if (isEmptyLine(pending, end)) {
      eventsEnd_ = end + 1;
      return;
    }
    limit = end;
  }
}

bool EventFraming::isEmptyLine(std::string_view pending, std::size_t end) const {
  if (end > 0 && pending[end - 1] == '\r') --end;
  return end == 0 ? beginsLine_ : pending[end - 1] == '\n';
}

std::size_t EventFraming::due(std::size_t pending, Source source, Time now) {
  const bool arrived = std::exchange(arrived_, false);
  if (source == Source::held) return eventsEnd_;
  if (pending >= longestEvent_) return eventsEnd_ > 0 ? eventsEnd_ : pending;
  if (source == Source::flowing && arrived) return dueWhileFlowing(pending, now);
  return now - lastArrival_ >= kSettlingTime ? pending : eventsEnd_;
}

std::size_t EventFraming::dueWhileFlowing(std::size_t pending, Time now) const {
  return pending >= kChunkSize || now - firstArrival_ >= kGrowingTime ? eventsEnd_ : 0;
}

void EventFraming::taken(std::string_view pending, std::size_t count) {
  beginsLine_ = pending[count - 1] == '\n';
  eventsEnd_ = eventsEnd_ > count ? eventsEnd_ - count : 0;
  firstArrival_ = lastArrival_;
}

}  // namespace kvl::eventstream
