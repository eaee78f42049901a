#include "platform/ipc/ReplyThread.h"

#include "platform/core/BlockedSignals.h"

#include <glib.h>
#include <signal.h>

#include <utility>

namespace kvl::ipc {
namespace {

gboolean dispatch(GSource* source, GSourceFunc callback, gpointer data) {
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

gboolean fire(gpointer data) {
  (*static_cast<ReplyThread::Block*>(data))();
  return G_SOURCE_REMOVE;
}

void destroyBlock(gpointer data) {
  delete static_cast<ReplyThread::Block*>(data);
}

}  // namespace

ReplyThread::Timer::Timer(std::chrono::milliseconds delay, Block block)
    : source_(g_timeout_source_new(static_cast<guint>(delay.count()))) {
  g_source_set_callback(source_.get(), fire, new Block(std::move(block)), destroyBlock);
  g_source_attach(source_.get(), g_main_context_get_thread_default());
}

void ReplyThread::Timer::Cancel::operator()(GSource* source) const noexcept {
  g_source_destroy(source);
  g_source_unref(source);
}

ReplyThread& ReplyThread::shared() {
  static NoDestructor<ReplyThread> thread;
  return *thread;
}

ReplyThread::ReplyThread() : context_(g_main_context_new()), wakeUp_(makeWakeUpSource()) {
  g_source_set_callback(
      wakeUp_,
      [](gpointer self) -> gboolean {
        static_cast<ReplyThread*>(self)->runPostedBlocks();
        return G_SOURCE_CONTINUE;
      },
      this, nullptr);
  g_source_attach(wakeUp_, context_);

  core::BlockedSignals inherited;
  g_thread_unref(g_thread_new(
      "kvl-reply",
      [](gpointer self) -> gpointer {
        static_cast<ReplyThread*>(self)->run();
        return nullptr;
      },
      this));
}

void ReplyThread::run() {
  g_main_context_push_thread_default(context_);
  while (true) g_main_context_iteration(context_, TRUE);
}

void ReplyThread::post(Block block) {
  {
    const MutexLock lock(mutex_);
    blocks_.push_back(std::move(block));
  }
  g_source_set_ready_time(wakeUp_, 0);
}

void ReplyThread::runPostedBlocks() {
  std::deque<Block> blocks;
  {
    const MutexLock lock(mutex_);
    blocks.swap(blocks_);
  }
  while (!blocks.empty()) {
    blocks.front()();
    blocks.pop_front();  // a block's captures go before the next block runs
  }
}

}  // namespace kvl::ipc
