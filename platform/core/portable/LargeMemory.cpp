#include "platform/core/LargeMemory.h"

namespace kvl::core {

// Larger pages only make it faster.
void preferLargePages(void* /*memory*/, std::size_t /*size*/) noexcept {}

}  // namespace kvl::core
