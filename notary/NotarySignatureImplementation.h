// What a signature is made of. The session locks its monitor.
#pragma once

#include <local/KVLNotarySignature.h>
#include <local/platform/Atomic.h>
#include <local/platform/Date.h>
#include <local/platform/Mutex.h>
#include <local/platform/Value.h>

#include <memory>
#include <optional>
#include <utility>

struct KVLNotarySignature::Implementation {
  explicit Implementation(std::shared_ptr<const kvl::Environment> given)
      : environment(std::move(given)) {}

  const std::shared_ptr<const kvl::Environment> environment;
  kvl::Atomic<std::optional<kvl::URL>> baseURL;
  kvl::Atomic<kvl::CertificateRef> anchor;
  kvl::Atomic<kvl::IdentityRef> identity;
  kvl::Atomic<kvl::CertificateRef> client;
  // The session monitor, which belongs to the signature that is current.
  kvl::RecursiveMutex monitor;
};

namespace kvl::notary {

// Reads the not-after entry of a certificate's values. A number counts seconds since 2001-01-01; a
// value that is neither date nor number is logged.
[[nodiscard]] std::optional<Date> notValidAfterFromValues(const std::optional<Dictionary>& values);

}  // namespace kvl::notary
