// A stack that keeps its memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <type_traits>

namespace kvl::serialisation {

// For plain elements. Quicker to push to than a vector, whose bounds the compiler has to reload.
template <class T>
  requires std::is_trivially_copyable_v<T>
class JSONStack {
 public:
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] std::size_t memory() const noexcept { return capacity_ * sizeof(T); }
  [[nodiscard]] std::span<T> from(std::size_t first) noexcept {
    return {memory_.get() + first, size_ - first};
  }
  void push(const T& element) {
    if (size_ == capacity_) grow();
    memory_[size_++] = element;
  }
  void shrink(std::size_t size) noexcept { size_ = size; }

 private:
  static constexpr std::size_t kSmallestCapacity = 64;

  [[gnu::noinline]] void grow() {
    const std::size_t capacity = std::max(kSmallestCapacity, capacity_ * 2);
    auto grown = std::make_unique_for_overwrite<T[]>(capacity);
    std::copy_n(memory_.get(), size_, grown.get());
    memory_ = std::move(grown);
    capacity_ = capacity;
  }

  std::unique_ptr<T[]> memory_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace kvl::serialisation
