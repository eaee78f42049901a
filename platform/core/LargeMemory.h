// Memory of many megabytes.
#pragma once

#include <cstddef>

namespace kvl::core {

// Asks for large pages behind fresh memory that is about to be filled: filling it in small ones
// takes several times as long. A hint; without effect where the system has none.
void preferLargePages(void* memory, std::size_t size) noexcept;

}  // namespace kvl::core
