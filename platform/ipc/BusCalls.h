// GIO's asynchronous operations with blocks for callbacks. For use on the reply thread; the blocks
// run there too, exactly once, with either a result or an error.
#pragma once

#include "platform/ipc/GLibPointers.h"

#include <functional>
#include <string>

namespace kvl::ipc {

// A connection of its own to the session bus; the process's shared one is left alone because it
// may end the process when the bus goes away. Neither the address nor the connecting blocks.
void connectToSessionBus(GCancellable* cancellable, std::function<void(BusPtr, ErrorPtr)> then);

struct BusMethod {
  std::string destination;
  std::string object;
  std::string interface;
  const char* name;
  const char* replyType;
};

// Calls without starting a service and without a time limit: `cancellable` ends the waiting.
void callMethod(GDBusConnection* bus, const BusMethod& method, GVariant* arguments,
                GCancellable* cancellable, std::function<void(VariantPtr, ErrorPtr)> then);

// A method of the bus itself.
[[nodiscard]] BusMethod busMethod(const char* name, const char* replyType);

}  // namespace kvl::ipc
