// The kinds of stores that keep keys on this system, each with what it needs around it.
#pragma once

#include "platform/security/KeyStore.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kvltest {

class StoreSurroundings {
 public:
  virtual ~StoreSurroundings() = default;
  [[nodiscard]] virtual std::shared_ptr<kvl::security::KeyStore> makeStore() = 0;
  // Empty, or why no such store can be used here.
  [[nodiscard]] virtual std::string absence() { return {}; }
};

struct StoreKind {
  const char* name;
  std::function<std::unique_ptr<StoreSurroundings>()> surroundings;
};

[[nodiscard]] std::vector<StoreKind> storeKinds();

}  // namespace kvltest
