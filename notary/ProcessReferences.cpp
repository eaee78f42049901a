#include "notary/ProcessReferences.h"

#include <mutex>
#include <unordered_map>
#include <utility>

namespace kvl::notary {
namespace {

struct KeptReferences {
  std::mutex mutex;
  std::unordered_map<const void*, std::shared_ptr<const void>> objects;
};

// Reachable for ever and never destroyed.
KeptReferences& kept() {
  static auto& references = *new KeptReferences;
  return references;
}

}  // namespace

void keepForProcess(std::shared_ptr<const void> object) {
  if (!object) return;
  std::lock_guard lock(kept().mutex);
  const void* address = object.get();
  kept().objects.try_emplace(address, std::move(object));
}

std::size_t keptObjectCount() {
  std::lock_guard lock(kept().mutex);
  return kept().objects.size();
}

}  // namespace kvl::notary
