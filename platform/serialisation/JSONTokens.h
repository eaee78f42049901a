// Where the tokens of a JSON text stand, and memory to read them with.
#pragma once

#include "platform/core/Document.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace simdjson::internal {
class dom_parser_implementation;
}

namespace kvl::serialisation {

// A stack that keeps its memory. For plain elements: quicker to push to than a vector, whose bounds
// the compiler has to reload.
template <class T>
  requires std::is_trivially_copyable_v<T>
class JSONStack {
 public:
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] std::size_t memory() const noexcept { return capacity_ * sizeof(T); }
  [[nodiscard]] std::span<T> from(std::size_t first) noexcept {
    return {memory_.get() + first, size_ - first};
  }
  // A new element, to be written.
  [[nodiscard]] T& push() {
    if (size_ == capacity_) grow();
    return memory_[size_++];
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

// The working memory of a reader. The process keeps one for its next reader.
class JSONWorkspace {
 public:
  // The workspace that an earlier reader left, or a new one.
  static std::unique_ptr<JSONWorkspace> take();
  // Leaves the workspace for the next reader, unless it has grown large.
  static void leave(std::unique_ptr<JSONWorkspace> workspace) noexcept;

  JSONWorkspace();
  JSONWorkspace(const JSONWorkspace&) = delete;
  JSONWorkspace& operator=(const JSONWorkspace&) = delete;
  ~JSONWorkspace();

  // Where the tokens of `text` begin: the characters `[]{}:,`, opening quotes, and the first
  // characters of everything else that is not white space. What separates a token from the next
  // but white space belongs to the token. All of the text is UTF-8 then, its strings are closed,
  // and no control character stands in one.
  //
  // The text's size stands behind the last position that is given. Without tokens, `problem` says
  // why. Valid until the next call. @pre `text.size() <= kMaximumJSONSize`
  std::span<const std::uint32_t> tokensOf(std::string_view text, std::string& problem);

  // What has been read of the containers that are open.
  JSONStack<detail::DocumentBuilder::Cell> elements;
  JSONStack<detail::DocumentBuilder::PendingEntry> entries;

 private:
  bool reserve(std::size_t textSize);
  [[nodiscard]] std::size_t size() const noexcept;

  std::unique_ptr<simdjson::internal::dom_parser_implementation> index_;
  std::size_t capacity_ = 0;
};

}  // namespace kvl::serialisation
