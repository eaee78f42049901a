// The memory of a parsed document, and the builder with which a parser fills it.
#pragma once

#include "platform/core/ValueAccess.h"

#include <local/platform/Value.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <new>
#include <span>
#include <string_view>
#include <vector>

namespace kvl::detail {

// The header of a block of memory that holds the values of a document. References are counted for
// the document as a whole; its own values refer to one another uncounted.
struct Document {
  explicit Document(Data itsText) noexcept : text(std::move(itsText)) {}

  void retain() const noexcept { references.fetch_add(1, std::memory_order_relaxed); }
  void release() const noexcept {
    if (references.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy();
  }
  void destroy() const noexcept;

  mutable std::atomic<std::size_t> references{1};
  // Strings are views of it where they can be.
  const Data text;
  // Everything but values: what text does not hold as it is, and indexes.
  std::pmr::monotonic_buffer_resource extras{std::pmr::new_delete_resource()};
};

// Builds a document from the leaves up: the parser collects the elements of an open container, and
// hands them over when the container ends.
//
// Usable on one thread. Whatever it hands out lives as long as the builder, and then as long as the
// value that `finish` gives.
class DocumentBuilder {
 public:
  using Cell = ValueCell;
  struct PendingEntry {
    std::string_view key;
    Cell value;
  };

  // `capacity` is in bytes, and enough for all containers: 16 for each element of an array, 32 for
  // each entry of a dictionary.
  DocumentBuilder(const Data& text, std::size_t capacity);
  DocumentBuilder(const DocumentBuilder&) = delete;
  DocumentBuilder& operator=(const DocumentBuilder&) = delete;
  ~DocumentBuilder();

  static Cell null() noexcept { return {}; }
  static Cell boolean(bool value) noexcept {
    return {Cell::headOf(Value::Kind::boolean), {.integer = value}};
  }
  static Cell integer(std::int64_t value) noexcept {
    return {Cell::headOf(Value::Kind::integer), {.integer = value}};
  }
  static Cell real(double value) noexcept {
    return {Cell::headOf(Value::Kind::real), {.real = value}};
  }

  // `text` is a part of the document's text or stands in memory from `allocateText`.
  Cell string(std::string_view text) {
    return content(Value::Kind::string, text.data(), text.size());
  }
  [[nodiscard]] char* allocateText(std::size_t size) {
    return static_cast<char*>(document_->extras.allocate(size, 1));
  }

  Cell array(std::span<const Cell> elements) {
    Value* const placed = reinterpret_cast<Value*>(next_);
    for (const Cell& element : elements) place(element);
    return content(Value::Kind::array, placed, elements.size());
  }

  // Of equal keys the last one's value counts, in the first one's place. Up to `kUnindexedSize`
  // entries, the parser removes duplicates itself.
  Cell dictionary(std::span<PendingEntry> entries) {
    if (entries.size() > kUnindexedSize) return indexedDictionary(entries);
    const void* placed = placeEntries(entries);
    return content(Value::Kind::dictionary, placed, entries.size());
  }

  // The finished document. Nothing else may be called then.
  [[nodiscard]] Value finish(const Cell& root);

 private:
  using Access = ValueAccess;
  using Storage = Access::Storage;

  Cell content(Value::Kind kind, const void* start, std::size_t size) {
    if (size >= Access::kLong) return longContent(kind, start, size, nullptr);
    return {Access::headOf(kind, Storage::placed) | size << 16, {.pointer = start}};
  }
  Cell longContent(Value::Kind kind, const void* start, std::size_t size, const IndexedKey* index);
  Cell indexedDictionary(std::span<PendingEntry> entries);

  const void* placeEntries(std::span<const PendingEntry> entries) {
    const void* const placed = next_;
    for (const auto& [key, value] : entries) {
      new (next_) std::string_view(key.data(), key.size());
      next_ += sizeof(std::string_view);
      place(value);
    }
    return placed;
  }
  void place(const Cell& cell) noexcept {
    const std::uint64_t distance =
        static_cast<std::uint64_t>(next_ - reinterpret_cast<std::byte*>(document_)) /
        Access::kDistanceUnit;
    new (next_) Value(Cell{cell.head | distance << 32, cell.payload});
    next_ += sizeof(Value);
  }

  Document* document_;
  // Where the next value goes.
  std::byte* next_;
};

}  // namespace kvl::detail
