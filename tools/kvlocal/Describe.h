// The framework's objects as text for people and as values for JSON output.
#pragma once

#include <local/KVLSession.h>

#include <string>

namespace kvlocal {

// kvl::errorText without what went wrong, for a sentence that has said it.
[[nodiscard]] std::string reasonText(const kvl::Error& error);
[[nodiscard]] kvl::Dictionary errorValue(const kvl::Error& error);

// Lines with a name and a value each.
[[nodiscard]] std::string signatureText(const KVLNotarySignature& signature);
[[nodiscard]] kvl::Dictionary signatureValue(const KVLNotarySignature& signature);

// One of those lines.
[[nodiscard]] std::string field(std::string_view name, std::string_view value);

}  // namespace kvlocal
