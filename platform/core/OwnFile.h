// Where the library lies.
#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

namespace kvl::core {

// Where a file of the framework's own may lie: `name` beside this library, or beside the programs
// of a build tree; for programs that are linked with libkvlocal.a, besides, where it was installed.
// Absolute, and the same whichever folder the process is in; none when this library's own file is
// unknown.
[[nodiscard]] std::vector<std::filesystem::path> placesBesideLibrary(std::string_view name);

}  // namespace kvl::core
