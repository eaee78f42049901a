#include "platform/ipc/ServiceCall.h"

#include <utility>

namespace kvl::ipc {

ServiceCall::ServiceCall(std::string serviceName, std::shared_ptr<CallTransport> transport,
                         std::chrono::milliseconds timeLimit)
    : errors_(std::move(serviceName)), transport_(std::move(transport)), timeLimit_(timeLimit) {}

ServiceCall::~ServiceCall() = default;

void ServiceCall::setInterruptionHandler(ServiceConnection::Handler handler) {
  interruptionHandler_ = std::move(handler);
}

void ServiceCall::setInvalidationHandler(ServiceConnection::Handler handler) {
  invalidationHandler_ = std::move(handler);
}

void ServiceCall::start() {
  running_ = true;
  if (held_) return deliver(*std::exchange(held_, std::nullopt));
  beginIfPossible();
}

void ServiceCall::suspend() {
  running_ = false;
}

void ServiceCall::send(ServiceRequest request, Handlers handlers) {
  if (invalid_) return handlers.error(errors_.invalidated());
  if (used_) return handlers.error(errors_.alreadyUsed());
  used_ = true;
  request_ = std::move(request);
  handlers_ = std::move(handlers);
  beginIfPossible();
}

void ServiceCall::invalidate() {
  running_ = true;  // a suspended call tells its end too
  held_.reset();
  if (handlers_) return fail(errors_.invalidated());
  becomeInvalid();
}

void ServiceCall::abandon() {
  if (handlers_ && !running_) invalidate();
}

void ServiceCall::beginIfPossible() {
  if (!running_ || !handlers_ || working_) return;
  const auto keptAlive = shared_from_this();  // in case that the answer comes at once
  working_ = keptAlive;
  const std::weak_ptr<ServiceCall> weak = keptAlive;
  deadline_ = ReplyThread::Timer(timeLimit_, [weak] {
    if (const auto self = weak.lock()) self->fail(self->errors_.timedOut());
  });
  transport_->send(std::exchange(request_, {}), [weak](CallOutcome outcome) {
    const auto self = weak.lock();
    if (self && self->working_) self->conclude(std::move(outcome));
  });
}

void ServiceCall::fail(Error error) {
  conclude({std::move(error), {}});
}

void ServiceCall::conclude(CallOutcome outcome) {
  const auto keptAlive = std::exchange(working_, nullptr);
  deadline_ = {};
  transport_->cancel();
  if (running_) return deliver(std::move(outcome));
  held_ = std::move(outcome);
}

// Handlers are taken out before they run: whatever they hold, this call included, goes with them.
void ServiceCall::deliver(CallOutcome outcome) {
  const auto keptAlive = shared_from_this();
  const Handlers handlers = *std::exchange(handlers_, std::nullopt);
  const auto interruptionHandler = std::exchange(interruptionHandler_, nullptr);
  if (!outcome.failure) {
    return handlers.reply(std::move(outcome.reply.entries), std::move(outcome.reply.error));
  }
  const Error& failure = *outcome.failure;
  if (failure.is(NSCocoaErrorDomain, NSXPCConnectionInterrupted) && interruptionHandler) {
    interruptionHandler();
  }
  handlers.error(failure);
  if (failure.is(NSCocoaErrorDomain, NSXPCConnectionInvalid)) becomeInvalid();
}

void ServiceCall::becomeInvalid() {
  if (std::exchange(invalid_, true)) return;
  interruptionHandler_ = nullptr;
  if (const auto handler = std::exchange(invalidationHandler_, nullptr)) handler();
}

}  // namespace kvl::ipc
