#include "platform/urlloading/IOThreads.h"

#include "platform/core/BlockedSignals.h"
#include "platform/core/NoDestructor.h"

#include <local/platform/Mutex.h>

#include <openssl/crypto.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace kvl::urlloading {
namespace {

// A thread is at most in one step of libcurl when it is told to end.
constexpr std::chrono::seconds kLongestParking{2};

struct Threads {
  Mutex mutex;
  Condition ended;
  std::vector<std::weak_ptr<Abandonable>> owners KVL_GUARDED_BY(mutex);
  std::vector<std::shared_ptr<Abandonable>> parked KVL_GUARDED_BY(mutex);
  std::size_t running KVL_GUARDED_BY(mutex) = 0;
  bool exiting KVL_GUARDED_BY(mutex) = false;
  const pid_t process = getpid();
};

Threads& threads() {
  static NoDestructor<Threads> instance;
  return *instance;
}

// OpenSSL frees its tables at exit, under the hands of any thread that still uses them.
void parkAll() {
  Threads& all = threads();
  if (all.process != getpid()) return;  // a forked child has none of the threads
  MutexLock lock(all.mutex);
  all.exiting = true;
  const auto owners = std::exchange(all.owners, {});
  lock.unlock();
  // What was under way stays reachable: its handlers must not be destroyed while the host exits.
  std::vector<std::shared_ptr<Abandonable>> parked;
  for (const auto& owner : owners) {
    if (auto held = owner.lock()) parked.push_back(std::move(held));
  }
  for (const auto& held : parked) held->abandon();
  lock.lock();
  all.parked = std::move(parked);
  const auto deadline = std::chrono::steady_clock::now() + kLongestParking;
  while (all.running > 0 && all.ended.waitUntil(lock, deadline)) continue;
}

bool registerThread(const std::shared_ptr<Abandonable>& owner) {
  Threads& all = threads();
  static const bool registered = std::atexit(parkAll) == 0;
  const MutexLock lock(all.mutex);
  if (!registered || all.exiting) return false;
  std::erase_if(all.owners, [](const auto& other) { return other.expired(); });
  all.owners.push_back(owner);
  ++all.running;
  return true;
}

void unregisterThread() {
  Threads& all = threads();
  const MutexLock lock(all.mutex);
  --all.running;
  all.ended.notifyAll();
}

}  // namespace

bool startIOThread(const std::shared_ptr<Abandonable>& owner, std::function<void()> body) {
  if (!registerThread(owner)) return false;
  const core::BlockedSignals inheritedByTheThread;
  try {
    std::thread([body = std::move(body)]() mutable {
      body();
      body = nullptr;
      OPENSSL_thread_stop();
      unregisterThread();
    }).detach();
    return true;
  } catch (const std::system_error&) {
    unregisterThread();
    return false;
  }
}

}  // namespace kvl::urlloading
