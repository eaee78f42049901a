// The sockets by which libcurl wakes a multi handle.
#pragma once

#include <curl/curl.h>

namespace kvl::urlloading {

// Makes the multi handle's own sockets close-on-exec: libcurl does not, and does not name them. Any
// other descriptor is left alone. @pre nobody else uses `multi` meanwhile, and it has no transfers.
void keepWakeupSocketsFromChildren(CURLM* multi);

}  // namespace kvl::urlloading
