/// @file
/// Tasks: coroutines that begin, wait and go away in good order.
#pragma once

#include <local/platform/DispatchQueue.h>
#include <local/platform/Export.h>
#include <local/platform/Mutex.h>
#include <local/platform/Semaphore.h>

#include <concepts>
#include <coroutine>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace kvl {

template <class T>
class Task;

namespace detail {

// What a started task shares with the tasks that it awaits and with the operations that they wait
// for. Whoever goes on or goes away asks here first, so that no frame is touched after its end.
class KVL_EXPORT TaskScope final : public std::enable_shared_from_this<TaskScope> {
 public:
  TaskScope(std::coroutine_handle<> root, std::shared_ptr<DispatchQueue> home) noexcept;
  ~TaskScope();
  TaskScope(const TaskScope&) = delete;
  TaskScope& operator=(const TaskScope&) = delete;

  // Runs the root on this thread up to its first wait. `finish` is called at its end unless it has
  // been let go of, and then has the root's frame to destroy.
  void start(std::function<void()> finish) noexcept;
  // What `innermost` waits for is there: it goes on at home. Any thread.
  void arrive(std::coroutine_handle<> innermost);
  // Ends the task: at once where it waits, else where it stops next. Any thread, never waits.
  void letGo() noexcept;
  [[nodiscard]] bool isOver() const noexcept;

  // For the frame that runs: what runs once it has stopped, and whether it should stop for good.
  void runNext(std::coroutine_handle<> coroutine) noexcept;
  [[nodiscard]] bool isLetGo() const noexcept;

 private:
  enum class Phase : unsigned char { suspended, running, over };

  KVL_INTERNAL void goOn(std::coroutine_handle<> innermost) noexcept;
  [[nodiscard]] KVL_INTERNAL std::coroutine_handle<> takeNext() noexcept;
  KVL_INTERNAL void settle() noexcept;

  const std::coroutine_handle<> root_;
  const std::shared_ptr<DispatchQueue> home_;
  mutable Mutex mutex_;
  Phase phase_ KVL_GUARDED_BY(mutex_) = Phase::suspended;
  bool letGo_ KVL_GUARDED_BY(mutex_) = false;
  std::coroutine_handle<> next_ KVL_GUARDED_BY(mutex_);
  // Has what it waits for, while the thread that began the wait is still on its way out.
  std::coroutine_handle<> arrived_ KVL_GUARDED_BY(mutex_);
  std::function<void()> finish_ KVL_GUARDED_BY(mutex_);
};

// Serves the main queue until the semaphore is free.
KVL_EXPORT void serveMainQueueUntil(Semaphore& semaphore);

// An operation that a task can await: it goes on through the scope, and ends when its frame does.
template <class Operation>
concept ScopedOperation = requires(Operation& operation, const std::shared_ptr<TaskScope>& scope) {
  operation.waitIn(scope);
};

template <class T>
class TaskPromise;

// Owns the frame of a task that has not been started, or that another task awaits.
template <class T>
class TaskFrame {
 public:
  using Handle = std::coroutine_handle<TaskPromise<T>>;

  explicit TaskFrame(Handle handle) noexcept : handle_(handle) {}
  TaskFrame(TaskFrame&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  TaskFrame& operator=(TaskFrame&& other) noexcept {
    if (this != &other) destroy(std::exchange(handle_, std::exchange(other.handle_, nullptr)));
    return *this;
  }
  ~TaskFrame() { destroy(handle_); }

  [[nodiscard]] Handle get() const noexcept { return handle_; }
  [[nodiscard]] Handle release() noexcept { return std::exchange(handle_, nullptr); }
  void reset() noexcept { destroy(release()); }

 private:
  static void destroy(Handle handle) noexcept {
    if (handle) handle.destroy();
  }
  Handle handle_;
};

// What `co_await` makes of a task.
template <class T>
class TaskAwaiter {
 public:
  TaskAwaiter(TaskFrame<T> frame, TaskScope& scope) noexcept
      : frame_(std::move(frame)), scope_(&scope) {}

  [[nodiscard]] bool await_ready() const noexcept { return false; }
  void await_suspend(std::coroutine_handle<> awaiting) noexcept {
    frame_.get().promise().enter(*scope_, awaiting);
    scope_->runNext(frame_.get());
  }
  T await_resume() { return frame_.get().promise().take(); }

