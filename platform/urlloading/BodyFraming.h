// How the pieces in which a body arrives become the chunks that a task's delegate receives.
#pragma once

#include "platform/urlloading/BodyMemory.h"

#include <local/platform/Data.h>
#include <local/platform/URLSession.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

namespace kvl::urlloading {

// Decides how much of the bytes that were read, and not handed over yet, makes the next chunk.
// Whoever starts a task may hand in one that knows what the body consists of; it belongs to that
// task alone. On the I/O thread only.
class BodyFraming {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // What the bytes come from, after a pass of reading.
  enum class Source {
    quiet,    // nothing to read
    flowing,  // more to read at once
    held,     // nothing is read until the delegate has caught up
  };

  virtual ~BodyFraming() = default;

  // Bytes have arrived at `now`: those of `pending` behind `from`.
  virtual void arrived(std::string_view pending, std::size_t from, Time now) = 0;
  // The length of the chunk that is to go of `pending` bytes, or 0. Called once after each pass of
  // reading, which began at `now`: the time that a thread is kept from reading does not count.
  [[nodiscard]] virtual std::size_t due(std::size_t pending, Source source, Time now) = 0;
  // The first `count` bytes of `pending` go; `count` is not 0.
  virtual void taken(std::string_view pending, std::size_t count) = 0;
  // When pending bytes of a quiet source are due at the latest.
  [[nodiscard]] virtual Time latest() const = 0;
};

// Hands in a task's framing, before the task is resumed. A task whose body goes to a completion
// handler and a task of another kind than this loader's own have no use for it.
void setBodyFraming(DataTask& task, std::unique_ptr<BodyFraming> framing);

// The part of a body that was read and not handed over yet. One thread.
class PendingBody {
 public:
  using Source = BodyFraming::Source;
  using Time = BodyFraming::Time;

  // Without a framing, what one pass of reading brings is a chunk, or several if it is much.
  explicit PendingBody(std::unique_ptr<BodyFraming> framing) noexcept
      : framing_(std::move(framing)) {}

  // So many bytes are announced, and may have memory of this. Room for them is made as they come:
  // the sender may have lied.
  void expect(std::size_t bytes, BodyMemory& memory) noexcept {
    expected_ = bytes;
    memory_ = &memory;
  }
  void append(std::string_view bytes, Time now);
  [[nodiscard]] std::size_t capacity() const noexcept { return bytes_.capacity(); }
  [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
  [[nodiscard]] bool empty() const noexcept { return bytes_.empty(); }
  // Whether there are bytes that may have to wait for others.
  [[nodiscard]] bool isCollecting() const noexcept { return framing_ && !empty(); }

  // Whether enough has come for a chunk, though the pass goes on. With a framing, never.
  [[nodiscard]] bool isFull() const noexcept;

  // As the framing says.
  [[nodiscard]] std::size_t due(Source source, Time now);
  [[nodiscard]] Time latest() const;

  // Takes that many bytes off the front. Without a framing they are copied into memory of just
  // their size, and the memory in which they were collected serves again.
  [[nodiscard]] Bytes take(std::size_t count);
  // Takes all of them in the memory that they are in, past the framing.
  [[nodiscard]] Bytes takeAll();

 private:
  [[nodiscard]] std::string_view text() const noexcept;
  void makeRoom(std::size_t needed);

  const std::unique_ptr<BodyFraming> framing_;
  Bytes bytes_;
  std::size_t expected_ = 0;  // 0: not known
  BodyMemory* memory_ = nullptr;
};

}  // namespace kvl::urlloading
