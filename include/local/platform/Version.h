/// @file
/// The framework's own version: of the headers that a host is compiled with, and of the library
/// that it runs with. docs/versions.md says what the numbers promise.
#pragma once

#include <local/platform/Export.h>

#include <string_view>

/// The version of these headers. The build reads it from here.
#define KVL_VERSION_MAJOR 0
/// Its second number.
#define KVL_VERSION_MINOR 1
/// Its third number.
#define KVL_VERSION_PATCH 0

/// A version as one number, for comparisons.
#define KVL_VERSION_NUMBER(major, minor, patch) ((major) * 10000 + (minor) * 100 + (patch))

/// The version of these headers as one number: 100 for 0.1.0.
#define KVL_VERSION KVL_VERSION_NUMBER(KVL_VERSION_MAJOR, KVL_VERSION_MINOR, KVL_VERSION_PATCH)

/// Whether these headers are of version `major.minor.patch` or a newer one; for `#if`, too.
#define KVL_VERSION_AT_LEAST(major, minor, patch) \
  (KVL_VERSION >= KVL_VERSION_NUMBER(major, minor, patch))

/// @cond
#define KVL_VERSION_TEXT_OF(major, minor, patch) #major "." #minor "." #patch
#define KVL_VERSION_TEXT(major, minor, patch) KVL_VERSION_TEXT_OF(major, minor, patch)
/// @endcond

/// The version of these headers as text: "0.1.0".
#define KVL_VERSION_STRING KVL_VERSION_TEXT(KVL_VERSION_MAJOR, KVL_VERSION_MINOR, KVL_VERSION_PATCH)

namespace kvl {

/// A version of the framework.
struct Version {
  /// As one number, to be compared with `KVL_VERSION` and `KVL_VERSION_NUMBER`.
  int number = 0;
  /// As people write it.
  std::string_view text;
};

/// The version of the library that is loaded, whatever version the host was compiled with. From any
/// thread.
[[nodiscard]] KVL_EXPORT Version version() noexcept;

}  // namespace kvl
