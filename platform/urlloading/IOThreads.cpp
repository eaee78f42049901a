#include "platform/urlloading/IOThreads.h"

#include "platform/core/BlockedSignals.h"

#include <openssl/crypto.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace kvl::urlloading {
namespace {

// A thread is at most in one step of libcurl when it is told to end.
constexpr std::chrono::seconds kParkingTime{2};

struct Threads {
  std::mutex mutex;
  std::condition_variable ended;
  std::vector<std::weak_ptr<Abandonable>> owners;
  std::vector<std::shared_ptr<Abandonable>> parked;
  std::size_t running = 0;
  bool exiting = false;
  pid_t process = getpid();
};

// Never destroyed: threads outlive static objects.
Threads& threads() {
  static auto* const instance = new Threads;
  return *instance;
}

// OpenSSL frees its tables at exit, under the hands of any thread that still uses them.
void parkAll() {
  Threads& all = threads();
  if (all.process != getpid()) return;  // a forked child has none of the threads
  std::unique_lock lock(all.mutex);
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
  all.ended.wait_for(lock, kParkingTime, [&all] { return all.running == 0; });
}

bool enlist(const std::shared_ptr<Abandonable>& owner) {
  Threads& all = threads();
  static const bool registered = std::atexit(parkAll) == 0;
  std::lock_guard lock(all.mutex);
  if (!registered || all.exiting) return false;
  std::erase_if(all.owners, [](const auto& other) { return other.expired(); });
  all.owners.push_back(owner);
  ++all.running;
  return true;
}

void discharge() {
  Threads& all = threads();
  std::lock_guard lock(all.mutex);
  --all.running;
  all.ended.notify_all();
}

}  // namespace

bool startIOThread(const std::shared_ptr<Abandonable>& owner, std::function<void()> body) {
  if (!enlist(owner)) return false;
  const core::BlockedSignals inheritedByTheThread;
  try {
    std::thread([body = std::move(body)]() mutable {
      body();
      body = nullptr;
      OPENSSL_thread_stop();
      discharge();
    }).detach();
    return true;
  } catch (const std::system_error&) {
    discharge();
    return false;
  }
}

}  // namespace kvl::urlloading
