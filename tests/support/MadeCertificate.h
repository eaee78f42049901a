// Certificates with a chosen end, for tests that never open a connection.
#pragma once

#include <local/platform/Date.h>
#include <local/platform/Security.h>

namespace kvltest {

// Self-signed with a key that is made once per process.
[[nodiscard]] kvl::CertificateRef certificateEnding(kvl::Date end);

// The same with an end that no calendar knows.
[[nodiscard]] kvl::CertificateRef certificateWithoutReadableEnd();

}  // namespace kvltest
