// Threads of our own leave the host's signals to the host's threads.
#pragma once

#include <pthread.h>

#include <csignal>
#include <initializer_list>

namespace kvl::core {

// While it lives, threads that are started inherit a mask that blocks all signals but those that a
// thread's own instructions raise, which a host's crash handler or profiler wants to see.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF}) {
      sigdelset(&blocked, own);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, &previous_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t previous_{};
};

}  // namespace kvl::core
