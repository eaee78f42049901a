/// @file
/// What every other header begins with: whether the compiler's standard is new enough, and what
/// `libkvlocal.so` exports; everything else in the library is hidden.
#pragma once

#if defined(_MSVC_LANG)
#define KVL_CXX_STANDARD _MSVC_LANG
#else
/// The standard that the compiler follows; defined here alone.
#define KVL_CXX_STANDARD __cplusplus
#endif
#if KVL_CXX_STANDARD < 202002L
#error \
    "KVLocal's headers need C++20 or newer: compile with -std=c++20, or target_compile_features(... cxx_std_20)"
#endif
#undef KVL_CXX_STANDARD

// Without what this one brings, moc of Qt 6.4 cannot read <compare>, <concepts> and the like of
// g++ 12.
#include <cstddef>

#if defined(__GNUC__)
/// A declaration that the library exports.
#define KVL_EXPORT __attribute__((visibility("default")))
/// A member of an exported class that is the framework's own.
#define KVL_INTERNAL __attribute__((visibility("hidden")))
#else
#define KVL_EXPORT
#define KVL_INTERNAL
#endif

/// Marks what a later version no longer has: `KVL_DEPRECATED("use other() instead")` before a
/// declaration makes the compiler warn whoever uses it, with that text. docs/versions.md says how
/// long such things stay.
#define KVL_DEPRECATED(instead) [[deprecated(instead)]]
