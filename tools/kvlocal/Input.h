// Files that the user names, to be sent.
#pragma once

#include "tools/kvlocal/Command.h"

#include <local/KVLInputFile.h>
#include <local/platform/Value.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kvlocal {

// Names standard input in place of a file.
inline constexpr std::string_view kStandardInput = "-";

// A file to be sent, or standard input when `path` is kStandardInput, without a name and a type.
// What is large stays in the file until the form is made, or comes into a temporary one. `ok`,
// `interrupted`, or `usage` after it has said why the file cannot be read.
[[nodiscard]] ExitCode readInput(const Context& context, const std::string& path,
                                 std::shared_ptr<KVLInputFile>& file);

// The same with a file of JSON text, which is read as an answer of the service would be; none for
// `null`. `usage` for another file, too.
[[nodiscard]] ExitCode readDocument(const Context& context, const std::string& path,
                                    std::optional<kvl::Value>& document);

}  // namespace kvlocal
