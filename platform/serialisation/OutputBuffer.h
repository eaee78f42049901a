// Bytes that grow while a document is written.
#pragma once

#include "platform/core/LargeMemory.h"

#include <local/platform/Data.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace kvl::serialisation {

// Memory that is written once and never cleared before. Writers ask for room and then write through
// the pointer that they get; what they have not written stays undefined.
class OutputBuffer {
 public:
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] std::string_view text() const noexcept { return {start_.get(), size_}; }

  // Room for so many more bytes, which count once `written` says that they are there.
  [[nodiscard]] char* reserve(std::size_t count) {
    if (capacity_ - size_ < count) grow(count);
    return start_.get() + size_;
  }
  // @pre `end` is within the room of the last `reserve`
  void written(const char* end) noexcept { size_ = static_cast<std::size_t>(end - start_.get()); }

  void append(char byte) { *reserve(1) = byte, ++size_; }
  void append(std::string_view bytes) {
    char* const out = reserve(bytes.size());
    std::copy(bytes.begin(), bytes.end(), out);
    size_ += bytes.size();
  }

  // The bytes themselves. Nothing else may be called then.
  [[nodiscard]] Data take() && {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(start_.get());
    return {std::shared_ptr<const void>(std::move(start_)), {bytes, size_}};
  }

 private:
  static constexpr std::size_t kSmallest = 1024;

  struct Free {
    void operator()(char* memory) const noexcept { std::free(memory); }
  };

  [[gnu::noinline]] void grow(std::size_t count) {
    const std::size_t capacity = std::max({kSmallest, capacity_ * 2, size_ + count});
    auto* grown = static_cast<char*>(std::realloc(start_.get(), capacity));
    if (grown == nullptr) throw std::bad_alloc();
    static_cast<void>(start_.release());
    start_.reset(grown);
    core::preferLargePages(grown + size_, capacity - size_);
    capacity_ = capacity;
  }

  std::unique_ptr<char[], Free> start_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace kvl::serialisation
