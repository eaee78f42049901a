// The service connection over the session bus.
#pragma once

#include "platform/ipc/BusChannel.h"
#include "platform/ipc/ServiceConnection.h"

#include <memory>
#include <string>

namespace kvl::ipc {

// A service named "a.b" is the D-Bus name a.b with the object /a/b and the interface a.bProtocol.
//
// Hands every operation to the reply thread, in the order of the calls, and touches nothing itself.
// Hence operations may be called from any thread and inside any handler, and an operation called
// inside a handler takes effect after that handler. Dropping the connection lets an outstanding
// call end as usual; a call that waits for a start that can no longer come ends with 4099.
class BusServiceConnection final : public ServiceConnection {
 public:
  explicit BusServiceConnection(const std::string& serviceName, BusOptions options = {});
  ~BusServiceConnection() override;

  void setInterruptionHandler(Handler handler) override;
  void setInvalidationHandler(Handler handler) override;
  void activate() override;
  void resume() override;
  void sendNotary(const std::optional<std::string>& path, const Dictionary& request,
                  ErrorHandler errorHandler, ReplyHandler replyHandler) override;
  void suspend() override;
  void invalidate() override;

 private:
  // Constant; only the reply thread looks inside.
  std::shared_ptr<BusChannel> channel_;
};

}  // namespace kvl::ipc
