#include "platform/ipc/ServiceConnection.h"

#include "platform/ipc/BusServiceConnection.h"

#include <local/platform/Atomic.h>

#include <utility>

namespace kvl::ipc {
namespace {

// Never destroyed: threads may outlive the process's statics.
Atomic<ServiceConnectionFactory>& currentFactory() {
  static auto& factory = *new Atomic<ServiceConnectionFactory>;
  return factory;
}

}  // namespace

std::shared_ptr<ServiceConnection> makeServiceConnection(const std::string& serviceName) {
  if (const ServiceConnectionFactory factory = currentFactory().get()) return factory(serviceName);
  return std::make_shared<BusServiceConnection>(serviceName);
}

void setServiceConnectionFactory(ServiceConnectionFactory factory) {
  currentFactory().set(std::move(factory));
}

}  // namespace kvl::ipc
