// Functions that are called later.
#pragma once

#include <chrono>
#include <functional>

namespace kvl::dispatch {

// Calls `fire` no earlier than `delay` from now, on a clock that also counts while the machine is
// suspended; one after the other by their deadlines, those of one deadline by the order of the
// calls. They run on a thread that nothing else uses, so `fire` must be quick.
void fireAfter(std::chrono::nanoseconds delay, std::function<void()> fire);

}  // namespace kvl::dispatch
