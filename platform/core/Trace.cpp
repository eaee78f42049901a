#include "platform/core/Trace.h"

#include "platform/core/NoDestructor.h"
#include "platform/core/Observer.h"
#include "platform/core/ProcessExit.h"

#include <local/platform/Mutex.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace kvl {
namespace core {

std::atomic<int> traceObservers = 0;

namespace {

using TraceObserver = Observer<const TraceRecord&>;
using Observers = std::vector<std::shared_ptr<TraceObserver>>;

// A list is never changed, so that whoever tells it needs no lock.
struct Registry {
  Mutex mutex;
  std::shared_ptr<const Observers> observers KVL_GUARDED_BY(mutex) =
      std::make_shared<const Observers>();
};

// Threads may still tell while the process exits.
Registry& registry() {
  static NoDestructor<Registry> shared;
  return *shared;
}

void replace(Registry& shared, Observers observers) KVL_REQUIRES(shared.mutex) {
  traceObservers = static_cast<int>(observers.size());
  shared.observers = std::make_shared<const Observers>(std::move(observers));
}

// Takes its observer off the list when it ends.
class Registered final : public Observation::Registration {
 public:
  explicit Registered(TraceHandler handler)
      : observer_(std::make_shared<TraceObserver>(std::move(handler))) {
    Registry& shared = registry();
    const MutexLock lock(shared.mutex);
    Observers observers = *shared.observers;
    observers.push_back(observer_);
    replace(shared, std::move(observers));
  }

  void end() override {
    {
      Registry& shared = registry();
      const MutexLock lock(shared.mutex);
      Observers observers = *shared.observers;
      std::erase(observers, observer_);
      replace(shared, std::move(observers));
    }
    observer_->end();
  }

 private:
  const std::shared_ptr<TraceObserver> observer_;
};

}  // namespace

void tellTrace(const TraceRecord& record) {
  const LibraryUse use;
  if (!use) return;
  std::shared_ptr<const Observers> observers;
  {
    Registry& shared = registry();
    const MutexLock lock(shared.mutex);
    observers = shared.observers;
  }
  for (const auto& observer : *observers) observer->tell(record);
}

}  // namespace core

Observation observeTrace(TraceHandler handler) {
  return Observation(std::make_shared<core::Registered>(std::move(handler)));
}

}  // namespace kvl
