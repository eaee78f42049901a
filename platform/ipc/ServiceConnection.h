// A request/reply channel to a service on this machine that is looked up by name.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Value.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kvl::ipc {

// One connection, used for one call. All handlers run on the process's reply thread, with no lock
// held; each is set before the connection is started. The connection keeps itself alive until the
// call has ended. No operation blocks.
class ServiceConnection {
 public:
  using Handler = std::function<void()>;
  using ErrorHandler = std::function<void(Error)>;
  // A reply without entries is absent; a service's own error comes with an absent reply.
  using ReplyHandler = std::function<void(std::optional<Dictionary>, std::optional<Error>)>;

  virtual ~ServiceConnection() = default;
  // Runs when the service went away while the call was outstanding.
  virtual void setInterruptionHandler(Handler handler) = 0;
  // Runs once, after `invalidate` or when the channel cannot be made at all.
  virtual void setInvalidationHandler(Handler handler) = 0;
  // Both start the connection; which one a system uses depends on its version.
  virtual void activate() = 0;
  virtual void resume() = 0;
  // `sendNotary:request:withReply:` on the service's object. Exactly one of the two handlers runs,
  // exactly once: `errorHandler` when the channel failed (NSCocoaErrorDomain 4097, 4099 or 4101, or
  // NSPOSIXErrorDomain 60 for a call that nobody answered in time), `replyHandler` for everything
  // that the service said, its own errors included.
  virtual void sendNotary(const std::optional<std::string>& path, const Dictionary& request,
                          ErrorHandler errorHandler, ReplyHandler replyHandler) = 0;
  virtual void suspend() = 0;
  // Closes the connection. A call still outstanding ends with 4099.
  virtual void invalidate() = 0;
  // Runs `block` on the reply thread: for handlers that hand blocking work to another thread, which
  // would hold up the replies of all connections, and finish here. `block` may hold the last
  // reference to the connection, so nothing of it is touched once `block` has been handed over.
  virtual void post(Handler block) = 0;
};

// A notary that takes the call and never answers is given up after this time.
inline constexpr std::chrono::seconds kReplyTimeLimit{120};

using ServiceConnectionFactory =
    std::function<std::shared_ptr<ServiceConnection>(const std::string& serviceName)>;

// A connection over the session bus.
[[nodiscard]] std::shared_ptr<ServiceConnection> makeServiceConnection(
    const std::string& serviceName);

}  // namespace kvl::ipc
