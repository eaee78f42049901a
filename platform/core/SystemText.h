// What the operating system's numbers mean, in English whatever locale the process has.
#pragma once

#include <cstdint>
#include <string>

namespace kvl::core {

// Of a status of the operating system's security services; empty for others.
[[nodiscard]] std::string statusText(std::int64_t code);

// Of a code in the POSIX domain, where such statuses stand, too.
[[nodiscard]] std::string systemText(std::int64_t code);

}  // namespace kvl::core
