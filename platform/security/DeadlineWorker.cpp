#include "platform/security/DeadlineWorker.h"

#include "platform/core/BlockedSignals.h"
#include "platform/core/Threads.h"
#include "platform/security/GLibPointers.h"

#include <pthread.h>

#include <algorithm>
#include <utility>

namespace kvl::security {
namespace {

// Those of the objects that a job used, which would otherwise pile up.
void takeSignals(GMainContext* context) {
  while (g_main_context_iteration(context, FALSE)) {
  }
}

}  // namespace

struct DeadlineWorker::Task {
  Job job;
  Job afterwards;
  ObjectPtr<GCancellable> cancellable{g_cancellable_new()};
  Status status = errSecNotAvailable;
  bool isAwaited = true;
  bool ended = false;  // guarded by the worker's mutex
};

DeadlineWorker::~DeadlineWorker() {
  {
    const MutexLock lock(mutex_);
    ending_ = true;
    waiting_.clear();
    if (current_) g_cancellable_cancel(current_->cancellable.get());
  }
  changed_.notifyAll();
  if (thread_.joinable()) thread_.join();
}

bool DeadlineWorker::ensureThread() {
  if (thread_.joinable()) return true;
  const core::BlockedSignals inheritedByTheThread;
  try {
    thread_ = std::thread(&DeadlineWorker::serve, this);
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

bool DeadlineWorker::enqueue(const std::shared_ptr<Task>& task) {
  waiting_.push_back(task);
  if (!ensureThread()) {
    std::erase(waiting_, task);
    return false;
  }
  changed_.notifyAll();
  return true;
}

void DeadlineWorker::prepare(Job job) {
  if (!core::hasSpareDescriptors() || !core::hasSpareThread()) return;
  const auto task = std::make_shared<Task>();
  task->job = std::move(job);
  task->isAwaited = false;
  const MutexLock lock(mutex_);
  static_cast<void>(enqueue(task));
}

Status DeadlineWorker::run(Job job, Deadline deadline, Job afterwards) {
  // GLib ends the process when it gets no descriptor or thread.
  if (!core::hasSpareDescriptors() || !core::hasSpareThread()) return errSecInternalComponent;
  const auto task = std::make_shared<Task>();
  task->job = std::move(job);
  task->afterwards = std::move(afterwards);
  {
    MutexLock lock(mutex_);
    if (!enqueue(task)) return errSecInternalComponent;
    while (!task->ended && changed_.waitUntil(lock, deadline)) {
    }
    if (task->ended) return task->status;
    std::erase(waiting_, task);
    if (current_ && !current_->isAwaited) g_cancellable_cancel(current_->cancellable.get());
  }
  g_cancellable_cancel(task->cancellable.get());
  return errSecNotAvailable;
}

// Whether there has been no task for long, and will be some.
bool DeadlineWorker::waitIdly(MutexLock& lock) {
  const auto deadline = std::chrono::steady_clock::now() + idleTime_;
  while (!ending_ && waiting_.empty() && changed_.waitUntil(lock, deadline)) {
  }
  return !ending_ && waiting_.empty();
}

// False when there will be none.
bool DeadlineWorker::waitForTask(MutexLock& lock) {
  while (!ending_ && waiting_.empty()) changed_.wait(lock);
  return !ending_;
}

void DeadlineWorker::serve() {
  pthread_setname_np(pthread_self(), "kvl-keystore");
  const GLibPtr<GMainContext> context(g_main_context_new());
  g_main_context_push_thread_default(context.get());
  MutexLock lock(mutex_);
  while (true) {
    if (waitIdly(lock) && whenIdle_) {
      lock.unlock();
      whenIdle_();
      takeSignals(context.get());
      lock.lock();
    }
    if (!waitForTask(lock)) break;
    current_ = std::move(waiting_.front());
    waiting_.pop_front();
    const std::shared_ptr<Task> task = current_;
    lock.unlock();
    perform(*task, context.get());
    lock.lock();
    task->ended = true;
    changed_.notifyAll();
    lock.unlock();
    performAfterwards(*task, context.get());
    lock.lock();
    current_.reset();
  }
  lock.unlock();
  g_main_context_pop_thread_default(context.get());
}

void DeadlineWorker::perform(Task& task, GMainContext* context) {
  task.status = task.job(task.cancellable.get());
  task.job = nullptr;
  takeSignals(context);
}

void DeadlineWorker::performAfterwards(Task& task, GMainContext* context) {
  const Job afterwards = std::exchange(task.afterwards, nullptr);
  if (!afterwards || task.status != kSuccess) return;
  afterwards(task.cancellable.get());
  takeSignals(context);
}

}  // namespace kvl::security
