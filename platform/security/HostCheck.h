// Whether a certificate names the host that a URL names.
#pragma once

#include <local/platform/Security.h>

#include <string>

namespace kvl::security {

// 0 when it does, else X509_V_ERR_HOSTNAME_MISMATCH or, for an address,
// X509_V_ERR_IP_ADDRESS_MISMATCH. `host` comes without brackets; a final dot does not count.
[[nodiscard]] int checkHost(const Certificate& certificate, std::string host);

}  // namespace kvl::security
