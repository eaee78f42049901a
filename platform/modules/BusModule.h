// What kvlocal-bus.so gives to the library: everything that needs GIO.
#pragma once

#include "platform/ipc/BusTransport.h"
#include "platform/security/KeyStore.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kvl::modules {

struct BusParts {
  std::shared_ptr<ipc::CallTransport> (*makeTransport)(const std::string& serviceName,
                                                       std::uint32_t trustedUser);
  std::shared_ptr<security::KeyStore> (*makeSecretServiceKeyStore)();
  bool (*openOnDesktop)(const std::string& url);
};

}  // namespace kvl::modules
