// The two lanes on which the process's blocks run.
#pragma once

#include <local/platform/DispatchQueue.h>

#include <memory>
#include <string>

namespace kvl::dispatch {

// A concurrent queue for the framework's own blocks: timers, challenges, bookkeeping. Host code
// never runs on it, so nothing that a host does holds it up. It stands still once the process
// exits; its blocks must not wait for blocks of other queues.
[[nodiscard]] std::shared_ptr<DispatchQueue> laneQueue(std::string label);

}  // namespace kvl::dispatch
