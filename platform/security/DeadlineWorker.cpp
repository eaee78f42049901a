#include "platform/security/DeadlineWorker.h"

#include "platform/core/BlockedSignals.h"
#include "platform/security/GLibPointers.h"

#include <algorithm>

namespace kvl::security {

struct DeadlineWorker::Task {
  Job job;
  ObjectPtr<GCancellable> cancellable{g_cancellable_new()};
  Status status = errSecNotAvailable;
  bool ended = false;
};

DeadlineWorker::~DeadlineWorker() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    waiting_.clear();
    if (current_) g_cancellable_cancel(current_->cancellable.get());
  }
  changed_.notify_all();
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

Status DeadlineWorker::run(Job job, Deadline deadline) {
  const auto task = std::make_shared<Task>();
  task->job = std::move(job);
  std::unique_lock lock(mutex_);
  waiting_.push_back(task);
  if (!ensureThread()) {
    std::erase(waiting_, task);
    return errSecNotAvailable;
  }
  changed_.notify_all();
  if (changed_.wait_until(lock, deadline, [&] { return task->ended; })) return task->status;
  std::erase(waiting_, task);
  lock.unlock();
  g_cancellable_cancel(task->cancellable.get());
  return errSecNotAvailable;
}

void DeadlineWorker::serve() {
  const GLibPtr<GMainContext> context(g_main_context_new());
  g_main_context_push_thread_default(context.get());
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [&] { return ending_ || !waiting_.empty(); });
    if (ending_) break;
    current_ = std::move(waiting_.front());
    waiting_.pop_front();
    const std::shared_ptr<Task> task = current_;
    lock.unlock();
    perform(*task);
    // Signals of the objects that the job used would otherwise pile up.
    while (g_main_context_iteration(context.get(), FALSE)) {
    }
    lock.lock();
    current_.reset();
    task->ended = true;
    changed_.notify_all();
  }
  lock.unlock();
  g_main_context_pop_thread_default(context.get());
}

void DeadlineWorker::perform(Task& task) {
  task.status = task.job(task.cancellable.get());
  task.job = nullptr;
}

}  // namespace kvl::security
