#include "platform/urlloading/PendingBody.h"

#include <cstring>
#include <utility>

namespace kvl::urlloading {
namespace {

// The last line end in [begin, end) of `bytes`; `end` for none.
std::size_t lastLineEnd(const Bytes& bytes, std::size_t begin, std::size_t end) {
  const void* found = memrchr(bytes.data() + begin, '\n', end - begin);
  if (found == nullptr) return end;
  return static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - bytes.data());
}

}  // namespace

void PendingBody::append(std::string_view bytes, SteadyTime now) {
  if (bytes_.empty()) firstArrival_ = now;
  lastArrival_ = now;
  arrived_ = true;
  const std::size_t before = bytes_.size();
  const auto* first = reinterpret_cast<const std::uint8_t*>(bytes.data());
  bytes_.insert(bytes_.end(), first, first + bytes.size());
  if (kind_ == Kind::events) findEventsEnd(before);
}

// Looks at what lies behind `from` only, so that a long line is looked at once. A carriage return
// alone on its line ends every event too: those of a stream with such line ends never arrive.
void PendingBody::findEventsEnd(std::size_t from) {
  std::size_t limit = bytes_.size();
  for (std::size_t end = lastLineEnd(bytes_, from, limit); end != limit;
       end = lastLineEnd(bytes_, from, limit)) {
    if (isEmptyLine(end)) {
      eventsEnd_ = end + 1;
      return;
    }
    limit = end;
  }
}

bool PendingBody::isEmptyLine(std::size_t end) const {
  if (end > 0 && bytes_[end - 1] == '\r') --end;
  return end == 0 ? beginsLine_ : bytes_[end - 1] == '\n';
}

std::size_t PendingBody::due(Source source, SteadyTime now) {
  const bool arrived = std::exchange(arrived_, false);
  if (kind_ == Kind::plain) return size();
  if (source == Source::held) return eventsEnd_;
  if (size() >= kLongestEvent) return eventsEnd_ > 0 ? eventsEnd_ : size();
  if (source == Source::flowing && arrived) return dueWhileFlowing(now);
  return now - lastArrival_ >= kSettlingTime ? size() : eventsEnd_;
}

std::size_t PendingBody::dueWhileFlowing(SteadyTime now) const {
  return size() >= kChunkSize || now - firstArrival_ >= kGrowingTime ? eventsEnd_ : 0;
}

SteadyTime PendingBody::latest() const {
  return kind_ == Kind::plain || bytes_.empty() ? SteadyTime::max() : lastArrival_ + kSettlingTime;
}

Bytes PendingBody::take(std::size_t count) {
  if (count == 0) return {};
  beginsLine_ = bytes_[count - 1] == '\n';
  eventsEnd_ = eventsEnd_ > count ? eventsEnd_ - count : 0;
  firstArrival_ = lastArrival_;
  const auto cut = bytes_.begin() + static_cast<std::ptrdiff_t>(count);
  Bytes rest(cut, bytes_.end());
  bytes_.erase(cut, bytes_.end());
  return std::exchange(bytes_, std::move(rest));
}

}  // namespace kvl::urlloading
