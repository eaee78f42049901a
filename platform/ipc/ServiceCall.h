// The life of one call to a service.
#pragma once

#include "platform/ipc/CallTransport.h"
#include "platform/ipc/ChannelErrors.h"
#include "platform/ipc/ReplyThread.h"
#include "platform/ipc/ServiceConnection.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace kvl::ipc {

// Sees to it that a call ends once: with the transport's outcome, at its time limit or by being
// invalidated, whatever comes first. How the request travels is the transport's business.
//
// States: idle (not started), running, suspended, invalid. While idle or suspended nothing is sent,
// and an outcome waits for `start` or `invalidate`.
//
// Lives on the reply thread: made anywhere, used and destroyed there only, hence without locks. It
// keeps itself alive while the transport works.
class ServiceCall : public std::enable_shared_from_this<ServiceCall> {
 public:
  struct Handlers {
    ServiceConnection::ErrorHandler error;
    ServiceConnection::ReplyHandler reply;
  };

  ServiceCall(std::string serviceName, std::shared_ptr<CallTransport> transport,
              std::chrono::milliseconds timeLimit);
  ~ServiceCall();
  ServiceCall(const ServiceCall&) = delete;
  ServiceCall& operator=(const ServiceCall&) = delete;

  void setInterruptionHandler(ServiceConnection::Handler handler);
  void setInvalidationHandler(ServiceConnection::Handler handler);
  void start();
  void suspend();
  // Exactly one of the two handlers runs; a second request is refused.
  void send(ServiceRequest request, Handlers handlers);
  void invalidate();
  // Nobody is left who could start or resume the call: one that waits for that ends.
  void abandon();

 private:
  void beginIfPossible();
  void conclude(CallOutcome outcome);
  void fail(Error error);
  void deliver(CallOutcome outcome);
  void becomeInvalid();

  const ChannelErrors errors_;
  const std::shared_ptr<CallTransport> transport_;
  const std::chrono::milliseconds timeLimit_;

  ServiceConnection::Handler interruptionHandler_;
  ServiceConnection::Handler invalidationHandler_;
  bool running_ = false;
  bool invalid_ = false;
  bool used_ = false;
  ServiceRequest request_;            // until the transport has it
  std::optional<Handlers> handlers_;  // from `send` until one of them runs
  std::optional<CallOutcome> held_;   // arrived while suspended

  std::shared_ptr<ServiceCall> working_;  // this object, from sending to the outcome
  ReplyThread::Timer deadline_;
};

}  // namespace kvl::ipc
