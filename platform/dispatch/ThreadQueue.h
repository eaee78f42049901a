// A serial queue on a thread of its own, for work that may block for long.
#pragma once

#include <local/platform/DispatchQueue.h>

#include <chrono>
#include <memory>
#include <string>

namespace kvl {

// For the framework's own blocks. Runs one at a time, in the order in which they were handed over,
// whatever the worker threads do, and keeps none of them busy. The thread bears the label's first
// 15 characters as its name, starts with the first block, as soon as the system has a thread to
// give, waits for more without waking up, and ends, unjoined, once the queue has been let go of and
// its last block has run, or when there has been none for `idleTime`: the next block has another.
// It stands still once the process exits.
[[nodiscard]] std::shared_ptr<DispatchQueue> threadQueue(
    std::string label, std::chrono::nanoseconds idleTime = std::chrono::seconds(5));

}  // namespace kvl
