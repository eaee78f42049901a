// The event-stream grammar: from the bytes of one chunk to the events that it completes.
#pragma once

#include "eventstream/PartialLine.h"

#include <local/KVLEvent.h>
#include <local/platform/Atomic.h>
#include <local/platform/Data.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl::eventstream {

// Reads one stream, chunk by chunk; `KVLEventStreamState::read` has the grammar. One thread at a
// time reads; the properties, which carry over from chunk to chunk, are atomic.
class EventStreamParser {
 public:
  static constexpr std::size_t kLongestLine = std::size_t{64} << 20;

  // Lines of more bytes are given up from now on, so that one without an end takes no more memory.
  void setLongestLine(std::size_t bytes) { longestLine_ = bytes; }

  // The events that the chunk completes, in order.
  [[nodiscard]] std::vector<std::shared_ptr<KVLEvent>> read(const Data& chunk);

  // The bytes after the last line end; absent before the first chunk.
  [[nodiscard]] std::optional<Data> data() const { return data_.get(); }
  void setData(std::optional<Data> data) { data_.set(std::move(data)); }
  // The event with which the next chunk begins, if any.
  [[nodiscard]] std::shared_ptr<KVLEvent> event() const { return event_.get(); }
  void setEvent(std::shared_ptr<KVLEvent> event) { event_.set(std::move(event)); }
  // The identifier of the last event that had one.
  [[nodiscard]] std::optional<std::string> lastEventID() const { return lastEventID_.get(); }
  void setLastEventID(std::optional<std::string> identifier) {
    lastEventID_.set(std::move(identifier));
  }

 private:
  [[nodiscard]] bool isTooLong(std::size_t more) const;
  void carry(std::string_view rest);
  [[nodiscard]] bool isSkipping();
  [[nodiscard]] bool skip(std::string_view& bytes);

  std::atomic<std::size_t> longestLine_ = kLongestLine;
  // Whether the line that goes on with the next chunk was given up.
  bool skipping_ = false;
  Atomic<std::optional<Data>> data_;
  Atomic<std::shared_ptr<KVLEvent>> event_;
  Atomic<std::optional<std::string>> lastEventID_;
  // What `data` was when `read` last set it, with room to grow.
  PartialLine partialLine_;
};

}  // namespace kvl::eventstream
