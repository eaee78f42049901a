// What the handlers of the development service share.
#pragma once

#include "devservice/service/Feed.h"

#include <local/platform/Mutex.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <set>
#include <string>

namespace devservice {

// Used by many threads. One object lives as long as the service runs.
class ServiceState {
 public:
  ServiceState();

  [[nodiscard]] const std::string& startedAt() const noexcept { return startedAt_; }
  void countRequest() noexcept { ++requests_; }
  [[nodiscard]] std::int64_t requests() const noexcept { return requests_; }

  [[nodiscard]] Feed& feed() noexcept { return feed_; }

  // Waits, but no longer than until the service ends; false when it does.
  [[nodiscard]] bool waitFor(std::chrono::milliseconds time);
  // Waits until so many wait here, this one included; false when the service ends before that.
  [[nodiscard]] bool gather(std::int64_t count);
  // Ends the waits and shuts down the sockets of the streams.
  void end();

  // A response without an end is sent through that socket; one that comes after the end of the
  // service is shut down at once. The socket must be removed before it is closed.
  void addStream(int socket);
  void removeStream(int socket);

 private:
  const std::string startedAt_;
  std::atomic<std::int64_t> requests_{0};
  Feed feed_;
  kvl::Mutex mutex_;
  kvl::Condition ended_;
  bool ending_ KVL_GUARDED_BY(mutex_) = false;
  kvl::Condition gathered_;
  std::int64_t waiting_ KVL_GUARDED_BY(mutex_) = 0;
  std::int64_t gatherings_ KVL_GUARDED_BY(mutex_) = 0;
  std::set<int> streams_ KVL_GUARDED_BY(mutex_);
};

}  // namespace devservice
