// One thread that makes blocking GLib calls for callers that cannot wait for ever.
#pragma once

#include "platform/security/KeyStore.h"

#include <local/platform/Mutex.h>

#include <gio/gio.h>

#include <chrono>
#include <deque>
#include <functional>
#include <thread>
#include <utility>

namespace kvl::security {

class DeadlineWorker {
 public:
  // Runs on the worker's thread, whose GMainContext is the thread-default one. It shall return soon
  // after the cancellable is cancelled, and may outlive the call of `run` that brought it: it must
  // own what it uses.
  using Job = std::function<Status(GCancellable*)>;

  static constexpr std::chrono::seconds kIdleTime{5};

  // Once there has been no job for that long, its thread calls `whenIdle`, which gives up what jobs
  // have left for later ones.
  explicit DeadlineWorker(std::chrono::nanoseconds idleTime = kIdleTime,
                          std::function<void()> whenIdle = nullptr)
      : idleTime_(idleTime), whenIdle_(std::move(whenIdle)) {}
  // Cancels the job that runs and waits for it.
  ~DeadlineWorker();
  DeadlineWorker(const DeadlineWorker&) = delete;
  DeadlineWorker& operator=(const DeadlineWorker&) = delete;

  // Jobs run one after another. errSecNotAvailable when the job has not ended by the deadline: it
  // is cancelled, or never begun when its turn has not come. errSecInternalComponent when the
  // system has no descriptors or threads left for it. The thread starts with the first job.
  //
  // `afterwards` runs once a job has succeeded and its caller heard so. Nobody waits for it but the
  // next job, so it must end soon even when nobody cancels it.
  [[nodiscard]] Status run(Job job, Deadline deadline, Job afterwards = nullptr);

  // Nobody waits for `job`. A caller of `run` waits for it with its own job, and cancels it at its
  // deadline.
  void prepare(Job job);

 private:
  struct Task;

  [[nodiscard]] bool enqueue(const std::shared_ptr<Task>& task) KVL_REQUIRES(mutex_);
  [[nodiscard]] bool ensureThread() KVL_REQUIRES(mutex_);
  void serve();
  [[nodiscard]] bool waitIdly(MutexLock& lock) KVL_REQUIRES(mutex_);
  [[nodiscard]] bool waitForTask(MutexLock& lock) KVL_REQUIRES(mutex_);
  void perform(Task& task, GMainContext* context);
  void performAfterwards(Task& task, GMainContext* context);

  const std::chrono::nanoseconds idleTime_;
  const std::function<void()> whenIdle_;
  Mutex mutex_;
  Condition changed_;
  std::deque<std::shared_ptr<Task>> waiting_ KVL_GUARDED_BY(mutex_);
  std::shared_ptr<Task> current_ KVL_GUARDED_BY(mutex_);
  bool ending_ KVL_GUARDED_BY(mutex_) = false;
  std::thread thread_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::security
