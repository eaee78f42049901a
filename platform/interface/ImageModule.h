// The module of image decoders: where it lies, and its loading.
#pragma once

#include "platform/interface/ImageEntryPoint.h"

#include <filesystem>
#include <vector>

namespace kvl::interface {

// Where the module may lie: beside this library, or beside the programs of a build tree.
[[nodiscard]] std::vector<std::filesystem::path> imageModulePlaces();

// Loads the first of `places` that exists, for good. Null, and one line in the log, when none does
// or when it is not this version's.
[[nodiscard]] const KVLImageFunctions* loadImageModule(
    const std::vector<std::filesystem::path>& places);

// The process's module, loaded by the first call; later calls neither try nor log again.
[[nodiscard]] const KVLImageFunctions* imageModule();

}  // namespace kvl::interface
