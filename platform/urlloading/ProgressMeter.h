// How far a task's bodies have come, for whoever looks or observes.
#pragma once

#include "platform/dispatch/ObserverList.h"

#include <local/platform/Mutex.h>
#include <local/platform/URLSession.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace kvl::urlloading {

// Counted by the I/O thread, read by any.
class ProgressMeter {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Handler = std::function<void(const TransferProgress&)>;

  // The shortest time between two states that observers are told of, but for the last one.
  static constexpr std::chrono::milliseconds kInterval{50};

  // For the I/O thread.
  // Sending begins, of so many bytes.
  void beginSending(std::optional<std::uint64_t> toSend);
  void noteSent(std::uint64_t count) { sent_ = count; }
  void noteToReceive(std::optional<std::uint64_t> count) { toReceive_ = encoded(count); }
  void noteReceived(std::uint64_t count) { received_ += count; }
  // Tells the observers what is new, if it is time.
  void publish(Time now);
  // When `publish` has something to do.
  [[nodiscard]] Time nextPublication() const;

  // For any thread.
  [[nodiscard]] TransferProgress present() const;
  [[nodiscard]] Observation observe(Handler handler);
  // Tells the last state. What runs on the returned queue from now on comes after that; null when
  // there has never been an observer.
  [[nodiscard]] std::shared_ptr<DispatchQueue> finish();

 private:
  using Observers = dispatch::ObserverList<TransferProgress>;
  static constexpr std::int64_t kUnknown = -1;

  [[nodiscard]] static std::int64_t encoded(std::optional<std::uint64_t> count);
  void tellNews() KVL_REQUIRES(mutex_);

  std::atomic<std::uint64_t> sent_ = 0;
  std::atomic<std::uint64_t> received_ = 0;
  std::atomic<std::int64_t> toSend_ = kUnknown;
  std::atomic<std::int64_t> toReceive_ = kUnknown;

  // Whether there has been an observer: without one nobody locks.
  std::atomic<bool> observed_ = false;
  mutable Mutex mutex_;
  std::shared_ptr<DispatchQueue> queue_ KVL_GUARDED_BY(mutex_);
  std::shared_ptr<Observers> observers_ KVL_GUARDED_BY(mutex_);
  TransferProgress told_ KVL_GUARDED_BY(mutex_);
  Time toldAt_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::urlloading
