// How long tests of windows wait.
#pragma once

namespace kvltest {

// How long something may take on a machine with other things to do, in milliseconds.
inline constexpr int kPatience = 60'000;

}  // namespace kvltest
