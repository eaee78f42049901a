// Which thread this is.
#pragma once

#include <cstdint>

namespace kvl::core {

// Of no other thread of the process while this one lives, and never 0.
[[nodiscard]] std::int64_t thisThread() noexcept;

// Whether it is the one that the process began with, or that called fork(2).
[[nodiscard]] bool isFirstThread() noexcept;

// For debuggers and lists of threads, where the system has names for them: 15 characters at most.
void nameThisThread(const char* name) noexcept;

}  // namespace kvl::core
