#include "platform/ipc/ServiceConnection.h"

#include "platform/ipc/BusTransport.h"
#include "platform/ipc/CallConnection.h"

#include <unistd.h>

namespace kvl::ipc {

BusOptions::BusOptions() : trustedUser(getuid()) {}

std::shared_ptr<ServiceConnection> makeBusConnection(const std::string& serviceName,
                                                     BusOptions options) {
  return std::make_shared<CallConnection>(
      serviceName, makeBusTransport(serviceName, options.trustedUser), options.replyTimeLimit);
}

std::shared_ptr<ServiceConnection> makeServiceConnection(const std::string& serviceName) {
  return makeBusConnection(serviceName);
}

}  // namespace kvl::ipc
