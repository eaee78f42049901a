// What the faults that a chain's verification found mean in the terms of a trust evaluation.
#pragma once

#include <local/platform/Security.h>

#include <vector>

namespace kvl::security {

// One fault: an X509_V_ERR_* number and how far from the server's certificate it was found.
struct TrustFault {
  int error = 0;
  int depth = 0;
};

struct TrustVerdict {
  TrustResult result = TrustResult::invalid;
  std::int32_t resultCode = 0;
  // The fault that decided; error 0 when there is none.
  TrustFault fault;
};

// Judges `faults`, in the order in which they were found. A fault that is fatal decides before one
// that is not, and faults of the chain before those of the host; among equals the first decides.
[[nodiscard]] TrustVerdict judge(const std::vector<TrustFault>& faults);

}  // namespace kvl::security
