// PEM text (RFC 7468) taken apart into its blocks.
#pragma once

#include <local/platform/Data.h>

#include <optional>
#include <string_view>
#include <vector>

namespace kvl::security {

// Views into the text that was split.
struct PEMBlock {
  std::string_view label;
  std::string_view body;  // what lies between the two boundary lines
  bool complete = false;  // false: the text or the next block began before the end line
};

// The blocks in order; text outside of them is skipped. Lines end with LF, CR or both.
[[nodiscard]] std::vector<PEMBlock> splitPEM(std::string_view text);

// Decodes base64 with white space anywhere; absent for anything else and for a missing padding.
[[nodiscard]] std::optional<Bytes> decodeBase64(std::string_view text);

}  // namespace kvl::security
