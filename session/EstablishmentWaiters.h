// Those who wait for a session to be established.
#pragma once

#include "platform/core/Observer.h"

#include <local/KVLSession.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Error.h>
#include <local/platform/Mutex.h>
#include <local/platform/Observation.h>

#include <memory>
#include <optional>
#include <vector>

namespace kvl::session {

// Each is told once, on the queue of the observers of the state and so after what those were told
// before. Thread-safe; everything may be called with locks held.
class EstablishmentWaiters {
 public:
  using Observer = core::Observer<const std::optional<Error>&>;

  explicit EstablishmentWaiters(std::shared_ptr<DispatchQueue> queue) : queue_(std::move(queue)) {}

  // Whoever comes after `close` is told its error at once.
  void add(const std::shared_ptr<Observer>& waiter, KVLSessionWait how);

  // Tells one, unless it has been told.
  void tell(const std::shared_ptr<Observer>& waiter, const std::optional<Error>& error);
  // Tells all of them.
  void tellAll(const std::optional<Error>& error);
  // Tells those who wait until the first failure.
  void tellFailure(const Error& error);
  // Tells all of them, those too who come later. The first call counts.
  void close(const Error& error);

 private:
  struct Waiter {
    std::weak_ptr<Observer> observer;
    KVLSessionWait how;
  };

  // On the queue, so that they come in the order in which this is called.
  void post(const std::vector<Waiter>& waiters, const std::optional<Error>& error)
      KVL_REQUIRES(mutex_);

  const std::shared_ptr<DispatchQueue> queue_;
  Mutex mutex_;
  std::vector<Waiter> waiters_ KVL_GUARDED_BY(mutex_);
  std::optional<Error> closed_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::session
