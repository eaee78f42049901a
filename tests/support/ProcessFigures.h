// What this process holds of the system.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvltest {

[[nodiscard]] std::size_t threadCount();
[[nodiscard]] std::size_t descriptorCount();
// Resident memory, in bytes.
[[nodiscard]] std::int64_t residentMemory();
// The most resident memory since it was forgotten last, in bytes.
[[nodiscard]] std::int64_t peakMemory();
// False where the system does not let it.
bool forgetPeakMemory();

}  // namespace kvltest
