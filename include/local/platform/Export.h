/// @file
/// Marks what `libkvlocal.so` exports; everything else in the library is hidden.
#pragma once

// Without what this one brings, moc of Qt 6.4 cannot read <compare>, <concepts> and the like of
// g++ 12.
#include <cstddef>

#if defined(__GNUC__)
#define KVL_EXPORT __attribute__((visibility("default")))
/// A member of an exported class that is the framework's own.
#define KVL_INTERNAL __attribute__((visibility("hidden")))
#else
#define KVL_EXPORT
#define KVL_INTERNAL
#endif
