// Trust in a server's certificates, for the loader that makes the connection, and what the faults
// that a verification found mean in the terms of a trust evaluation.
#pragma once

#include <local/platform/Security.h>

#include <memory>
#include <string>
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

class ServerTrust : public Trust {
 public:
  // The X509_V_ERR_* number of the last evaluation's refusal; 0: trusted, or not yet evaluated.
  // Faults of the chain come before a wrong host name.
  [[nodiscard]] virtual int verifyError() const = 0;
};

// `chain` is what the server sent, its own certificate first, as DER; `host` is as in the URL,
// without brackets. An address counts only by the certificate's addresses, a name only by its
// names. Never null: evaluating an empty chain fails with errSecParam, and one that does not decode
// with errSecDecode.
[[nodiscard]] std::shared_ptr<ServerTrust> makeServerTrust(const std::vector<Data>& chain,
                                                           std::string host);

}  // namespace kvl::security
