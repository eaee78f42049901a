// Which certificate signing requests the development notary accepts.
#pragma once

#include "devservice/OpenSSLPointers.h"

#include <string>
#include <string_view>
#include <variant>

namespace devservice {

// Why a request is refused, as a sentence.
struct Refusal {
  std::string reason;
};

inline constexpr std::size_t kMaximumRequestSize = 64 * 1024;
inline constexpr int kMinimumKeyBits = 2048;
inline constexpr int kMaximumKeyBits = 16384;

// Strict on purpose: a client that passes here will pass everywhere. One PEM block labelled
// CERTIFICATE REQUEST and nothing else; DER without trailing bytes and in its one distinguished
// form; version 0; an RSA key of kMinimumKeyBits or more; a SHA-2 signature that verifies.
[[nodiscard]] std::variant<RequestPtr, Refusal> checkRequest(std::string_view pem);

}  // namespace devservice
