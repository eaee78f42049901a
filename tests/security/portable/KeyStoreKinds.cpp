#include "tests/security/KeyStoreKinds.h"

namespace kvltest {
namespace {

class Memory final : public StoreSurroundings {
 public:
  std::shared_ptr<kvl::security::KeyStore> makeStore() override {
    return kvl::security::makeMemoryKeyStore();
  }
};

}  // namespace

std::vector<StoreKind> storeKinds() {
  return {{"Memory", [] { return std::make_unique<Memory>(); }}};
}

}  // namespace kvltest
