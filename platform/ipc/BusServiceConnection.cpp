#include "platform/ipc/BusServiceConnection.h"

#include "platform/ipc/ReplyThread.h"

#include <utility>

namespace kvl::ipc {
namespace {

void post(ReplyThread::Block block) {
  ReplyThread::shared().post(std::move(block));
}

}  // namespace

BusServiceConnection::BusServiceConnection(const std::string& serviceName, BusOptions options)
    : channel_(std::make_shared<BusChannel>(serviceName, options)) {}

BusServiceConnection::~BusServiceConnection() {
  // Moved, not copied: the last reference must go on the reply thread.
  post([channel = std::move(channel_)] { channel->abandon(); });
}

void BusServiceConnection::setInterruptionHandler(Handler handler) {
  post([channel = channel_, handler = std::move(handler)]() mutable {
    channel->setInterruptionHandler(std::move(handler));
  });
}

void BusServiceConnection::setInvalidationHandler(Handler handler) {
  post([channel = channel_, handler = std::move(handler)]() mutable {
    channel->setInvalidationHandler(std::move(handler));
  });
}

void BusServiceConnection::activate() {
  post([channel = channel_] { channel->start(); });
}

void BusServiceConnection::resume() {
  activate();
}

void BusServiceConnection::sendNotary(const std::optional<std::string>& path,
                                      const Dictionary& request, ErrorHandler errorHandler,
                                      ReplyHandler replyHandler) {
  BusChannel::Call call{path, request, std::move(errorHandler), std::move(replyHandler)};
  post([channel = channel_, call = std::move(call)]() mutable { channel->send(std::move(call)); });
}

void BusServiceConnection::suspend() {
  post([channel = channel_] { channel->suspend(); });
}

void BusServiceConnection::invalidate() {
  post([channel = channel_] { channel->invalidate(); });
}

}  // namespace kvl::ipc
