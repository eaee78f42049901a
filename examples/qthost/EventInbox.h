// Where events wait for the GUI thread.
#pragma once

#include <local/KVLSession.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace qthost {

// Receives a session's events on the framework's queue. However fast they come, the GUI thread is
// called once for many, and no more than the latest are kept for it.
class EventInbox : public KVLSessionDelegate {
 public:
  using Events = std::deque<std::shared_ptr<KVLEvent>>;

  static constexpr std::size_t kMostKept = 1000;

  // `arrived` is called on the framework's queue when there is something to take and nothing was.
  explicit EventInbox(std::function<void()> arrived);

  void eventStream(KVLSession& session,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override;
  void add(const std::vector<std::shared_ptr<KVLEvent>>& events);

  // What has come since the last time. Any thread.
  [[nodiscard]] Events take();

 private:
  const std::function<void()> arrived_;
  std::mutex mutex_;
  Events events_;  // protected by mutex_
};

}  // namespace qthost
