// What can be done with certificates, apart from trusting them.
#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"
#include "platform/security/PEMSequence.h"

namespace kvl::security {
namespace {

// The second label is an old form of the first (RFC 7468, section 5.1).
bool isCertificate(const PEMBlock& block) {
  return block.label == "CERTIFICATE" || block.label == "X509 CERTIFICATE";
}

CertificateRef decodeBlock(const PEMBlock& block) {
  if (!block.complete) return nullptr;
  const std::optional<Bytes> der = decodeBase64(block.body);
  return der ? decodeCertificate(*der) : nullptr;
}

}  // namespace

Status SecItemImportCertificates(std::string_view pem, std::vector<CertificateRef>& certificates) {
  keepOpenSSLUntilTheEnd();
  const std::vector<PEMBlock> blocks = splitPEM(pem);
  if (blocks.empty()) return errSecUnknownFormat;
  std::vector<CertificateRef> decoded;
  for (const PEMBlock& block : blocks) {
    if (!isCertificate(block)) continue;
    decoded.push_back(decodeBlock(block));
    if (!decoded.back()) return errSecDecode;
  }
  certificates = std::move(decoded);
  return kSuccess;
}

std::optional<Dictionary> SecCertificateCopyValues(const Certificate& certificate,
                                                   std::string_view key) {
  Dictionary values;
  if (key != kSecOIDX509V1ValidityNotAfter) return values;
  const std::optional<Date> end = certificate.notValidAfter();
  if (!end) return std::nullopt;
  const Dictionary entry{{kSecPropertyKeyValue, end->secondsSinceReferenceDate()}};
  values.set(kSecOIDX509V1ValidityNotAfter, entry);
  return values;
}

}  // namespace kvl::security
