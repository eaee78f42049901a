// Delayed blocks on CLOCK_BOOTTIME, the clock that also counts while the machine is suspended.
#pragma once

#include <chrono>
#include <functional>

namespace kvl::dispatch {

// Calls `fire` on a worker thread no earlier than `delay` from now, one after the other by their
// deadlines; those of one deadline by the order of the calls. One timer descriptor serves the whole
// process, and it is armed only while something is due. `fire` must be quick, since others wait for
// it. Thread-safe.
void fireAfter(std::chrono::nanoseconds delay, std::function<void()> fire);

}  // namespace kvl::dispatch
