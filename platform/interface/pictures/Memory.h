// Whether memory was lacking, which most libraries tell in a way of their own.
#pragma once

#include <string_view>

namespace kvl::pictures {

void forgetLackOfMemory() noexcept;
void noteLackOfMemory() noexcept;
// For libraries that have only words for it.
void noteLackOfMemoryIn(std::string_view message) noexcept;

// From now on operators new and GLib tell as well, the latter before it ends the process.
void watchMemory();

}  // namespace kvl::pictures
