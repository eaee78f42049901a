// The threads that all queues of the process share.
#pragma once

#include <asio/io_context.hpp>

namespace kvl::dispatch {

// The context that the worker threads run. The threads start with the first call, are detached and
// live as long as the process; the pool is never destroyed, so that nothing has to be joined while
// the process exits.
[[nodiscard]] asio::io_context& workerContext();

}  // namespace kvl::dispatch
