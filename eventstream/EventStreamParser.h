// The event-stream grammar: from the bytes of one chunk to the events that it completes.
#pragma once

#include "eventstream/PartialLine.h"
#include "platform/core/LineScan.h"

#include <local/KVLEvent.h>
#include <local/platform/Data.h>
#include <local/platform/Mutex.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
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
  [[nodiscard]] std::optional<Data> data() const;
  void setData(const std::optional<Data>& data);
  // The event with which the next chunk begins, if any.
  [[nodiscard]] std::shared_ptr<KVLEvent> event() const;
  void setEvent(std::shared_ptr<KVLEvent> event);
  // The identifier of the last event that had one.
  [[nodiscard]] std::optional<std::string> lastEventID() const;
  void setLastEventID(std::optional<std::string> identifier);

 private:
  // What was there before a chunk with line ends.
  struct Beginning {
    std::shared_ptr<KVLEvent> event;
    // Of the line that the chunk goes on with; with its end unless that makes it too long.
    Data line;
    bool isASCII = true;
    bool isTooLong = false;
    bool isGiven = false;
  };

  [[nodiscard]] Beginning begin(std::string_view rest, bool isASCII);
  void carry(std::string_view rest, bool isASCII, const Data* completed);
  void skip(std::string_view rest);
  [[nodiscard]] bool isSkipping() const;
  [[nodiscard]] bool isTooLong(std::size_t more) const KVL_REQUIRES(mutex_);

  const core::LineScan scan_ = core::lineScan();
  std::atomic<std::size_t> longestLine_ = kLongestLine;
  // Whether the line that goes on with the next chunk was given up.
  bool skipping_ = false;
  mutable Mutex mutex_;
  bool hasData_ KVL_GUARDED_BY(mutex_) = false;
  // What `data` is, if it is there.
  mutable PartialLine partialLine_ KVL_GUARDED_BY(mutex_);
  // Whether it was set, so that there may be whole lines in it.
  bool isGiven_ KVL_GUARDED_BY(mutex_) = false;
  std::shared_ptr<KVLEvent> event_ KVL_GUARDED_BY(mutex_);
  std::optional<std::string> lastEventID_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::eventstream
