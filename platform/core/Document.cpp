#include "platform/core/Document.h"

#include "platform/core/LargeMemory.h"

#include <algorithm>
#include <utility>

namespace kvl::detail {

// Entries are written as their two parts.
static_assert(sizeof(Dictionary::Entry) == sizeof(std::string_view) + sizeof(Value));
static_assert(sizeof(Document) % alignof(Dictionary::Entry) == 0);
static_assert(alignof(Dictionary::Entry) == ValueAccess::kDistanceUnit);

namespace {

using PendingEntry = DocumentBuilder::PendingEntry;

std::vector<IndexedKey> indexOf(std::span<const PendingEntry> entries) {
  std::vector<std::string_view> keys;
  keys.reserve(entries.size());
  for (const PendingEntry& entry : entries) keys.push_back(entry.key);
  return makeKeyIndex(keys);
}

// Gives the last value of each key to its first entry, and an empty view without a start to the
// keys of the other entries. Says whether there were any.
bool markDuplicates(std::span<PendingEntry> entries, std::span<const IndexedKey> index) {
  bool found = false;
  for (std::size_t i = 0; i < index.size();) {
    PendingEntry& first = entries[positionIn(index[i])];
    for (++i; i < index.size() && entries[positionIn(index[i])].key == first.key; ++i) {
      PendingEntry& repeated = entries[positionIn(index[i])];
      first.value = repeated.value;
      repeated.key = {};
      found = true;
    }
  }
  return found;
}

}  // namespace

void Document::destroy() const noexcept {
  this->~Document();
  ::operator delete(const_cast<Document*>(this));
}

DocumentBuilder::DocumentBuilder(const Data& text, std::size_t capacity) {
  const std::size_t size = sizeof(Document) + sizeof(Value) + capacity;
  void* memory = ::operator new(size);
  core::preferLargePages(memory, size);
  document_ = new (memory) Document(text);
  next_ = static_cast<std::byte*>(memory) + sizeof(Document);
}

DocumentBuilder::~DocumentBuilder() {
  if (document_ != nullptr) document_->release();
}

Value DocumentBuilder::finish(const Cell& root) {
  const auto kind = static_cast<Value::Kind>(root.kind());
  if (kind < Value::Kind::string) return Value(root);
  const std::byte* placed = next_;
  place(root);
  document_ = nullptr;
  return Value(Cell{Access::headOf(kind, Storage::borrowed), {.pointer = placed}});
}

DocumentBuilder::Cell DocumentBuilder::longContent(Value::Kind kind, const void* start,
                                                   std::size_t size, const IndexedKey* index) {
  void* memory =
      document_->extras.allocate(sizeof(Access::LongContent), alignof(Access::LongContent));
  const auto* content = new (memory) Access::LongContent{start, size, index};
  return {Access::headOf(kind, Storage::placed) | Access::kLong << 16, {.pointer = content}};
}

DocumentBuilder::Cell DocumentBuilder::indexedDictionary(std::span<PendingEntry> entries) {
  auto index = indexOf(entries);
  if (markDuplicates(entries, index)) {
    const auto removed = std::ranges::remove_if(
        entries, [](const PendingEntry& entry) { return entry.key.data() == nullptr; });
    entries = entries.first(entries.size() - removed.size());
    index = indexOf(entries);
  }
  auto* kept = static_cast<IndexedKey*>(
      document_->extras.allocate(index.size() * sizeof(IndexedKey), alignof(IndexedKey)));
  std::ranges::copy(index, kept);
  const void* placed = placeEntries(entries);
  return longContent(Value::Kind::dictionary, placed, entries.size(), kept);
}

}  // namespace kvl::detail
