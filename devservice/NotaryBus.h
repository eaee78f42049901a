// The development notary on the session bus.
#pragma once

#include "devservice/NotaryAnswer.h"

#include <chrono>

namespace devservice {

// Claims the name and answers until SIGTERM or SIGINT arrives; returns the program's exit status.
// It is not 0 when there is no bus, when somebody else owns the name, or when the bus goes away.
[[nodiscard]] int runNotary(Notary& notary, std::chrono::milliseconds delay);

}  // namespace devservice
