// The evaluation of trust in a server: its chain is verified up to an anchor, its certificate is
// compared with the host, and the faults found are judged.
#include "platform/security/TrustEvaluation.h"

#include "platform/security/OpenSSLAccess.h"

#include <openssl/x509v3.h>

#include <algorithm>

namespace kvl {
namespace security {
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

bool namesHost(X509* certificate, const std::string& host) {
  // OpenSSL takes no length for "measure it yourself" and a dot in front for "any name below".
  // Neither is a name of a host.
  return !host.empty() && host.front() != '.' &&
         X509_check_host(certificate, host.data(), host.size(), kNameRules, nullptr) == 1;
}

// 0 when the certificate names the host, else X509_V_ERR_HOSTNAME_MISMATCH or, for an address,
// X509_V_ERR_IP_ADDRESS_MISMATCH. `host` comes without brackets; a final dot does not count.
int checkHost(const Certificate& certificate, std::string host) {
  const ErrorQueueMark mark;
  const OpenSSLPtr<X509> parsed = nativeCertificate(certificate);
  if (!parsed) return X509_V_ERR_OUT_OF_MEM;
  if (isAddress(host)) {
    const bool matches = X509_check_ip_asc(parsed.get(), host.c_str(), 0) == 1;
    return matches ? X509_V_OK : X509_V_ERR_IP_ADDRESS_MISMATCH;
  }
  if (host.ends_with('.')) host.pop_back();
  return namesHost(parsed.get(), host) ? X509_V_OK : X509_V_ERR_HOSTNAME_MISMATCH;
}

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

using CertificateStack = OpenSSLPtr<STACK_OF(X509)>;

// What OpenSSL demands of keys and digests by default in TLS: 112 bits, so no RSA below 2048 bits
// and no SHA-1.
constexpr int kSecurityLevel = 2;

// One run of OpenSSL's chain verification that does not stop at the first fault.
class Verification {
 public:
  Verification(const std::vector<CertificateRef>& chain, const std::vector<CertificateRef>& anchors)
      : chain_(nativeCertificates(chain)), anchors_(nativeCertificates(anchors)) {}

  // Absent when the verification could not be carried out.
  std::optional<std::vector<TrustFault>> run() {
    const ErrorQueueMark mark;
    if (!chain_ || !anchors_ || !store_ || !context_ || !prepare()) return std::nullopt;
    const bool verified = X509_verify_cert(context_.get()) == 1;
    // The callback forgives every fault, so a failure without one is no verdict.
    if (!verified && faults_.empty()) return std::nullopt;
    return std::move(faults_);
  }

 private:
  bool prepare() {
    X509_STORE_CTX* context = context_.get();
    if (X509_STORE_CTX_init(context, store_.get(), sk_X509_value(chain_.get(), 0), chain_.get()) !=
            1 ||
        X509_STORE_CTX_set_purpose(context, X509_PURPOSE_SSL_SERVER) != 1 ||
        X509_STORE_CTX_set_app_data(context, this) != 1)
      return false;
    X509_STORE_CTX_set0_trusted_stack(context, anchors_.get());
    X509_STORE_CTX_set_flags(context, X509_V_FLAG_PARTIAL_CHAIN);
    X509_VERIFY_PARAM_set_auth_level(X509_STORE_CTX_get0_param(context), kSecurityLevel);
    X509_STORE_CTX_set_verify_cb(context, &Verification::record);
    return true;
  }

  static int record(int isGood, X509_STORE_CTX* context) {
    if (isGood == 1) return 1;
    auto* self = static_cast<Verification*>(X509_STORE_CTX_get_app_data(context));
    self->faults_.push_back(
        {X509_STORE_CTX_get_error(context), X509_STORE_CTX_get_error_depth(context)});
    return 1;
  }

  CertificateStack chain_;
  CertificateStack anchors_;
  // Stays empty: the anchors are all that is trusted.
  OpenSSLPtr<X509_STORE> store_{X509_STORE_new()};
  OpenSSLPtr<X509_STORE_CTX> context_{X509_STORE_CTX_new()};
  std::vector<TrustFault> faults_;
};

class ChainTrust final : public ServerTrust {
 public:
  ChainTrust(std::vector<CertificateRef> chain, bool decodable, std::string host)
      : chain_(std::move(chain)), decodable_(decodable), host_(std::move(host)) {}

  Status setAnchorCertificates(const std::vector<CertificateRef>& anchors) override {
    if (anchors.empty() || std::ranges::count(anchors, nullptr) > 0) return errSecParam;
    anchors_ = anchors;
    return kSuccess;
  }

  Status evaluate(TrustResult& result) override {
    if (!decodable_) return errSecDecode;
    if (chain_.empty()) return errSecParam;
    std::optional<std::vector<TrustFault>> faults = Verification(chain_, anchors_).run();
    if (!faults) return errSecInternalComponent;
    if (const int error = checkHost(*chain_.front(), host_)) faults->push_back({error, 0});
    verdict_ = judge(*faults);
    result = verdict_->result;
    return kSuccess;
  }

  Status legacyResultCode(std::int32_t& code) const override {
    if (!verdict_) return errSecParam;
    code = verdict_->resultCode;
    return kSuccess;
  }

  std::optional<Dictionary> copyResult() const override {
    if (!verdict_) return std::nullopt;
    const TrustFault& fault = verdict_->fault;
    Dictionary result{{"result", static_cast<std::uint32_t>(verdict_->result)},
                      {"error", fault.error},
                      {"reason", X509_verify_cert_error_string(fault.error)},
                      {"depth", fault.depth},
                      {"host", host_}};
    describeCertificate(fault.depth, result);
    return result;
  }

  std::vector<CertificateRef> certificates() const override { return chain_; }

  int verifyError() const override { return verdict_ ? verdict_->fault.error : X509_V_OK; }

 private:
  // A fault beyond what the server sent lies in the anchor.
  void describeCertificate(int depth, Dictionary& result) const {
    const auto index = static_cast<std::size_t>(std::max(depth, 0));
    const Certificate& culprit = *chain_[std::min(index, chain_.size() - 1)];
    result.set("subject", culprit.subject());
    result.set("issuer", culprit.issuer());
  }

  const std::vector<CertificateRef> chain_;
  const bool decodable_;
  const std::string host_;
  std::vector<CertificateRef> anchors_;
  std::optional<TrustVerdict> verdict_;
};

}  // namespace

TrustVerdict judge(const std::vector<TrustFault>& faults) {
  if (faults.empty()) return {TrustResult::unspecified, 0, {}};
  return verdictOn(
      *std::min_element(faults.begin(), faults.end(), [](const TrustFault& a, const TrustFault& b) {
        return severityOf(a.error) < severityOf(b.error);
      }));
}

std::shared_ptr<ServerTrust> makeServerTrust(const std::vector<Data>& chain, std::string host) {
  std::vector<CertificateRef> certificates;
  for (const Data& der : chain) {
    CertificateRef certificate = decodeCertificate(der.bytes());
    if (certificate) certificates.push_back(std::move(certificate));
  }
  const bool decodable = certificates.size() == chain.size();
  return std::make_shared<ChainTrust>(std::move(certificates), decodable, std::move(host));
}

}  // namespace security

Trust::~Trust() = default;

TrustRef Trust::trustForServer(const std::vector<Data>& certificates, std::string host) {
  return security::makeServerTrust(certificates, std::move(host));
}

}  // namespace kvl
