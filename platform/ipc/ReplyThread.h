// The thread on which every handler of the notary's channel runs.
#pragma once

#include "platform/core/NoDestructor.h"

#include <local/platform/Mutex.h>

#include <chrono>
#include <deque>
#include <functional>
#include <memory>

typedef struct _GMainContext GMainContext;
typedef struct _GSource GSource;

namespace kvl::ipc {

// One per process, started on first use and never ended: it waits for events without waking up,
// and nothing has to be joined when the process exits. It runs a main context of its own, which is
// its thread-default one, so that GLib's asynchronous answers arrive here whatever loop the host
// runs. All signals are blocked on it: they belong to the host's threads. Once the process exits,
// it stands still.
//
// A context needs descriptors. As long as the process has none left, blocks run without one: they
// see no thread-default context, and must fail what needs it.
class ReplyThread {
 public:
  using Block = std::function<void()>;

  // Calls its block once when it is due, unless it is destroyed before; never without a context.
  // Only for use on the reply thread.
  class Timer {
   public:
    Timer() = default;
    Timer(std::chrono::milliseconds delay, Block block);

   private:
    struct Cancel {
      void operator()(GSource* source) const noexcept;
    };
    std::unique_ptr<GSource, Cancel> source_;
  };

  [[nodiscard]] static ReplyThread& shared();

  ReplyThread(const ReplyThread&) = delete;
  ReplyThread& operator=(const ReplyThread&) = delete;

  // Runs `block` on the reply thread after all blocks posted before it, never before this call
  // returns on the reply thread itself. May be called from any thread; does not wait.
  void post(Block block);

 private:
  friend class NoDestructor<ReplyThread>;

  ReplyThread() = default;
  ~ReplyThread() = delete;

  // Comes back later when the system has no thread to give.
  void start() KVL_REQUIRES(mutex_);
  void run();
  void runUntilThereIsAContext();
  [[nodiscard]] bool makeContext() KVL_REQUIRES(mutex_);
  void runPostedBlocks();

  Mutex mutex_;
  Condition posted_;
  std::deque<Block> blocks_ KVL_GUARDED_BY(mutex_);
  bool isStarted_ KVL_GUARDED_BY(mutex_) = false;
  GSource* wakeUp_ KVL_GUARDED_BY(mutex_) = nullptr;
  GMainContext* context_ = nullptr;  // the thread's own
};

}  // namespace kvl::ipc
