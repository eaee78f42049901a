// Another call in the midst of one, between two of its instructions: what another thread can do.
#pragma once

#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__)
#define KVL_CAN_STEP_THROUGH 1
#endif
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#undef KVL_CAN_STEP_THROUGH  // it holds signals back
#endif
#endif

#ifdef KVL_CAN_STEP_THROUGH
#include <signal.h>
#include <ucontext.h>

#include <cstddef>
#include <functional>

namespace kvltest {

// Runs `call` one instruction at a time on this thread, and `between` before each, with its number.
// What `between` does runs at once.
class StepThrough {
 public:
  using Between = std::function<void(std::size_t step)>;

  StepThrough(const std::function<void()>& call, const Between& between) {
    struct sigaction action{};
    struct sigaction before{};
    action.sa_sigaction = onTrap;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &action, &before);
    steps_ = 0;
    between_ = &between;
    raise(SIGTRAP);
    call();
    between_ = nullptr;
    raise(SIGTRAP);
    sigaction(SIGTRAP, &before, nullptr);
  }

 private:
  // The processor raises the signal behind each instruction as long as the flag is set.
  static void onTrap(int /*signal*/, siginfo_t* /*information*/, void* context) {
    constexpr greg_t kTrapFlag = 0x100;
    greg_t& flags = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL];
    if (between_ == nullptr) {
      flags &= ~kTrapFlag;
      return;
    }
    flags |= kTrapFlag;
    (*between_)(++steps_);
  }

  static inline thread_local const Between* between_ = nullptr;
  static inline thread_local std::size_t steps_ = 0;
};

}  // namespace kvltest
#endif
