// A delegate that remembers what the event stream brought.
#pragma once

#include <local/KVLSession.h>
#include <local/platform/Mutex.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kvltest {

// The numbered events of the development service, counted.
struct Tally {
  std::int64_t count = 0;
  std::int64_t batches = 0;
  std::int64_t last = 0;      // the greatest number so far
  std::int64_t missing = 0;   // numbers, from 1 on, that were passed over
  std::int64_t disorder = 0;  // events whose number is not above all before it
  std::int64_t damaged = 0;   // events that are not as the service made them
};

struct SeenEvent {
  std::string name;
  std::string identifier;
  std::string data;  // at most `kKeptData` bytes of it
  std::int64_t number;
  std::thread::id thread;
  std::chrono::steady_clock::time_point time;
};

// Usable from any thread.
class EventRecorder final : public KVLSessionDelegate {
 public:
  // Called after each batch, on the thread that delivers it.
  using Hook = std::function<void(KVLSession&, const Tally&)>;

  // The text of a whole event must have this many bytes; 0: any number. Set before events come.
  void setEventSize(std::size_t size) { eventSize_ = size; }
  // How many of the first events are kept. Set before events come.
  void setKept(std::size_t count) { kept_ = count; }
  // Returns when no call of the hook before is running; not for use inside one.
  void setHook(Hook hook);

  [[nodiscard]] Tally tally() const;
  // The first events; a long stream keeps no more than `kKept`, unless told otherwise.
  [[nodiscard]] std::vector<SeenEvent> events() const;

  // Waits until the event with this number, or a later one, has come. False when none come at all
  // for a long time.
  [[nodiscard]] bool waitForNumber(std::int64_t number);
  // The same until that many events have come.
  [[nodiscard]] bool waitForCount(std::int64_t count);

  void eventStream(KVLSession& session,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override;

  static constexpr std::size_t kKept = 10'000;
  static constexpr std::size_t kKeptData = 64;

 private:
  using Test = std::function<bool(const Tally&)>;

  void run(const Hook& hook, KVLSession& session, const Tally& tally);
  [[nodiscard]] bool waitUntil(const Test& isMet);
  void record(const KVLEvent& event) KVL_REQUIRES(mutex_);
  [[nodiscard]] std::int64_t numberOf(const KVLEvent& event) const;

  std::size_t eventSize_ = 0;
  std::size_t kept_ = kKept;
  mutable kvl::Mutex mutex_;
  kvl::Condition changed_;
  Tally tally_ KVL_GUARDED_BY(mutex_);
  std::vector<SeenEvent> seen_ KVL_GUARDED_BY(mutex_);
  Hook hook_ KVL_GUARDED_BY(mutex_);
  int hooksRunning_ KVL_GUARDED_BY(mutex_) = 0;
  Test awaited_ KVL_GUARDED_BY(mutex_);
};

// A hook that is there, and touches what the test has declared before it, as long as this lives.
class ScopedHook {
 public:
  ScopedHook(std::shared_ptr<EventRecorder> recorder, EventRecorder::Hook hook)
      : recorder_(std::move(recorder)) {
    recorder_->setHook(std::move(hook));
  }
  ~ScopedHook() { recorder_->setHook(nullptr); }
  ScopedHook(const ScopedHook&) = delete;
  ScopedHook& operator=(const ScopedHook&) = delete;

 private:
  const std::shared_ptr<EventRecorder> recorder_;
};

}  // namespace kvltest
