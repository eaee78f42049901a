// Whether the address sanitizer watches the program. It reserves far more memory than it uses, so
// that the memory cannot be limited, and makes some system calls of its own.
#pragma once

namespace kvl::decoder {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
#else
inline constexpr bool kSanitized = false;
#endif

}  // namespace kvl::decoder
