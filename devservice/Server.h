// The HTTPS server of the development service.
#pragma once

#include "devservice/CommandLine.h"

namespace devservice {

// Serves until SIGTERM or SIGINT arrives; returns the program's exit status. Both signals must be
// blocked in every thread. While it serves, the state directory's service.url names it.
// Throws std::runtime_error when it cannot start.
[[nodiscard]] int runService(const ServiceOptions& options);

}  // namespace devservice
