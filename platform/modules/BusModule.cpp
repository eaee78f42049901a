// The entry of kvlocal-bus.so.
#include "platform/modules/BusModule.h"

#include "platform/interface/desktop/OpenOnDesktop.h"

#include <local/platform/Version.h>

#include <string_view>

extern "C" __attribute__((visibility("default"))) void* kvlocalBus(const char* version) noexcept {
  static kvl::modules::BusParts parts{&kvl::ipc::makeBusTransport,
                                      &kvl::security::makeSecretServiceKeyStore,
                                      &kvl::interface::openOnDesktop};
  return std::string_view(version) == KVL_VERSION_STRING ? &parts : nullptr;
}
