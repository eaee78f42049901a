#include "eventstream/PartialLine.h"

#include "platform/core/LargeMemory.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>

namespace kvl::eventstream {
namespace {

constexpr std::size_t kSmallest = 256;

// Room that is not used yet costs addresses, but no memory, once it spans many pages; copying
// costs.
std::size_t roomAfter(std::size_t size) {
  constexpr std::size_t kLarge = std::size_t{1} << 20;
  return size < kLarge ? 2 * size : 4 * size;
}

Data dataOf(const std::shared_ptr<char[]>& bytes, std::size_t size) {
  return {bytes, std::span(reinterpret_cast<const std::uint8_t*>(bytes.get()), size)};
}

}  // namespace

// In new memory, since others may be reading the old one.
void PartialLine::grow(std::size_t count) {
  const std::size_t capacity = std::max({kSmallest, size_ + count, roomAfter(size_)});
  auto grown = std::make_shared_for_overwrite<char[]>(capacity);
  core::preferLargePages(grown.get(), capacity);
  std::copy_n(bytes_.get(), size_, grown.get());
  bytes_ = std::move(grown);
  capacity_ = capacity;
  isShared_ = false;
  isLent_ = false;
}

void PartialLine::append(std::string_view bytes, bool isASCII) {
  makeRoom(bytes.size());
  std::copy(bytes.begin(), bytes.end(), bytes_.get() + size_);
  size_ += bytes.size();
  isASCII_ = isASCII_ && isASCII;
}

void PartialLine::clear() noexcept {
  size_ = 0;
  isASCII_ = true;
  if (!isShared_ && !isLent_ && capacity_ <= kKeptSize) return;
  bytes_.reset();
  capacity_ = 0;
  isShared_ = false;
  isLent_ = false;
}

void PartialLine::assign(std::string_view bytes) {
  clear();
  append(bytes, bytes.empty());
}

Data PartialLine::share() {
  if (empty()) return {};
  isShared_ = true;
  return dataOf(bytes_, size_);
}

Data PartialLine::completed(std::string_view end) {
  makeRoom(end.size());
  std::copy(end.begin(), end.end(), bytes_.get() + size_);
  isLent_ = true;
  return dataOf(bytes_, size_ + end.size());
}

void PartialLine::reclaim(const Data& line) noexcept {
  if (line.text().data() == bytes_.get()) isLent_ = false;
}

}  // namespace kvl::eventstream
