#include "platform/security/HostCheck.h"

#include "platform/security/OpenSSLAccess.h"

#include <openssl/x509v3.h>

namespace kvl::security {
namespace {

struct AddressDeleter {
  void operator()(ASN1_OCTET_STRING* address) const noexcept { ASN1_OCTET_STRING_free(address); }
};

bool isAddress(const std::string& host) {
  return std::unique_ptr<ASN1_OCTET_STRING, AddressDeleter>(a2i_IPADDRESS(host.c_str())) != nullptr;
}

// Alternative names only: a common name is no host name (RFC 9525, 2).
constexpr unsigned int kNameRules =
    X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT;

bool namesHost(const Certificate& certificate, const std::string& host) {
  // OpenSSL takes no length for "measure it yourself", and an empty name matches nothing anyway.
  return !host.empty() && X509_check_host(nativeCertificate(certificate), host.data(), host.size(),
                                          kNameRules, nullptr) == 1;
}

}  // namespace

int checkHost(const Certificate& certificate, std::string host) {
  const ErrorQueueMark mark;
  if (isAddress(host)) {
    const bool matches = X509_check_ip_asc(nativeCertificate(certificate), host.c_str(), 0) == 1;
    return matches ? X509_V_OK : X509_V_ERR_IP_ADDRESS_MISMATCH;
  }
  if (host.ends_with('.')) host.pop_back();
  return namesHost(certificate, host) ? X509_V_OK : X509_V_ERR_HOSTNAME_MISMATCH;
}

}  // namespace kvl::security
