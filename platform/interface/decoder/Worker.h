// A worker: decodes and draws what the host asks for.
#pragma once

#include "platform/interface/decoder/ResourceLimits.h"
#include "platform/interface/protocol/ImageChannel.h"

#include <cstdint>

namespace kvl::decoder {

struct Program;

// Tells the host that worker `number` is ready, with the pidfd `self` of the process, and answers
// until the host lets go. Confined before. Returns the process's status.
[[nodiscard]] int serve(interface::ImageChannel channel, interface::Descriptor self,
                        std::uint64_t number, const Program& program, const MemoryLimit& memory);

}  // namespace kvl::decoder
