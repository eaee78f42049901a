#include "platform/urlloading/BodyFraming.h"

#include "platform/urlloading/URLSessionObject.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace kvl::urlloading {
namespace {

// Of a body without a framing. One pass of reading can bring as much as the receiver lets wait.
constexpr std::size_t kLargestPiece = std::size_t{256} << 10;
// How much memory a body gets on the strength of its announcement alone.
constexpr std::size_t kMostAhead = std::size_t{1} << 20;

}  // namespace

void setBodyFraming(DataTask& task, std::unique_ptr<BodyFraming> framing) {
  if (auto* object = dynamic_cast<DataTaskObject*>(&task)) object->setFraming(std::move(framing));
}

std::string_view PendingBody::text() const noexcept {
  return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()};
}

void PendingBody::append(std::string_view bytes, Time now) {
  const std::size_t before = bytes_.size();
  makeRoom(before + bytes.size());
  const auto* first = reinterpret_cast<const std::uint8_t*>(bytes.data());
  bytes_.insert(bytes_.end(), first, first + bytes.size());
  if (framing_) framing_->arrived(text(), before, now);
}

// Beyond the announcement the bytes make room for themselves.
void PendingBody::makeRoom(std::size_t needed) {
  if (needed <= bytes_.capacity() || needed > expected_) return;
  const std::size_t size = std::min(expected_, std::max(kMostAhead, 2 * needed));
  if (bytes_.empty())
    bytes_ = memory_->take(size);
  else
    bytes_.reserve(size);
}

std::size_t PendingBody::due(Source source, Time now) {
  return framing_ ? framing_->due(size(), source, now) : size();
}

bool PendingBody::isFull() const noexcept {
  return !framing_ && bytes_.size() >= kLargestPiece;
}

PendingBody::Time PendingBody::latest() const {
  return isCollecting() ? framing_->latest() : Time::max();
}

Bytes PendingBody::take(std::size_t count) {
  if (count == 0) return {};
  const auto cut = bytes_.begin() + static_cast<std::ptrdiff_t>(count);
  if (!framing_) {
    Bytes piece(bytes_.begin(), cut);
    bytes_.erase(bytes_.begin(), cut);
    return piece;
  }
  framing_->taken(text(), count);
  Bytes rest(cut, bytes_.end());
  bytes_.erase(cut, bytes_.end());
  return std::exchange(bytes_, std::move(rest));
}

Bytes PendingBody::takeAll() {
  return std::exchange(bytes_, {});
}

}  // namespace kvl::urlloading
