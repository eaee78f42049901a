// The module of image decoders: where it lies, and its loading.
#pragma once

#include "platform/interface/ImageEntryPoint.h"

#include <filesystem>
#include <vector>

namespace kvl::interface {

// Where the module may lie: beside this library, or beside the programs of a build tree. Absolute,
// and the same whichever folder the process is in; none when this library's own file is unknown.
[[nodiscard]] std::vector<std::filesystem::path> imageModulePlaces();

// Loads the first of `places` that exists, for good. Relative ones are passed over: they would mean
// whatever lies in the working directory. Null, and one line in the log, when none exists or when
// it is not this version's.
[[nodiscard]] const KVLImageFunctions* loadImageModule(
    const std::vector<std::filesystem::path>& places);

// The process's module, loaded by the first call; later calls neither try nor log again, unless the
// process had no descriptor left.
[[nodiscard]] const KVLImageFunctions* imageModule();

}  // namespace kvl::interface
