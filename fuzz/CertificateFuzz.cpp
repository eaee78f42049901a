// Any text with certificates in it, as a notary sends it: what is imported is what OpenSSL reads,
// and reads back. The bytes between the lines are taken as they are, or as what base64 is made of.
#include "fuzz/Choices.h"
#include "platform/core/UTF8.h"
#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"
#include "platform/security/PEMSequence.h"

#include <local/platform/Text.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using kvl::CertificateRef;
using kvl::fuzz::require;
using kvl::security::OpenSSLPtr;

constexpr std::string_view kBeginLine = "-----BEGIN CERTIFICATE-----\n";
constexpr std::string_view kEndLine = "\n-----END CERTIFICATE-----\n";

OpenSSLPtr<X509> readElsewhere(kvl::fuzz::Input der) {
  const kvl::security::ErrorQueueMark mark;
  const unsigned char* next = der.data();
  OpenSSLPtr<X509> certificate(d2i_X509(nullptr, &next, static_cast<long>(der.size())));
  return next == der.data() + der.size() ? std::move(certificate) : nullptr;
}

bool isTimeElsewhere(const ASN1_TIME* time) {
  tm fields{};
  return time != nullptr && ASN1_TIME_to_tm(time, &fields) == 1;
}

void checkCertificate(const CertificateRef& certificate) {
  const auto der = certificate->encoded();
  const auto other = readElsewhere(der.bytes());
  require(other != nullptr, "OpenSSL reads the encoding");
  require(kvl::security::decodeCertificate(der.bytes()) == certificate, "it reads back");
  for (const auto& text : {certificate->subject(), certificate->issuer()})
    require(kvl::core::isUTF8(text), "a name is UTF-8");
  require(kvl::core::isUTF8(certificate->description()), "the description is UTF-8");
  require(
      certificate->notValidAfter().has_value() == isTimeElsewhere(X509_get0_notAfter(other.get())),
      "its end is there when OpenSSL can tell");
  require(certificate->notValidBefore().has_value() ==
              isTimeElsewhere(X509_get0_notBefore(other.get())),
          "its beginning is there when OpenSSL can tell");
  const auto serial = certificate->serialNumber();
  require(serial.find_first_not_of("-0123456789ABCDEF") == std::string::npos, "it has a number");
  std::vector<CertificateRef> again;
  require(kvl::security::SecItemImportCertificates(certificate->pem(), again) == kvl::kSuccess,
          "its text can be imported");
  require(again.size() == 1 && again.front() == certificate, "its text is that certificate");
}

void checkBlocks(std::string_view text) {
  const char* last = text.data();
  for (const auto& block : kvl::security::splitPEM(text)) {
    require(block.label.data() >= last, "blocks come in their order");
    require(block.body.data() >= block.label.data() + block.label.size(),
            "a body stands behind its label");
    require(block.body.data() + block.body.size() <= text.data() + text.size(),
            "both are views of the text");
    require(block.label.find_first_of("\r\n") == std::string_view::npos, "a label is in one line");
    const auto behind = text.substr(static_cast<std::size_t>(block.body.end() - text.begin()));
    require(!block.complete || behind.starts_with("-----END " + std::string(block.label) + "-----"),
            "the end of a block has its label");
    last = block.body.data() + block.body.size();
  }
}

void checkImport(std::string_view text) {
  checkBlocks(text);
  std::vector<CertificateRef> certificates;
  const auto status = kvl::security::SecItemImportCertificates(text, certificates);
  const auto blocks = kvl::security::splitPEM(text);
  require((status == kvl::errSecUnknownFormat) == blocks.empty(), "without a block there is none");
  require(status == kvl::kSuccess || certificates.empty(), "a failure imports nothing");
  require(certificates.size() <= blocks.size(), "each comes from a block");
  for (const auto& certificate : certificates) checkCertificate(certificate);
}

// A block around these bytes, so that any are a certificate or nearly one.
void checkBytes(kvl::fuzz::Input bytes) {
  const std::string text =
      std::string(kBeginLine) + kvl::base64(bytes) + std::string(kEndLine) + "text\n";
  std::vector<CertificateRef> certificates;
  const auto status = kvl::security::SecItemImportCertificates(text, certificates);
  const bool isOne = readElsewhere(bytes) != nullptr;
  require((status == kvl::kSuccess) == isOne, "exactly the bytes of a certificate are one");
  if (isOne) checkCertificate(certificates.at(0));
}

void checkCertificateText(kvl::fuzz::Input input) {
  checkImport(kvl::fuzz::textOf(input));
  checkBytes(input);
}

const kvl::fuzz::Target certificates("certificate", checkCertificateText);

}  // namespace
