// The requests of a soak: every kind that a host makes, at a steady rate.
#pragma once

#include "tests/soak/Ledger.h"

#include <local/KVLSession.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Mutex.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>

namespace kvltest {

using Random = std::mt19937_64;

// One of `least` to `most`.
[[nodiscard]] std::int64_t oneOf(Random& random, std::int64_t least, std::int64_t most);

// What sends requests has.
struct Sender {
  std::shared_ptr<KVLSession> session;
  std::shared_ptr<Ledger> ledger;
  Random random;
  std::shared_ptr<kvl::DispatchQueue> queue = kvl::DispatchQueue::concurrent("soak");
};

// Sends one request whose outcome goes to the ledger, of a kind that chance decides.
void sendAny(Sender& sender);
// A fetch of what the service says of it.
void sendFetch(const Sender& sender,
               const std::function<void(bool isAnswered)>& completion = nullptr);

// Sends from a thread of its own while it lives. What is under way then goes on.
class Traffic {
 public:
  // `rate`: requests in a second, on average.
  Traffic(Sender sender, double rate);
  ~Traffic();
  Traffic(const Traffic&) = delete;
  Traffic& operator=(const Traffic&) = delete;

  void setPaused(bool isPaused);

 private:
  void run();
  // False at the end.
  [[nodiscard]] bool waitForTurn(std::chrono::nanoseconds time);

  Sender sender_;
  const double rate_;
  kvl::Mutex mutex_;
  kvl::Condition changed_;
  bool isPaused_ KVL_GUARDED_BY(mutex_) = false;
  bool isEnding_ KVL_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace kvltest
