// How long the tests of queues wait for what happens soon.
#pragma once

#include <chrono>

inline constexpr std::chrono::seconds kPatience{20};
