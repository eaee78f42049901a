// Files that the user names, to be sent.
#pragma once

#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Rendezvous.h"

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
[[nodiscard]] ExitCode readInput(const std::string& path,
                                 const std::shared_ptr<Rendezvous>& rendezvous, kvl::Data& data);

// The same with a file of JSON text, which is read as an answer of the service would be; none for
// `null`. `usage` for another file, too.
[[nodiscard]] ExitCode readDocument(const std::string& path,
                                    const std::shared_ptr<Rendezvous>& rendezvous,
                                    std::optional<kvl::Value>& document);

}  // namespace kvlocal
