// Waiting for what a program writes to its files.
#pragma once

#include "tests/support/PrivateBus.h"

#include <filesystem>
#include <functional>

namespace kvltest {

// Waits until `condition` holds, and looks again whenever a file in `folder` changes. False when
// `process`, which writes there, has ended without that, or when nothing changes for very long.
[[nodiscard]] bool waitForFolder(const std::filesystem::path& folder, const ChildProcess& process,
                                 const std::function<bool()>& condition);

}  // namespace kvltest
