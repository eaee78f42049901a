/// @file
/// Marks what `libkvlocal.so` exports; everything else in the library is hidden.
#pragma once

#if defined(__GNUC__)
#define KVL_EXPORT __attribute__((visibility("default")))
#else
#define KVL_EXPORT
#endif
