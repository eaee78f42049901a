#include "platform/ipc/ServiceConnection.h"

#include "platform/ipc/BusServiceConnection.h"

namespace kvl::ipc {

std::shared_ptr<ServiceConnection> makeServiceConnection(const std::string& serviceName) {
  return std::make_shared<BusServiceConnection>(serviceName);
}

}  // namespace kvl::ipc
