// A request's body on its way from its source, which may wait, to the I/O thread, which must not.
#pragma once

#include <local/platform/BodySource.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Mutex.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

// What the feeds of one source share: a call that a cancelled task has left behind must end before
// the next task's begin.
struct kvl::BodySource::Use {
  const std::shared_ptr<DispatchQueue> queue = DispatchQueue::serial("korvale.local.body");
  const void* reader = nullptr;  // the feed that began last; on the queue
};

namespace kvl::urlloading {

// Reads ahead, two blocks at most, on the queue of its source. Thread-safe; the transfer lets go of
// it at any time without waiting, and a call of the source that is under way comes to nothing.
class BodyFeed : public std::enable_shared_from_this<BodyFeed> {
 public:
  // `whenReady` is called on the queue after `take` found nothing: it has something now.
  BodyFeed(std::shared_ptr<BodySource> source, std::function<void()> whenReady);
  ~BodyFeed();

  // What the source said of its length.
  [[nodiscard]] std::optional<std::uint64_t> length() const noexcept { return length_; }

  enum class State : unsigned char {
    ready,    // there are bytes
    starved,  // none yet: `whenReady` tells
    over,     // there are none any more
    failed,   // nor will there be: see `error`
  };
  // Moves bytes to the front of `room`; how many says `count`, which is not 0 if the state is
  // `ready`.
  [[nodiscard]] State take(std::span<std::uint8_t> room, std::size_t& count);
  // Whether anything has been taken since the beginning or the last `rewind`.
  [[nodiscard]] bool hasBegun() const;
  // Begins again with the source's first byte.
  void rewind();
  // Why it failed; absent when the source gave less than it had said or could not go back.
  [[nodiscard]] std::optional<Error> error() const;
  // Asks the source for nothing any more.
  void close();

 private:
  // One call of the source.
  enum class Step : unsigned char { none, read, rewind };

  [[nodiscard]] Step nextStep() const KVL_REQUIRES(mutex_);
  // Whether the source still is this feed's. The first time it may have to be rewound.
  [[nodiscard]] bool takeSource(Step& step);
  [[nodiscard]] std::size_t nextSize() const KVL_REQUIRES(mutex_);
  void fail(std::optional<Error> error) KVL_REQUIRES(mutex_);
  void workUnlessWorking();
  void work();
  [[nodiscard]] bool workOnce();
  void read(std::size_t size);
  void rewindSource();

  const std::shared_ptr<BodySource> source_;
  const std::function<void()> whenReady_;
  const std::optional<std::uint64_t> length_;

  bool hasSource_ = false;  // on the queue
  mutable Mutex mutex_;
  std::deque<std::vector<std::uint8_t>> blocks_ KVL_GUARDED_BY(mutex_);
  std::size_t takenOfFront_ KVL_GUARDED_BY(mutex_) = 0;
  std::uint64_t read_ KVL_GUARDED_BY(mutex_) = 0;
  std::optional<Error> error_ KVL_GUARDED_BY(mutex_);
  bool begun_ KVL_GUARDED_BY(mutex_) = false;
  bool ended_ KVL_GUARDED_BY(mutex_) = false;
  bool failed_ KVL_GUARDED_BY(mutex_) = false;
  bool closed_ KVL_GUARDED_BY(mutex_) = false;
  bool working_ KVL_GUARDED_BY(mutex_) = false;
  bool starved_ KVL_GUARDED_BY(mutex_) = false;
  bool rewinding_ KVL_GUARDED_BY(mutex_) = false;
};

}  // namespace kvl::urlloading
