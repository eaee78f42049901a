// The two lanes on which the process's blocks run.
#pragma once

#include <local/platform/DispatchQueue.h>

#include <memory>
#include <string>

namespace kvl::dispatch {

// A concurrent queue for the framework's own blocks: timers, challenges, bookkeeping. Handlers,
// delegates and observers never run on it, so a host that blocks in one does not hold it up. What a
// host puts in the framework's own place does run here and must not block: a notary or an HTTPS
// session class of its own, a log sink. The queue stands still once the process exits; its blocks
// must not wait for blocks of other queues.
[[nodiscard]] std::shared_ptr<DispatchQueue> laneQueue(std::string label);

}  // namespace kvl::dispatch
