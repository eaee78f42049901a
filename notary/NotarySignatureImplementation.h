// What a signature is made of, for the session that locks it.
#pragma once

#include <local/KVLNotarySignature.h>
#include <local/platform/Atomic.h>

#include <mutex>
#include <optional>

struct KVLNotarySignature::Implementation {
  kvl::Atomic<std::optional<kvl::URL>> baseURL;
  kvl::Atomic<kvl::CertificateRef> anchor;
  kvl::Atomic<kvl::IdentityRef> identity;
  kvl::Atomic<kvl::CertificateRef> client;
  // The session monitor, which belongs to the signature that is current.
  std::recursive_mutex monitor;
};
