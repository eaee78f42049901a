// Writes down what the handlers of a connection are told.
#pragma once

#include "platform/ipc/ServiceConnection.h"

#include <local/platform/Error.h>
#include <local/platform/Value.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace kvltest {

// The handlers that it gives out keep it alive.
class CallRecorder : public std::enable_shared_from_this<CallRecorder> {
 public:
  [[nodiscard]] static std::shared_ptr<CallRecorder> create() {
    return std::make_shared<CallRecorder>();
  }

  // Installs all handlers and sends. `during` runs inside the handler that ends the call.
  void send(kvl::ipc::ServiceConnection& connection, const std::optional<std::string>& path,
            const kvl::Dictionary& request, const std::function<void()>& during = {});

  // Blocks until the call has ended.
  void waitForEnd();
  // Blocks until `count` handlers have run; false when that takes too long.
  [[nodiscard]] bool waitForEvents(std::size_t count);

  // "reply", "error", "interruption" and "invalidation", in the order of the calls.
  [[nodiscard]] std::vector<std::string> events() const;
  [[nodiscard]] std::optional<kvl::Error> channelError() const;
  [[nodiscard]] std::optional<kvl::Dictionary> reply() const;
  [[nodiscard]] std::optional<kvl::Error> replyError() const;
  [[nodiscard]] std::vector<std::thread::id> threads() const;

 private:
  void note(const std::string& event, const std::function<void()>& more = {});
  [[nodiscard]] kvl::ipc::ServiceConnection::Handler noting(const std::string& event);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  // Protected by mutex_.
  std::vector<std::string> events_;
  std::vector<std::thread::id> threads_;
  std::optional<kvl::Error> channelError_;
  std::optional<kvl::Dictionary> reply_;
  std::optional<kvl::Error> replyError_;
  bool ended_ = false;
};

}  // namespace kvltest
