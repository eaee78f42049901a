// What a task waits for, and what the test knows of its frames.
#pragma once

#include <local/platform/Mutex.h>
#include <local/platform/Task.h>

#include <atomic>
#include <coroutine>
#include <functional>
#include <memory>
#include <utility>

namespace kvltest {

// An operation whose outcome the test brings, on any thread.
class Gate {
 public:
  class Wait {
   public:
    explicit Wait(Gate& gate) : gate_(&gate) {}
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;
    ~Wait() {
      if (scope_ && !isOver_) ++gate_->abandoned;
    }
    void waitIn(std::shared_ptr<kvl::detail::TaskScope> scope) { scope_ = std::move(scope); }
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> coroutine) {
      if (scope_->isLetGo()) return;
      ++gate_->begun;
      {
        const kvl::MutexLock lock(gate_->mutex_);
        gate_->scope_ = scope_;
        gate_->coroutine_ = coroutine;
      }
      if (gate_->beforeTheStarterLeaves) gate_->beforeTheStarterLeaves();
    }
    void await_resume() { isOver_ = true; }

   private:
    Gate* gate_;
    std::shared_ptr<kvl::detail::TaskScope> scope_;
    bool isOver_ = false;
  };

  // Awaited by one task at a time.
  [[nodiscard]] Wait opened() { return Wait(*this); }

  void open() {
    std::shared_ptr<kvl::detail::TaskScope> scope;
    std::coroutine_handle<> coroutine;
    {
      const kvl::MutexLock lock(mutex_);
      scope.swap(scope_);
      coroutine = coroutine_;
    }
    if (scope) scope->arrive(coroutine);
  }

  std::function<void()> beforeTheStarterLeaves;
  std::atomic<int> begun = 0;
  std::atomic<int> abandoned = 0;

 private:
  kvl::Mutex mutex_;
  std::shared_ptr<kvl::detail::TaskScope> scope_ KVL_GUARDED_BY(mutex_);
  std::coroutine_handle<> coroutine_ KVL_GUARDED_BY(mutex_);
};

// Counts the frames that hold one.
class CountedFrame {
 public:
  explicit CountedFrame(std::atomic<int>& count) : count_(&count) { ++count; }
  CountedFrame(const CountedFrame&) = delete;
  CountedFrame& operator=(const CountedFrame&) = delete;
  ~CountedFrame() { --*count_; }

 private:
  std::atomic<int>* count_;
};

}  // namespace kvltest
