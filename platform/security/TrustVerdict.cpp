#include "platform/security/TrustVerdict.h"

#include <openssl/x509_vfy.h>

#include <algorithm>

namespace kvl::security {
namespace {

// In the order of precedence.
enum class Severity { fatal, chain, host };

Severity severityOf(int error) {
  switch (error) {
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return Severity::host;
    case X509_V_ERR_CERT_NOT_YET_VALID:
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return Severity::chain;
    default:
      return Severity::fatal;
  }
}

TrustVerdict verdictOn(const TrustFault& fault) {
  switch (severityOf(fault.error)) {
    case Severity::fatal:
      return {TrustResult::fatalFailure, fault.error, fault};
    case Severity::chain:
      return {TrustResult::recoverableFailure, fault.error, fault};
    case Severity::host:
      break;
  }
  return {TrustResult::recoverableFailure, CSSMERR_APPLETP_HOSTNAME_MISMATCH, fault};
}

}  // namespace

TrustVerdict judge(const std::vector<TrustFault>& faults) {
  if (faults.empty()) return {TrustResult::unspecified, 0, {}};
  return verdictOn(
      *std::min_element(faults.begin(), faults.end(), [](const TrustFault& a, const TrustFault& b) {
        return severityOf(a.error) < severityOf(b.error);
      }));
}

}  // namespace kvl::security
