#include "platform/ipc/ReplyThread.h"

#include "platform/core/ProcessExit.h"
#include "platform/core/Threads.h"
#include "platform/dispatch/Timers.h"

#include <glib.h>

#include <utility>

namespace kvl::ipc {
namespace {

gboolean dispatch(GSource* source, GSourceFunc callback, gpointer data) noexcept {
  // Before the blocks run: what is posted meanwhile makes the source ready again.
  g_source_set_ready_time(source, -1);
  return callback(data);
}

// A source that is ready when its ready time says so and at no other moment.
GSourceFuncs wakeUpFunctions() {
  GSourceFuncs functions{};
  functions.dispatch = dispatch;
  return functions;
}

GSource* makeWakeUpSource() {
  static GSourceFuncs functions = wakeUpFunctions();
  return g_source_new(&functions, sizeof(GSource));
}

gboolean fire(gpointer data) noexcept {
  const core::ThreadWork work;
  (*static_cast<ReplyThread::Block*>(data))();
  return G_SOURCE_REMOVE;
}

void destroyBlock(gpointer data) noexcept {
  delete static_cast<ReplyThread::Block*>(data);
}

}  // namespace

ReplyThread::Timer::Timer(std::chrono::milliseconds delay, Block block) {
  GMainContext* const context = g_main_context_get_thread_default();
  if (context == nullptr) return;
  source_.reset(g_timeout_source_new(static_cast<guint>(delay.count())));
  g_source_set_callback(source_.get(), fire, new Block(std::move(block)), destroyBlock);
  g_source_attach(source_.get(), context);
}

void ReplyThread::Timer::Cancel::operator()(GSource* source) const noexcept {
  g_source_destroy(source);
  g_source_unref(source);
}

ReplyThread& ReplyThread::shared() {
  static NoDestructor<ReplyThread> thread;
  return *thread;
}

void ReplyThread::post(Block block) {
  const MutexLock lock(mutex_);
  blocks_.push_back(std::move(block));
  if (!isStarted_) start();
  if (wakeUp_ != nullptr) {
    g_source_set_ready_time(wakeUp_, 0);
  } else {
    posted_.notifyOne();
  }
}

void ReplyThread::start() {
  core::prepareForExit();
  isStarted_ = core::startThread("kvl-reply", [this] { run(); });
  if (isStarted_) return;
  isStarted_ = true;  // by the next attempt
  dispatch::fireAfter(core::kUntilNextTry, [this] {
    const MutexLock lock(mutex_);
    start();
  });
}

void ReplyThread::run() {
  runUntilThereIsAContext();
  g_main_context_push_thread_default(context_);
  while (true) g_main_context_iteration(context_, TRUE);
}

void ReplyThread::runUntilThereIsAContext() {
  MutexLock lock(mutex_);
  while (true) {
    while (blocks_.empty()) posted_.wait(lock);
    if (makeContext()) return;
    lock.unlock();
    runPostedBlocks();
    lock.lock();
  }
}

// GLib ends the process when it gets no descriptor.
bool ReplyThread::makeContext() {
  if (!core::hasSpareDescriptors()) return false;
  context_ = g_main_context_new();
  wakeUp_ = makeWakeUpSource();
  g_source_set_callback(
      wakeUp_,
      [](gpointer self) noexcept -> gboolean {
        static_cast<ReplyThread*>(self)->runPostedBlocks();
        return G_SOURCE_CONTINUE;
      },
      this, nullptr);
  g_source_set_ready_time(wakeUp_, 0);
  g_source_attach(wakeUp_, context_);
  return true;
}

void ReplyThread::runPostedBlocks() {
  std::deque<Block> blocks;
  {
    const MutexLock lock(mutex_);
    blocks.swap(blocks_);
  }
  while (!blocks.empty()) {
    const core::ThreadWork work;
    blocks.front()();
    blocks.pop_front();  // a block's captures go before the next block runs
  }
}

}  // namespace kvl::ipc