 private:
  TaskFrame<T> frame_;
  TaskScope* scope_;
};

// Refers to an operation, which g++ 12 would copy; it lives as long as the expression that awaits.
template <class Operation>
class OperationAwaiter {
 public:
  explicit OperationAwaiter(Operation& operation) noexcept : operation_(&operation) {}

  [[nodiscard]] bool await_ready() const noexcept { return false; }
  auto await_suspend(std::coroutine_handle<> awaiting) {
    return operation_->await_suspend(awaiting);
  }
  decltype(auto) await_resume() { return operation_->await_resume(); }

 private:
  Operation* operation_;
};

class TaskPromiseBase {
 public:
  struct AtTheEnd {
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    template <class Promise>
    void await_suspend(std::coroutine_handle<Promise> ended) const noexcept {
      ended.promise().leave();
    }
    void await_resume() const noexcept {}
  };

  [[nodiscard]] std::suspend_always initial_suspend() const noexcept { return {}; }
  [[nodiscard]] AtTheEnd final_suspend() const noexcept { return {}; }
  void unhandled_exception() noexcept {
    if (!awaiting_) std::terminate();  // nobody is there to catch it, as with blocks
    exception_ = std::current_exception();
  }

  template <class U>
  [[nodiscard]] TaskAwaiter<U> await_transform(Task<U>&& task) noexcept {
    return TaskAwaiter<U>(std::move(task).releaseFrame(), *scope_);
  }
  template <class Operation>
    requires ScopedOperation<Operation>
  [[nodiscard]] auto await_transform(Operation&& operation) {
    operation.waitIn(scope_->shared_from_this());
    return OperationAwaiter<std::remove_reference_t<Operation>>(operation);
  }

  void enter(TaskScope& scope, std::coroutine_handle<> awaiting) noexcept {
    scope_ = &scope;
    awaiting_ = awaiting;
  }
  void leave() noexcept {
    if (awaiting_) scope_->runNext(awaiting_);
  }

 protected:
  void rethrow() const {
    if (exception_) std::rethrow_exception(exception_);
  }

 private:
  TaskScope* scope_ = nullptr;  // outlives its frames
  std::coroutine_handle<> awaiting_;
  std::exception_ptr exception_;
};

template <class T>
class TaskPromise final : public TaskPromiseBase {
 public:
  [[nodiscard]] Task<T> get_return_object() noexcept;
  template <std::convertible_to<T> U>
  void return_value(U&& value) {
    value_.emplace(std::forward<U>(value));
  }
  [[nodiscard]] T take() {
    rethrow();
    return std::move(*value_);
  }

 private:
  std::optional<T> value_;
};

template <>
class TaskPromise<void> final : public TaskPromiseBase {
 public:
  [[nodiscard]] Task<void> get_return_object() noexcept;
  void return_void() const noexcept {}
  void take() const { rethrow(); }
};

template <class T>
struct TaskEnd {
  using Handler = std::function<void(T)>;
};
template <>
struct TaskEnd<void> {
  using Handler = std::function<void()>;
};

}  // namespace detail

/// A coroutine with the result `T` that does nothing until it is started or awaited, and that goes
/// away with this object.
///
/// ```
/// kvl::Task<> show(KVLSession& session) {
///   const auto menu = co_await KVLEncoding::awaitable::jsonFromSession(session, path);
///   ...
/// }
/// auto task = show(*session);
/// task.start();
/// ```
///
/// **What it can await:** other tasks, which then belong to it, and the framework's operations
/// (`KVLEncodingAwait.h`).
///
/// **Thread.** It begins on the thread that starts it. After each wait for an operation it goes on
/// at its *home*: the main queue, which GTK and Qt hosts serve, or the queue given to `on`. What it
/// awaits begins and ends without a change of thread.
///
/// **Life.** Destroying the object cancels the task, on any thread and at any moment:
/// - before it has been started, its frame is destroyed here;
/// - while it waits, its frames are destroyed here and now, the innermost first; what they wait for
///   is cancelled, and a result on its way finds nobody;
/// - while it runs, in its own code below this call or on another thread, it stops at its next
///   `co_await` or at its end, and is destroyed there; this call does not wait;
/// - once it is done, nothing happens.
///
/// **Exceptions** reach the task that awaits. One that leaves a started task ends the process, as
/// with blocks; so does one that leaves `done`.
///
/// While a coroutine runs, the arguments that it took by reference must live: see that they live as
/// long as the task, or take them by value. That goes for the captures of a lambda, too.
template <class T = void>
class [[nodiscard]] Task {
 public:
  /// For the compiler, which asks for it by this name.
  using promise_type = detail::TaskPromise<T>;
  /// Receives the result; of `Task<void>`, nothing.
  using EndHandler = typename detail::TaskEnd<T>::Handler;

