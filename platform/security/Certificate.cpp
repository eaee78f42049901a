// Certificates: what they tell of themselves, their encodings, and what can be done with them apart
// from trusting them.
#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"
#include "platform/security/PEMSequence.h"

#include <local/platform/Log.h>
#include <local/platform/Security.h>

#include <openssl/asn1.h>
#include <openssl/pem.h>
#include <time.h>

namespace kvl {
namespace security {

struct CertificateMaterial {
  OpenSSLPtr<X509> certificate;

  static const CertificateMaterial& of(const Certificate& owner) noexcept {
    return *owner.material_;
  }
};

namespace {

std::string textOf(BIO* bio) {
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio, &text);
  return size > 0 ? std::string(text, static_cast<std::size_t>(size)) : std::string();
}

std::string textOf(const X509_NAME* name) {
  // RFC 2253 escapes every byte beyond ASCII by default; UTF-8 text stays readable without that.
  constexpr unsigned long kFormat =
      XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  const OpenSSLPtr<BIO> bio(BIO_new(BIO_s_mem()));
  if (!bio || X509_NAME_print_ex(bio.get(), name, 0, kFormat) < 0) return {};
  return textOf(bio.get());
}

std::optional<Date> dateOf(const ASN1_TIME* time) {
  const ErrorQueueMark mark;
  tm fields{};
  // Without a time, OpenSSL would answer with the present one.
  if (time == nullptr || ASN1_TIME_to_tm(time, &fields) != 1) return std::nullopt;
  return Date::since1970(static_cast<double>(timegm(&fields)));
}

}  // namespace
}  // namespace security

Certificate::Certificate(std::unique_ptr<const security::CertificateMaterial> material) noexcept
    : material_(std::move(material)) {}

Certificate::~Certificate() = default;

std::string Certificate::subject() const {
  return security::textOf(X509_get_subject_name(material_->certificate.get()));
}

std::string Certificate::issuer() const {
  return security::textOf(X509_get_issuer_name(material_->certificate.get()));
}

std::string Certificate::serialNumber() const {
  using security::OpenSSLPtr;
  const ASN1_INTEGER* serial = X509_get0_serialNumber(material_->certificate.get());
  const OpenSSLPtr<BIGNUM> number(ASN1_INTEGER_to_BN(serial, nullptr));
  const OpenSSLPtr<char> text(number ? BN_bn2hex(number.get()) : nullptr);
  return text ? text.get() : std::string();
}

std::optional<Date> Certificate::notValidAfter() const {
  return security::dateOf(X509_get0_notAfter(material_->certificate.get()));
}

std::optional<Date> Certificate::notValidBefore() const {
  return security::dateOf(X509_get0_notBefore(material_->certificate.get()));
}

Data Certificate::encoded() const {
  unsigned char* buffer = nullptr;
  const int size = i2d_X509(material_->certificate.get(), &buffer);
  const security::OpenSSLPtr<unsigned char> owner(buffer);
  return size > 0 ? Data(Bytes(buffer, buffer + size)) : Data();
}

std::string Certificate::pem() const {
  const security::OpenSSLPtr<BIO> bio(BIO_new(BIO_s_mem()));
  if (!bio || PEM_write_bio_X509(bio.get(), material_->certificate.get()) != 1) return {};
  return security::textOf(bio.get());
}

std::string Certificate::description() const {
  return format("certificate \"%@\" issued by \"%@\", valid until %@", subject(), issuer(),
                notValidAfter());
}

namespace security {
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

X509* nativeCertificate(const Certificate& certificate) noexcept {
  return CertificateMaterial::of(certificate).certificate.get();
}

CertificateRef makeCertificate(X509* adopted) {
  OpenSSLPtr<X509> certificate(adopted);
  return std::make_shared<const Certificate>(
      std::unique_ptr<const CertificateMaterial>(new CertificateMaterial{std::move(certificate)}));
}

CertificateRef decodeCertificate(std::span<const std::uint8_t> der) {
  const ErrorQueueMark mark;
  const unsigned char* next = der.data();
  OpenSSLPtr<X509> certificate(d2i_X509(nullptr, &next, static_cast<long>(der.size())));
  if (!certificate || next != der.data() + der.size()) return nullptr;
  return makeCertificate(certificate.release());
}

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

}  // namespace security
}  // namespace kvl
