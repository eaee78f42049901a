#include "platform/core/ProcessExit.h"

#include "platform/core/NoDestructor.h"
#include "platform/core/ThisThread.h"

#include <local/platform/Mutex.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

namespace kvl::core {
namespace {

// A call into a library ends by itself, be it the reading of a large image. Work may wait for
// anything, since host code is part of it.
constexpr std::chrono::seconds kLongestUse{2};
constexpr std::chrono::milliseconds kLongestWork{100};
constexpr std::chrono::microseconds kPause{200};

struct ExitState {
  const pid_t process = getpid();
  std::atomic<bool> isExiting = false;
  std::atomic<std::int64_t> exitingThread = 0;
  std::atomic<int> works = 0;
  std::atomic<int> uses = 0;
  Mutex mutex;
  std::vector<void (*)()> steps KVL_GUARDED_BY(mutex);
};

ExitState& state() {
  static NoDestructor<ExitState> instance;
  return *instance;
}

thread_local int blocks = 0;
thread_local int ownWorks = 0;
thread_local int ownUses = 0;

bool isExitingThread() {
  return state().exitingThread.load() == thisThread();
}

[[noreturn]] void stayForGood() {
  while (true) pause();
}

void waitUntilNone(const std::atomic<int>& others, int own, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (others.load() > own && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kPause);
  }
}

void takeSteps() {
  MutexLock lock(state().mutex);
  const auto steps = state().steps;
  lock.unlock();
  for (const auto step : steps) step();
}

// A second thread that exits meanwhile stays here: the first one's status counts.
void beginExit() noexcept {
  ExitState& all = state();
  if (all.process != getpid()) return;  // a forked child has none of the threads
  std::int64_t nobody = 0;
  if (!all.exitingThread.compare_exchange_strong(nobody, thisThread())) {
    if (nobody != thisThread()) stayForGood();
    return;
  }
  all.isExiting = true;
  takeSteps();
  waitUntilNone(all.uses, ownUses, kLongestUse);
  waitUntilNone(all.works, ownWorks > 0 ? 1 : 0, kLongestWork);  // nested ones count as one
}

// A thread's own objects go first of all when that thread exits the process. Those of the main
// thread go at no other moment; other threads end as well, but not in the middle of a block.
struct ExitWitness {
  ~ExitWitness() {
    if (isFirstThread() || blocks > 0) beginExit();
  }
  void look() const noexcept {}
};
thread_local const ExitWitness witness;

}  // namespace

bool isExiting() noexcept {
  return state().isExiting.load();
}

void standBeforeStatics() noexcept {
  static_cast<void>(std::atexit(beginExit));
}

void prepareForExit() noexcept {
  static const bool registered = (standBeforeStatics(), true);
  static_cast<void>(registered);
  witness.look();
}

void addExitStep(void (*step)()) noexcept {
  const MutexLock lock(state().mutex);
  state().steps.push_back(step);
}

RunningBlock::RunningBlock() noexcept {
  prepareForExit();
  ++blocks;
}

RunningBlock::~RunningBlock() {
  --blocks;
}

// Counted before the look at the flag, and the exit looks at the count after it has set the flag:
// either the exit waits, or this stops.
ThreadWork::ThreadWork() noexcept {
  if (ownWorks++ > 0) return;
  ExitState& all = state();
  ++all.works;
  if (!all.isExiting || isExitingThread()) return;
  --all.works;
  stayForGood();
}

ThreadWork::~ThreadWork() {
  if (--ownWorks == 0) --state().works;
}

QueuedDelivery::QueuedDelivery() noexcept {
  if (blocks > 0 && !isFirstThread()) work_.emplace();
}

LibraryUse::LibraryUse() noexcept {
  prepareForExit();
  ExitState& all = state();
  ++all.uses;
  ++ownUses;
  isAllowed_ = !all.isExiting;
}

LibraryUse::~LibraryUse() {
  --ownUses;
  --state().uses;
}

}  // namespace kvl::core
