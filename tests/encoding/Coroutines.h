// The smallest coroutine types that a test can do with.
#pragma once

#include <coroutine>
#include <exception>
#include <utility>

namespace kvltest {

struct StartsAtOnce {
  std::suspend_never initial_suspend() noexcept { return {}; }
  void return_void() noexcept {}
  void unhandled_exception() noexcept { std::terminate(); }
};

// A coroutine that its owner destroys, at its end or where it waits.
class Task {
 public:
  struct promise_type : StartsAtOnce {
    Task get_return_object() {
      return Task(std::coroutine_handle<promise_type>::from_promise(*this));
    }
    std::suspend_always final_suspend() noexcept { return {}; }
  };

  Task(Task&& other) noexcept : coroutine_(std::exchange(other.coroutine_, nullptr)) {}
  Task& operator=(Task&& other) = delete;
  ~Task() { destroy(); }

  void destroy() {
    if (const auto coroutine = std::exchange(coroutine_, nullptr)) coroutine.destroy();
  }
  [[nodiscard]] bool done() const { return coroutine_.done(); }

 private:
  explicit Task(std::coroutine_handle<promise_type> coroutine) : coroutine_(coroutine) {}
  std::coroutine_handle<promise_type> coroutine_;
};

// A coroutine that nobody owns: it goes away where it ends.
struct Detached {
  struct promise_type : StartsAtOnce {
    Detached get_return_object() { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
  };
};

// Destroys the coroutine that awaits it.
struct DestroyHere {
  [[nodiscard]] bool await_ready() const noexcept { return false; }
  void await_suspend(std::coroutine_handle<> coroutine) const { coroutine.destroy(); }
  void await_resume() const noexcept {}
};

// Says when the frame that holds it goes away.
class FrameWatch {
 public:
  explicit FrameWatch(bool& gone) : gone_(&gone) {}
  FrameWatch(const FrameWatch&) = delete;
  FrameWatch& operator=(const FrameWatch&) = delete;
  ~FrameWatch() { *gone_ = true; }

 private:
  bool* gone_;
};

}  // namespace kvltest
