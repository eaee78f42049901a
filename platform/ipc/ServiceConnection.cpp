#include "platform/ipc/ServiceConnection.h"

#include "platform/ipc/BusTransport.h"

namespace kvl::ipc {

std::shared_ptr<ServiceConnection> makeServiceConnection(const std::string& serviceName) {
  return makeBusConnection(serviceName);
}

}  // namespace kvl::ipc
