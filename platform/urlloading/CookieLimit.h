// How many cookies are kept.
#pragma once

#include <curl/curl.h>

#include <cstddef>

namespace kvl::urlloading {

// As many as browsers are asked to keep at least (RFC 6265, 6.1). libcurl keeps any number, and
// looks at all of them for each request and each new one.
inline constexpr std::size_t kCookiesOfOneHost = 50;

// Drops the oldest of those hosts that have set more. @pre the handle's cookies are switched on,
// and no other transfer runs with them meanwhile.
void limitCookies(CURL* easy);

}  // namespace kvl::urlloading
