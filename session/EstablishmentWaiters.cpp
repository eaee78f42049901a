#include "session/EstablishmentWaiters.h"

#include "platform/core/ProcessExit.h"

#include <algorithm>
#include <utility>

namespace kvl::session {

void EstablishmentWaiters::add(const std::shared_ptr<Observer>& waiter, KVLSessionWait how) {
  const MutexLock lock(mutex_);
  if (closed_) return post({{waiter, how}}, closed_);
  std::erase_if(waiters_, [](const Waiter& other) { return other.observer.expired(); });
  waiters_.push_back({waiter, how});
}

void EstablishmentWaiters::tell(const std::shared_ptr<Observer>& waiter,
                                const std::optional<Error>& error) {
  const MutexLock lock(mutex_);
  const auto found = std::ranges::find_if(
      waiters_, [&waiter](const Waiter& other) { return other.observer.lock() == waiter; });
  if (found == waiters_.end()) return;
  post({*found}, error);
  waiters_.erase(found);
}

void EstablishmentWaiters::tellAll(const std::optional<Error>& error) {
  const MutexLock lock(mutex_);
  post(std::exchange(waiters_, {}), error);
}

void EstablishmentWaiters::tellFailure(const Error& error) {
  const MutexLock lock(mutex_);
  std::vector<Waiter> told;
  std::erase_if(waiters_, [&told](const Waiter& waiter) {
    if (waiter.how == KVLSessionWait::untilLimit) return false;
    told.push_back(waiter);
    return true;
  });
  post(told, error);
}

void EstablishmentWaiters::close(const Error& error) {
  const MutexLock lock(mutex_);
  if (closed_) return;
  closed_ = error;
  post(std::exchange(waiters_, {}), error);
}

void EstablishmentWaiters::post(const std::vector<Waiter>& waiters,
                                const std::optional<Error>& error) {
  for (const auto& waiter : waiters) {
    if (waiter.observer.expired()) continue;
    queue_->async([weak = waiter.observer, error] {
      const core::ThreadWork work;
      const auto observer = weak.lock();
      if (!observer) return;
      observer->tell(error);
      observer->end();  // lets go of what the handler holds
    });
  }
}

}  // namespace kvl::session
