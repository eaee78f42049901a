#include "notary/ProcessReferences.h"

#include "platform/core/NoDestructor.h"

#include <local/platform/Mutex.h>

#include <unordered_map>
#include <utility>

namespace kvl::notary {
namespace {

struct KeptReferences {
  Mutex mutex;
  std::unordered_map<const void*, std::shared_ptr<const void>> objects KVL_GUARDED_BY(mutex);
};

KeptReferences& kept() {
  static NoDestructor<KeptReferences> references;
  return *references;
}

}  // namespace

void keepForProcess(std::shared_ptr<const void> object) {
  if (!object) return;
  auto& references = kept();
  MutexLock lock(references.mutex);
  const void* address = object.get();
  references.objects.try_emplace(address, std::move(object));
}

std::size_t keptObjectCount() {
  auto& references = kept();
  MutexLock lock(references.mutex);
  return references.objects.size();
}

}  // namespace kvl::notary
