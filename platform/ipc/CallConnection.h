// A service connection whose call a transport carries.
#pragma once

#include "platform/ipc/CallTransport.h"
#include "platform/ipc/ServiceCall.h"
#include "platform/ipc/ServiceConnection.h"

#include <chrono>
#include <memory>
#include <string>

namespace kvl::ipc {

// Hands every operation to the reply thread, in the order of the calls, and touches nothing itself.
// Hence operations may be called from any thread and inside any handler, and an operation called
// inside a handler takes effect after that handler. Dropping the connection lets an outstanding
// call end as usual; a call that waits for a start that can no longer come ends with 4099.
class CallConnection final : public ServiceConnection {
 public:
  CallConnection(const std::string& serviceName, std::shared_ptr<CallTransport> transport,
                 std::chrono::milliseconds replyTimeLimit);
  ~CallConnection() override;

  void setInterruptionHandler(Handler handler) override;
  void setInvalidationHandler(Handler handler) override;
  void activate() override;
  void resume() override;
  void sendNotary(const std::optional<std::string>& path, const Dictionary& request,
                  ErrorHandler errorHandler, ReplyHandler replyHandler) override;
  void suspend() override;
  void invalidate() override;
  void post(Handler block) override;

 private:
  // Constant; only the reply thread looks inside.
  std::shared_ptr<ServiceCall> call_;
};

}  // namespace kvl::ipc
