// The clock behind Date::now(), replaceable in tests.
#pragma once

#include <local/platform/Date.h>

#include <functional>

namespace kvl::core {

using WallClock = std::function<Date()>;

// For tests: what Date::now() answers. An empty function restores the system's clock.
void setWallClock(WallClock clock);

}  // namespace kvl::core
