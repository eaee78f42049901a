// Certificates: what they tell of themselves, their encodings, and what can be done with them apart
// from trusting them.
#include "platform/core/NoDestructor.h"
#include "platform/security/EqualObjects.h"
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

// No more than the encoding: OpenSSL's parsed form takes ten times as much memory, and many
// certificates are kept until the process ends.
struct CertificateMaterial {
  Data der;

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
  const auto parsed = security::nativeCertificate(*this);
  return parsed ? security::textOf(X509_get_subject_name(parsed.get())) : std::string();
}

std::string Certificate::issuer() const {
  const auto parsed = security::nativeCertificate(*this);
  return parsed ? security::textOf(X509_get_issuer_name(parsed.get())) : std::string();
}

std::string Certificate::serialNumber() const {
  using security::OpenSSLPtr;
  const auto parsed = security::nativeCertificate(*this);
  const ASN1_INTEGER* serial = parsed ? X509_get0_serialNumber(parsed.get()) : nullptr;
  const OpenSSLPtr<BIGNUM> number(serial ? ASN1_INTEGER_to_BN(serial, nullptr) : nullptr);
  const OpenSSLPtr<char> text(number ? BN_bn2hex(number.get()) : nullptr);
  return text ? text.get() : std::string();
}

std::optional<Date> Certificate::notValidAfter() const {
  const auto parsed = security::nativeCertificate(*this);
  return parsed ? security::dateOf(X509_get0_notAfter(parsed.get())) : std::nullopt;
}

std::optional<Date> Certificate::notValidBefore() const {
  const auto parsed = security::nativeCertificate(*this);
  return parsed ? security::dateOf(X509_get0_notBefore(parsed.get())) : std::nullopt;
}

Data Certificate::encoded() const {
  return material_->der;
}

std::string Certificate::pem() const {
  const Data& der = material_->der;
  const security::OpenSSLPtr<BIO> bio(BIO_new(BIO_s_mem()));
  if (!bio ||
      PEM_write_bio(bio.get(), PEM_STRING_X509, "", der.data(), static_cast<long>(der.size())) <= 0)
    return {};
  return security::textOf(bio.get());
}

std::string Certificate::description() const {
  return kvl::format("certificate \"%@\" issued by \"%@\", valid until %@", subject(), issuer(),
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

// Null when the bytes are not exactly one certificate.
OpenSSLPtr<X509> parse(std::span<const std::uint8_t> der) {
  const ErrorQueueMark mark;
  const unsigned char* next = der.data();
  OpenSSLPtr<X509> certificate(d2i_X509(nullptr, &next, static_cast<long>(der.size())));
  return next == der.data() + der.size() ? std::move(certificate) : nullptr;
}

Data encode(X509* certificate) {
  const ErrorQueueMark mark;
  unsigned char* buffer = nullptr;
  const int size = i2d_X509(certificate, &buffer);
  const OpenSSLPtr<unsigned char> owner(buffer);
  return size > 0 ? Data(Bytes(buffer, buffer + size)) : Data();
}

// By their encodings.
EqualObjects<std::string_view, Certificate>& certificates() {
  static NoDestructor<EqualObjects<std::string_view, Certificate>> all;
  return *all;
}

}  // namespace

OpenSSLPtr<X509> nativeCertificate(const Certificate& certificate) noexcept {
  return parse(CertificateMaterial::of(certificate).der.bytes());
}

OpenSSLPtr<STACK_OF(X509)> nativeCertificates(const std::vector<CertificateRef>& certificates) {
  OpenSSLPtr<STACK_OF(X509)> stack(sk_X509_new_null());
  for (const CertificateRef& certificate : certificates) {
    if (!certificate) continue;
    OpenSSLPtr<X509> native = nativeCertificate(*certificate);
    if (!native || sk_X509_push(stack.get(), native.get()) <= 0) return nullptr;
    static_cast<void>(native.release());
  }
  return stack;
}

CertificateRef makeCertificate(X509* adopted) {
  const OpenSSLPtr<X509> owner(adopted);
  Data der = encode(adopted);
  if (der.empty()) return nullptr;
  const std::string_view name = der.text();  // stays where it is when `der` moves
  std::unique_ptr<const CertificateMaterial> material(new CertificateMaterial{std::move(der)});
  return certificates().unify(name, std::make_unique<const Certificate>(std::move(material)));
}

CertificateRef decodeCertificate(std::span<const std::uint8_t> der) {
  // What is known need not be parsed again.
  const std::string_view name(reinterpret_cast<const char*>(der.data()), der.size());
  if (auto known = certificates().find(name)) return known;
  OpenSSLPtr<X509> certificate = parse(der);
  return certificate ? makeCertificate(certificate.release()) : nullptr;
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
