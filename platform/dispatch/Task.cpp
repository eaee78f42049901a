#include "platform/core/ProcessExit.h"
#include "platform/dispatch/MainLoop.h"

#include <local/platform/Task.h>

kvl::detail::TaskScope::TaskScope(std::coroutine_handle<> root,
                                  std::shared_ptr<DispatchQueue> home) noexcept
    : root_(root), home_(std::move(home)) {}

kvl::detail::TaskScope::~TaskScope() = default;

void kvl::detail::TaskScope::start(std::function<void()> finish) noexcept {
  {
    const MutexLock lock(mutex_);
    finish_ = std::move(finish);
  }
  goOn(root_);
}

void kvl::detail::TaskScope::arrive(std::coroutine_handle<> innermost) {
  home_->async([self = shared_from_this(), innermost] {
    const core::QueuedDelivery queued;
    self->goOn(innermost);
  });
}

// A task that awaits another and one that ends come back here rather than resume each other, so
// that no number of them piles up on the stack.
void kvl::detail::TaskScope::goOn(std::coroutine_handle<> innermost) noexcept {
  {
    const MutexLock lock(mutex_);
    if (phase_ == Phase::over) return;  // nobody may touch the frame any more
    if (phase_ == Phase::running) {
      arrived_ = innermost;
      return;
    }
    phase_ = Phase::running;
    next_ = innermost;
  }
  while (const auto coroutine = takeNext()) coroutine.resume();
  settle();
}

std::coroutine_handle<> kvl::detail::TaskScope::takeNext() noexcept {
  const MutexLock lock(mutex_);
  return std::exchange(next_, nullptr);
}

void kvl::detail::TaskScope::settle() noexcept {
  MutexLock lock(mutex_);
  if (root_.done() || letGo_) {
    phase_ = Phase::over;
    const bool isWanted = !letGo_;
    const auto finish = std::exchange(finish_, nullptr);
    lock.unlock();
    return isWanted ? finish() : root_.destroy();
  }
  phase_ = Phase::suspended;
  const auto arrived = std::exchange(arrived_, nullptr);
  lock.unlock();
  if (arrived) arrive(arrived);
}

void kvl::detail::TaskScope::letGo() noexcept {
  std::function<void()> finish;
  {
    const MutexLock lock(mutex_);
    if (phase_ == Phase::over) return;
    if (phase_ == Phase::running) {
      letGo_ = true;
      return;
    }
    phase_ = Phase::over;
    finish.swap(finish_);
  }
  root_.destroy();
}

bool kvl::detail::TaskScope::isOver() const noexcept {
  const MutexLock lock(mutex_);
  return phase_ == Phase::over;
}

void kvl::detail::TaskScope::runNext(std::coroutine_handle<> coroutine) noexcept {
  const MutexLock lock(mutex_);
  if (!letGo_) next_ = coroutine;
}

bool kvl::detail::TaskScope::isLetGo() const noexcept {
  const MutexLock lock(mutex_);
  return letGo_;
}

void kvl::detail::serveMainQueueUntil(Semaphore& semaphore) {
  dispatch::serveMainLoopUntilFree(semaphore);
}
