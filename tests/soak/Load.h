// Much at once, for a moment.
#pragma once

#include <cstdint>

namespace kvltest {

// Has `count` requests under way at the same time, which the service answers when the last one has
// arrived, and then ten times as many in the queue of six connections. Whether each was answered
// once, with its own answer, and threads and memory stayed within bounds; prints figures.
//
// The processes end with the thread that calls this; another one serves the main queue meanwhile.
[[nodiscard]] bool holdsLoad(std::int64_t count);

}  // namespace kvltest
