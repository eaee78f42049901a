// The two places at which images are decoded: who has them, and the processes behind them.
#pragma once

#include "platform/core/Threads.h"
#include "platform/interface/client/Decoder.h"
#include "platform/interface/client/DecoderProgram.h"
#include "platform/interface/client/Schedule.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/Mutex.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kvl::interface {

class DecoderPool;

// A place, for as long as somebody has it.
class DecoderPlace {
 public:
  DecoderPlace(DecoderPool& pool, std::size_t number, Schedule::Ticket ticket, int nudge)
      : pool_(pool), number_(number), ticket_(ticket), nudge_(nudge) {}

  [[nodiscard]] std::size_t number() const noexcept { return number_; }
  // Starts a decoder where there is none that can be used, and gives up one that met a limit or did
  // anything else than answer. None when there is no decoder to be had; the log knows why.
  [[nodiscard]] std::optional<Decoder::Exchange> exchange(const ImageRequest& request, Span bytes,
                                                          const Decoder::Limits& limits);

 private:
  DecoderPool& pool_;
  const std::size_t number_;
  const Schedule::Ticket ticket_;
  const int nudge_;
  bool hasBegun_ = false;
};

// Work that takes a place.
class DecoderJob {
 public:
  DecoderJob() = default;
  virtual ~DecoderJob() = default;
  DecoderJob(const DecoderJob&) = delete;
  DecoderJob& operator=(const DecoderJob&) = delete;

  // False when it was put off: then it is called again later. What it throws leaves `run`; one that
  // was posted counts as done.
  [[nodiscard]] virtual bool drive(DecoderPlace& place) = 0;
  // Of one that was posted, once `drive` is through; no place is taken and no lock held.
  virtual void deliver() {}
  virtual void noteSlow() {}
  [[nodiscard]] virtual bool isSlow() const { return false; }
  [[nodiscard]] virtual std::size_t favouredPlace() const { return 0; }
  // Whoever lets it go.
  [[nodiscard]] virtual const void* owner() const { return nullptr; }
};

// It has no thread: whoever waits drives the decoder, and blocks on a queue do so for those that do
// not wait. In a child of fork(2) it does nothing at all.
class DecoderPool : public std::enable_shared_from_this<DecoderPool> {
 public:
  using Later = std::function<void(std::chrono::nanoseconds, std::function<void()>)>;

  struct Options {
    std::vector<std::filesystem::path> places;  // of the program; empty: where this library lies
    std::chrono::milliseconds share;
    std::chrono::milliseconds idle;   // after which the processes end
    std::chrono::milliseconds retry;  // after which a start that failed is tried again
    std::shared_ptr<DispatchQueue> queue;
    Later later;  // calls what it is given after a delay; quick, as it is
  };

  explicit DecoderPool(Options options) : options_(std::move(options)), schedule_(options_.share) {}
  ~DecoderPool() = default;
  DecoderPool(const DecoderPool&) = delete;
  DecoderPool& operator=(const DecoderPool&) = delete;

  [[nodiscard]] bool isAtHome() const noexcept { return home_.isThisProcess(); }

  // Waits for a place and drives the job. False when it was let go, or stopped, before its end. A
  // thread may be cancelled while it waits for a place.
  [[nodiscard]] bool run(DecoderJob& job);
  // Drives the job on the queue and delivers it there; forgets it when it is let go.
  void post(std::shared_ptr<DecoderJob> job);
  // Forgets the owner's jobs. Never waits.
  void letGo(const void* owner) noexcept;
  // Starts the program on the queue, unless it runs or is about to.
  void prepare();
  // Nothing is begun any more, and what is under way ends soon. Never waits.
  void stop() noexcept;
  // Unless somebody has a place. Waits for them.
  void endProcesses();

 private:
  friend class DecoderPlace;

  // One job and its turn. Read and written with `mutex_` held.
  struct Turn {
    explicit Turn(DecoderJob& itsJob) : job(itsJob) {}
    DecoderJob& job;
    std::shared_ptr<DecoderJob> posted;  // the same one, unless somebody waits for it
    Schedule::Ticket ticket = 0;
    std::optional<std::size_t> place;
    int nudge = -1;
    bool isLetGo = false;
    Condition changed;
  };
  using TurnPtr = std::shared_ptr<Turn>;
  class Leaving;

  // What is at a place, for whoever has it.
  struct Site {
    std::unique_ptr<Decoder> decoder;
    Descriptor ending;  // the process of the one before
    Schedule::Clock::time_point shareEnd;
  };

  // What `grant` returns is to be served on the queue.
  [[nodiscard]] TurnPtr add(const TurnPtr& turn) KVL_REQUIRES(mutex_);
  [[nodiscard]] TurnPtr grant() KVL_REQUIRES(mutex_);
  void begin(TurnPtr turn) noexcept;
  [[nodiscard]] bool waitForPlace(Turn& turn, int cancelState);
  void serve(TurnPtr turn);
  [[nodiscard]] bool driveOrLose(const TurnPtr& turn);
  void deliver(const TurnPtr& turn, bool elsewhere);
  [[nodiscard]] bool drive(const TurnPtr& turn);
  [[nodiscard]] TurnPtr release(const TurnPtr& turn, bool isDone) noexcept;
  void nudge(std::size_t place) KVL_REQUIRES(mutex_);
  [[nodiscard]] Schedule::Judgement judge(Schedule::Ticket ticket);

  [[nodiscard]] bool fill(Site& site);
  void renewShare(Site& site, Schedule::Ticket ticket);
  static void discard(Site& site);
  [[nodiscard]] std::unique_ptr<Decoder> takeDecoder();
  [[nodiscard]] std::unique_ptr<Decoder> makeDecoder() KVL_REQUIRES(control_);
  [[nodiscard]] std::unique_ptr<Decoder> askForDecoder(DecoderProblem& problem)
      KVL_REQUIRES(control_);

  void prepareNow();
  void watchIdleness() noexcept;
  void lookLater(std::chrono::nanoseconds delay) noexcept;
  void lookWhetherIdle();

  const Options options_;
  const core::HomeProcess home_;
  std::array<Site, Schedule::kPlaces> sites_;

  // Taken first by whoever needs both.
  Mutex control_ KVL_ACQUIRED_BEFORE(mutex_);
  std::unique_ptr<DecoderProgram> program_ KVL_GUARDED_BY(control_);
  std::unique_ptr<Decoder> spare_ KVL_GUARDED_BY(control_);
  std::uint64_t workers_ KVL_GUARDED_BY(control_) = 0;
  std::optional<Schedule::Clock::time_point> failed_ KVL_GUARDED_BY(control_);
  bool isFailureKnown_ KVL_GUARDED_BY(control_) = false;
  std::atomic<bool> isProgramRunning_ = false;
  std::atomic<bool> isPreparing_ = false;

  Mutex mutex_;
  Schedule schedule_ KVL_GUARDED_BY(mutex_);
  std::map<Schedule::Ticket, TurnPtr> turns_ KVL_GUARDED_BY(mutex_);
  std::array<Descriptor, Schedule::kPlaces> nudges_ KVL_GUARDED_BY(mutex_);
  Schedule::Clock::time_point lastUse_ KVL_GUARDED_BY(mutex_);
  bool isWatched_ KVL_GUARDED_BY(mutex_) = false;
  bool isStopped_ KVL_GUARDED_BY(mutex_) = false;
};

}  // namespace kvl::interface
