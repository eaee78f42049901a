// Trust in a server's certificates, for the loader that makes the connection.
#pragma once

#include <local/platform/Security.h>

#include <memory>
#include <string>
#include <vector>

namespace kvl::security {

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