  static_assert(!std::is_reference_v<T>, "a task's result is a value");

  /// Leaves the other one without a task.
  Task(Task&& other) noexcept = default;
  /// Cancels what was here first. Leaves the other one without a task.
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      cancel();
      frame_ = std::move(other.frame_);
      home_ = std::move(other.home_);
      scope_ = std::move(other.scope_);
    }
    return *this;
  }
  ~Task() { cancel(); }

  /// Where it goes on after each wait: a serial queue. A task that another one awaits goes on where
  /// that one does. @pre not started
  [[nodiscard]] Task on(std::shared_ptr<DispatchQueue> serialQueue) && {
    home_ = std::move(serialQueue);
    return std::move(*this);
  }

  /// Runs it on this thread up to its first wait. `done` is called once with the result, where the
  /// task ends, unless it is cancelled. The frame has gone by then, and `done` may destroy the
  /// task. @pre not started
  void start(EndHandler done = nullptr) {
    const auto root = frame_.release();
    if (!root) return;
    const auto scope =
        std::make_shared<detail::TaskScope>(root, home_ ? std::move(home_) : DispatchQueue::main());
    scope_ = scope;
    root.promise().enter(*scope, nullptr);
    scope->start([root, handler = std::move(done)] { finish(root, handler); });
  }

  /// Whether it has its beginning left: not once it has been started, awaited, cancelled or moved
  /// from.
  [[nodiscard]] bool canStart() const noexcept { return !!frame_.get(); }

  /// Whether it has ended or been cancelled. One that was cancelled while it ran counts as ended
  /// once it has stopped.
  [[nodiscard]] bool isDone() const noexcept { return scope_ ? scope_->isOver() : !frame_.get(); }

  /// What destroying it does. Any thread once it has been started, several at once, too.
  void cancel() noexcept {
    if (frame_.get()) frame_.reset();
    if (const auto scope = scope_) scope->letGo();
  }

 private:
  friend promise_type;
  friend detail::TaskPromiseBase;

  explicit Task(typename detail::TaskFrame<T>::Handle handle) noexcept : frame_(handle) {}

  // For whoever awaits it. Nothing could ever resume who awaits a task that is started or gone.
  [[nodiscard]] detail::TaskFrame<T> releaseFrame() && noexcept {
    if (!frame_.get()) std::terminate();
    return std::move(frame_);
  }

  static void finish(typename detail::TaskFrame<T>::Handle root, const EndHandler& done) {
    detail::TaskFrame<T> frame(root);
    if constexpr (std::is_void_v<T>) {
      frame.reset();
      if (done) done();
    } else {
      T result = root.promise().take();
      frame.reset();
      if (done) done(std::move(result));
    }
  }

  detail::TaskFrame<T> frame_;
  std::shared_ptr<DispatchQueue> home_;
  std::shared_ptr<detail::TaskScope> scope_;
};

template <class T>
Task<T> detail::TaskPromise<T>::get_return_object() noexcept {
  return Task<T>(std::coroutine_handle<TaskPromise>::from_promise(*this));
}

inline Task<void> detail::TaskPromise<void>::get_return_object() noexcept {
  return Task<void>(std::coroutine_handle<TaskPromise>::from_promise(*this));
}

/// Starts a task and serves the main queue until it is done, for programs without a main loop of
/// their own. @pre the main thread, and no other thread serves GLib's default context
///
/// A task that has been started or cancelled, or moved from, has no beginning left: one without
/// a result is destroyed and this returns at once. One with a result has none to give, which
/// ends the process, as when another task awaits it.
template <class T>
T run(Task<T> task) {
  if constexpr (std::is_void_v<T>) {
    if (!task.canStart()) return;
    Semaphore ended;
    task.start([&ended] { ended.signal(); });
    detail::serveMainQueueUntil(ended);
  } else {
    if (!task.canStart()) std::terminate();
    Semaphore ended;
    std::optional<T> result;
    task.start([&ended, &result](T given) {
      result.emplace(std::move(given));
      ended.signal();
    });
    detail::serveMainQueueUntil(ended);
    return std::move(*result);
  }
}

}  // namespace kvl
