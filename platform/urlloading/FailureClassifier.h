// Which error a failed transfer is.
#pragma once

#include "platform/urlloading/TLSConnection.h"

#include <curl/curl.h>

#include <cstdint>
#include <optional>

namespace kvl::urlloading {

// What is known of a transfer that failed.
struct FailureFacts {
  CURLcode code = CURLE_OK;
  // The TLS connection that it used last; absent without one.
  std::optional<TLSFacts> tls;
  // Whether anything of a response has come over that connection.
  bool responded = false;
};

// The code in NSURLErrorDomain. libcurl's code alone does not tell: under TLS 1.3 a client
// certificate is refused after the handshake, and a forged signature looks like a lost handshake.
// What the connection itself recorded comes first.
[[nodiscard]] std::int64_t classify(const FailureFacts& facts) noexcept;

}  // namespace kvl::urlloading
