// Why an image was refused, for the log and for what is done about it next time.
#pragma once

#include "platform/interface/client/Decoder.h"

#include <cstdint>
#include <string>

namespace kvl::interface {

// Whether it took more memory than it may.
[[nodiscard]] bool metMemory(const Decoder::Exchange& exchange);

// Whether the image itself came to a limit, so that it will again. Not when another image may have
// had to do with it, and not when somebody else ended the decoder.
[[nodiscard]] bool metLimit(const Decoder::Exchange& exchange);

// Of an exchange that failed. `longestFile` is what the files that it needed had to hold, in bytes.
[[nodiscard]] std::string refusalReason(const Decoder::Exchange& exchange,
                                        const Decoder::Limits& limits, std::uint64_t longestFile);

}  // namespace kvl::interface
