#include "tests/security/KeyStoreKinds.h"

#include "platform/security/KernelKeyring.h"
#include "tests/support/PrivateBus.h"

#include <cstring>

namespace kvltest {
namespace {

using kvl::security::KeyStore;

class KeyringOnABus final : public StoreSurroundings {
 public:
  KeyringOnABus() { bus_.startKeyring(); }
  std::shared_ptr<KeyStore> makeStore() override {
    return kvl::security::makeSecretServiceKeyStore();
  }

 private:
  PrivateBus bus_;
  SessionBusVariable variable_{bus_.address()};
};

class Kernel final : public StoreSurroundings {
 public:
  std::shared_ptr<KeyStore> makeStore() override {
    return kvl::security::makeKernelKeyringKeyStore();
  }
  // A container may let nobody use the user keyring.
  std::string absence() override {
    namespace kernel = kvl::security::kernel;
    std::vector<kernel::Serial> entries;
    const int error = kernel::list(kernel::userKeyring(), entries);
    return error == 0 ? "" : std::string("no kernel keyring here: ") + std::strerror(error);
  }
};

class Memory final : public StoreSurroundings {
 public:
  std::shared_ptr<KeyStore> makeStore() override { return kvl::security::makeMemoryKeyStore(); }
};

}  // namespace

std::vector<StoreKind> storeKinds() {
  return {{"SecretService", [] { return std::make_unique<KeyringOnABus>(); }},
          {"KernelKeyring", [] { return std::make_unique<Kernel>(); }},
          {"Memory", [] { return std::make_unique<Memory>(); }}};
}

}  // namespace kvltest
