#include "platform/urlloading/IOThreads.h"

#include "platform/core/NoDestructor.h"
#include "platform/core/ProcessExit.h"
#include "platform/core/Threads.h"

#include <local/platform/Mutex.h>

#include <openssl/crypto.h>

#include <utility>
#include <vector>

namespace kvl::urlloading {
namespace {

struct Owners {
  Mutex mutex;
  std::vector<std::weak_ptr<Abandonable>> running KVL_GUARDED_BY(mutex);
  std::vector<std::shared_ptr<Abandonable>> abandoned KVL_GUARDED_BY(mutex);
};

Owners& owners() {
  static NoDestructor<Owners> instance;
  return *instance;
}

// OpenSSL frees its tables at exit, under the hands of any thread that still uses them.
void abandonAll() {
  Owners& all = owners();
  MutexLock lock(all.mutex);
  const auto running = std::exchange(all.running, {});
  lock.unlock();
  // What was under way stays reachable: its handlers must not be destroyed while the host exits.
  std::vector<std::shared_ptr<Abandonable>> abandoned;
  for (const auto& owner : running) {
    if (auto held = owner.lock()) abandoned.push_back(std::move(held));
  }
  for (const auto& held : abandoned) held->abandon();
  lock.lock();
  all.abandoned = std::move(abandoned);
}

bool registerOwner(const std::shared_ptr<Abandonable>& owner) {
  static const bool registered = (core::addExitStep(abandonAll), true);
  static_cast<void>(registered);
  core::prepareForExit();
  Owners& all = owners();
  const MutexLock lock(all.mutex);
  if (core::isExiting()) return false;
  std::erase_if(all.running, [](const auto& other) { return other.expired(); });
  all.running.push_back(owner);
  return true;
}

}  // namespace

bool startIOThread(const std::shared_ptr<Abandonable>& owner, std::function<void()> body) {
  if (!registerOwner(owner)) return false;
  return core::startThread("korvale.io", [body = std::move(body)]() mutable {
    const core::LibraryUse untilTheEnd;
    if (!untilTheEnd) return;
    body();
    body = nullptr;
    OPENSSL_thread_stop();
  });
}

}  // namespace kvl::urlloading
