// The images that hostile.py makes.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kvltest {

// Where they are, made by the first call and gone with the process.
[[nodiscard]] const std::filesystem::path& hostileFolder();
// Their names, in order. A sanitized build has every tenth only, and KVL_HOSTILE=all has all.
[[nodiscard]] std::vector<std::string> hostileNames();
// Whether all are to have all the time that an image may take.
[[nodiscard]] bool isLongRun();

}  // namespace kvltest
