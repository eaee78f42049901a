// Files that the user names, to be sent.
#pragma once

#include "tools/kvlocal/Command.h"

#include <local/KVLInputFile.h>
#include <local/platform/Data.h>
#include <local/platform/Value.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kvlocal {

// Names standard input in place of a file.
inline constexpr std::string_view kStandardInput = "-";

// Reads a whole file, or standard input when `path` is kStandardInput. `ok`, `interrupted`, or
// `usage` after it has said why the file cannot be read.
[[nodiscard]] ExitCode readInput(const Context& context, const std::string& path, kvl::Data& data);

// `readInput` with a file of JSON text, which is read as an answer of the service would be; none
// for `null`. `usage` for another file, too.
[[nodiscard]] ExitCode readDocument(const Context& context, const std::string& path,
                                    std::optional<kvl::Value>& document);

// A large file to be sent, which is read when the form is made; null for any other, which
// `readInput` is for. It has no name and no type.
[[nodiscard]] std::shared_ptr<KVLInputFile> openInput(const std::string& path);

}  // namespace kvlocal
