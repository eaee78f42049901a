#include "eventstream/PartialLine.h"

#include "platform/core/LargeMemory.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>

namespace kvl::eventstream {
namespace {

std::span<const std::uint8_t> bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Room that is not used yet costs addresses, but no memory, once it spans many pages; copying
// costs.
std::size_t roomAfter(std::size_t size) {
  constexpr std::size_t kLarge = std::size_t{1} << 20;
  return size < kLarge ? 2 * size : 4 * size;
}

bool isViewOf(const Data& data, const std::string& buffer) {
  const auto bytes = bytesOf(buffer);
  return data.data() == bytes.data() && data.size() == bytes.size();
}

}  // namespace

void PartialLine::resume(const std::optional<Data>& carried) {
  buffer_ = shared_.lock();
  shared_.reset();
  if (carried && buffer_ && isViewOf(*carried, *buffer_)) return;
  buffer_.reset();
  if (carried && !carried->empty()) buffer_ = std::make_shared<std::string>(carried->text());
}

void PartialLine::append(std::string_view bytes) {
  if (bytes.empty()) return;
  if (!buffer_) buffer_ = std::make_shared<std::string>();
  if (bytes.size() > buffer_->capacity() - buffer_->size()) grow(buffer_->size() + bytes.size());
  buffer_->append(bytes);
}

// Into a new buffer, since others may be reading the old one.
void PartialLine::grow(std::size_t size) {
  auto grown = std::make_shared<std::string>();
  grown->reserve(std::max(size, roomAfter(buffer_->size())));
  core::preferLargePages(grown->data(), grown->capacity());
  grown->append(*buffer_);
  buffer_ = std::move(grown);
}

std::string_view PartialLine::text() const noexcept {
  return buffer_ ? std::string_view(*buffer_) : std::string_view();
}

Data PartialLine::share() {
  if (!buffer_) return {};
  shared_ = buffer_;
  const auto bytes = bytesOf(*buffer_);
  return {std::exchange(buffer_, nullptr), bytes};
}

}  // namespace kvl::eventstream
