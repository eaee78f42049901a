// The holding back of a session's event stream.
#pragma once

#include <local/platform/Mutex.h>
#include <local/platform/URLSession.h>

#include <memory>
#include <utility>
#include <vector>

namespace kvl::session {

// Every stream that lives is suspended exactly while somebody holds: streams come and go meanwhile,
// and one that is the session's no more would otherwise keep its connection for good. Thread-safe.
class EventHold {
 public:
  // A stream's task, before it starts.
  void add(const std::shared_ptr<DataTask>& task) {
    const RecursiveMutexLock lock(mutex_);
    std::erase_if(streams_, [](const auto& other) { return other.expired(); });
    streams_.push_back(task);
    if (holds_ > 0) task->suspendDelivery();
  }
  // The first suspends and the last resumes.
  void change(bool hold) {
    const RecursiveMutexLock lock(mutex_);
    const int before = std::exchange(holds_, holds_ + (hold ? 1 : -1));
    if (before != (hold ? 0 : 1)) return;
    const auto streams = streams_;  // a task of the host's own class may have another one made
    for (const auto& stream : streams) {
      const auto task = stream.lock();
      if (task) hold ? task->suspendDelivery() : task->resumeDelivery();
    }
  }

 private:
  RecursiveMutex mutex_;
  int holds_ KVL_GUARDED_BY(mutex_) = 0;
  std::vector<std::weak_ptr<DataTask>> streams_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::session
