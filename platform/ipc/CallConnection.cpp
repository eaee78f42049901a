#include "platform/ipc/CallConnection.h"

#include "platform/ipc/ReplyThread.h"

#include <utility>

namespace kvl::ipc {

CallConnection::CallConnection(const std::string& serviceName,
                               std::shared_ptr<CallTransport> transport,
                               std::chrono::milliseconds replyTimeLimit)
    : call_(std::make_shared<ServiceCall>(serviceName, std::move(transport), replyTimeLimit)) {}

CallConnection::~CallConnection() {
  // Moved, not copied: the last reference must go on the reply thread.
  post([call = std::move(call_)] { call->abandon(); });
}

void CallConnection::setInterruptionHandler(Handler handler) {
  post([call = call_, handler = std::move(handler)]() mutable {
    call->setInterruptionHandler(std::move(handler));
  });
}

void CallConnection::setInvalidationHandler(Handler handler) {
  post([call = call_, handler = std::move(handler)]() mutable {
    call->setInvalidationHandler(std::move(handler));
  });
}

void CallConnection::activate() {
  post([call = call_] { call->start(); });
}

void CallConnection::resume() {
  activate();
}

void CallConnection::sendNotary(const std::optional<std::string>& path, const Dictionary& request,
                                ErrorHandler errorHandler, ReplyHandler replyHandler) {
  post([call = call_, sent = ServiceRequest{path, request},
        handlers =
            ServiceCall::Handlers{std::move(errorHandler), std::move(replyHandler)}]() mutable {
    call->send(std::move(sent), std::move(handlers));
  });
}

void CallConnection::suspend() {
  post([call = call_] { call->suspend(); });
}

void CallConnection::invalidate() {
  post([call = call_] { call->invalidate(); });
}

void CallConnection::post(Handler block) {
  ReplyThread::shared().post(std::move(block));
}

}  // namespace kvl::ipc
