// The points at which the trace is told what happens.
#pragma once

#include <local/platform/Trace.h>

#include <atomic>

namespace kvl::core {

// How many observe the trace.
extern std::atomic<int> traceObservers;

#ifdef KVL_WITHOUT_TRACE  // of the benchmark that tells what the points cost
constexpr bool isTraced() noexcept {
  return false;
}
#else
inline bool isTraced() noexcept {
  return traceObservers.load(std::memory_order_relaxed) != 0;
}
#endif

// Tells all observers. Tells nobody once the process exits.
void tellTrace(const TraceRecord& record);

// One point: `make` gives the record, and is called only if somebody observes.
template <class Make>
inline void trace(const Make& make) {
  if (isTraced()) [[unlikely]]
    tellTrace(make());
}

}  // namespace kvl::core
