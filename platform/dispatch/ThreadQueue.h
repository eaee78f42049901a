// A serial queue on a thread of its own, for work that may block for long.
#pragma once

#include <local/platform/DispatchQueue.h>

#include <memory>
#include <string>

namespace kvl {

// Runs one block at a time, in the order in which they were handed over, whatever the worker
// threads do, and keeps none of them busy. The thread bears the label's first 15 characters as its
// name, starts with the first block, waits for more without waking up, and ends, unjoined, once the
// queue has been let go of and its last block has run. `asyncAfter` counts its delay with the
// process's timer, which is served by the worker threads.
[[nodiscard]] std::shared_ptr<DispatchQueue> threadQueue(std::string label);

}  // namespace kvl
