/// @file
/// The version of the system whose behaviour the framework follows.
#pragma once

#include <local/platform/Export.h>

#include <compare>

namespace kvl {

/// A system version. Some behaviour of the framework depends on it, as the operations' own
/// comments say.
struct SystemVersion {
  int major = 0;  ///< 15 of 15.2
  int minor = 0;  ///< 2 of 15.2
  /// By `major`, then by `minor`.
  friend auto operator<=>(const SystemVersion&, const SystemVersion&) = default;
};

/// What the framework takes for the system's version unless a host says otherwise: a current one,
/// with every present behaviour switched on.
inline constexpr SystemVersion kDefaultSystemVersion{15, 0};

/// What `setSystemVersion` set last, else `kDefaultSystemVersion`. Any thread.
[[nodiscard]] KVL_EXPORT SystemVersion systemVersion() noexcept;

/// Whether the system is at least version `major.minor`.
[[nodiscard]] KVL_EXPORT bool isSystemVersionAtLeast(int major, int minor = 0) noexcept;

/// Sets the version for the whole process, from any thread. Hosts that must keep an older
/// behaviour, and tests, call it; what has already been decided is not decided again.
KVL_EXPORT void setSystemVersion(SystemVersion version) noexcept;

}  // namespace kvl
