// Calls over the session bus, and what carries them.
#pragma once

#include "platform/ipc/CallTransport.h"
#include "platform/ipc/ServiceConnection.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace kvl::ipc {

struct BusOptions {
  std::chrono::milliseconds replyTimeLimit = kReplyTimeLimit;
  // Whose service may see the request. The bus vouches for the user who owns the name.
  std::uint32_t trustedUser;

  // Trusts the process's own user.
  BusOptions();
};

// A service named "a.b" is the D-Bus name a.b with the object /a/b and the interface a.bProtocol.
[[nodiscard]] std::shared_ptr<ServiceConnection> makeBusConnection(const std::string& serviceName,
                                                                   BusOptions options = {});

// Needs GIO, and where that part of the library is not to be had, carries nothing and answers that
// the service cannot be reached.
[[nodiscard]] std::shared_ptr<CallTransport> makeBusTransport(const std::string& serviceName,
                                                              std::uint32_t trustedUser);

}  // namespace kvl::ipc
