#include "devservice/Authority.h"

#include "devservice/Log.h"

#include <arpa/inet.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/obj_mac.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace devservice {
namespace {

using NumberPtr = std::unique_ptr<BIGNUM, Release<BN_free>>;

constexpr int kSerialBits = 128;
constexpr long kVersion3 = 2;
constexpr std::size_t kMaximumCommonName = 64;  // characters, by X.520

void require(bool succeeded, std::string_view what) {
  if (!succeeded) throw std::runtime_error(std::string(what) + ": " + takeOpenSSLError());
}

BioPtr memoryOf(std::string_view text) {
  return BioPtr(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::string contentOf(BIO* memory) {
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(memory, &bytes);
  return std::string(bytes, static_cast<std::size_t>(size));
}

void setSerial(X509* certificate) {
  const NumberPtr number(BN_new());
  require(BN_rand(number.get(), kSerialBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1, "serial");
  require(BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr,
          "serial");
}

// Cut at the limit, never inside a UTF-8 sequence.
std::string shortened(std::string name) {
  if (name.size() <= kMaximumCommonName) return name;
  std::size_t end = kMaximumCommonName;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) --end;
  name.resize(end);
  return name;
}

void setName(X509* certificate, const std::string& commonName) {
  const std::string name = shortened(commonName);
  require(
      X509_NAME_add_entry_by_NID(X509_get_subject_name(certificate), NID_commonName, MBSTRING_UTF8,
                                 reinterpret_cast<const unsigned char*>(name.data()),
                                 static_cast<int>(name.size()), -1, 0) == 1,
      "subject");
}

void addExtension(X509* certificate, X509* issuer, const Extension& extension) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION_free>> made(
      X509V3_EXT_conf_nid(nullptr, &context, extension.nid, extension.value.c_str()));
  require(made && X509_add_ext(certificate, made.get(), -1) == 1, "extension");
}

constexpr const char* kCertificateFile = "ca.pem";
constexpr const char* kKeyFile = "ca.key";
constexpr std::chrono::hours kAuthorityLifetime{24 * 365 * 10};

// A text that is wiped from memory when it is destroyed.
class SecretText {
 public:
  explicit SecretText(std::string text) : text_(std::move(text)) {}
  ~SecretText() { OPENSSL_cleanse(text_.data(), text_.size()); }
  SecretText(const SecretText&) = delete;
  SecretText& operator=(const SecretText&) = delete;
  [[nodiscard]] const std::string& text() const noexcept { return text_; }

 private:
  std::string text_;
};

bool isUsable(X509* certificate, EVP_PKEY* key) {
  return certificate != nullptr && key != nullptr &&
         X509_check_private_key(certificate, key) == 1 &&
         X509_cmp_current_time(X509_get0_notAfter(certificate)) > 0;
}

bool isAddress(const std::string& host) {
  std::array<unsigned char, sizeof(in6_addr)> bytes{};
  return inet_pton(AF_INET, host.c_str(), bytes.data()) == 1 ||
         inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1;
}

std::string alternativeNames(const std::vector<std::string>& hosts) {
  std::string names;
  for (const std::string& host : hosts) {
    if (!names.empty()) names += ',';
    names += (isAddress(host) ? "IP:" : "DNS:") + host;
  }
  return names;
}

std::vector<Extension> leafExtensions(const char* purpose) {
  return {{NID_basic_constraints, "critical,CA:FALSE"},
          {NID_key_usage, "critical,digitalSignature,keyEncipherment"},
          {NID_ext_key_usage, purpose},
          {NID_subject_key_identifier, "hash"},
          {NID_authority_key_identifier, "keyid:always"}};
}

}  // namespace

CertificatePtr makeCertificate(const CertificateContent& content, EVP_PKEY* subject, X509* issuer,
                               EVP_PKEY* issuerKey) {
  CertificatePtr certificate(X509_new());
  X509* const made = certificate.get();
  X509_set_version(made, kVersion3);
  setSerial(made);
  setName(made, content.commonName);
  X509_gmtime_adj(X509_getm_notBefore(made), static_cast<long>(-content.validity.before.count()));
  X509_gmtime_adj(X509_getm_notAfter(made), static_cast<long>(content.validity.after.count()));
  require(X509_set_pubkey(made, subject) == 1, "public key");
  X509* const signer = issuer != nullptr ? issuer : made;
  X509_set_issuer_name(made, X509_get_subject_name(signer));
  for (const Extension& extension : content.extensions) addExtension(made, signer, extension);
  require(X509_sign(made, issuerKey, EVP_sha256()) > 0, "signature");
  return certificate;
}

KeyPtr makeKey() {
  KeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  require(key != nullptr, "key");
  return key;
}

std::string pemText(X509* certificate) {
  const BioPtr memory(BIO_new(BIO_s_mem()));
  require(PEM_write_bio_X509(memory.get(), certificate) == 1, "certificate as text");
  return contentOf(memory.get());
}

std::string pemText(EVP_PKEY* key) {
  const BioPtr memory(BIO_new(BIO_s_secmem()));
  require(PEM_write_bio_PrivateKey(memory.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1,
          "key as text");
  return contentOf(memory.get());
}

CertificatePtr certificateFromPem(std::string_view pem) {
  CertificatePtr certificate(PEM_read_bio_X509(memoryOf(pem).get(), nullptr, nullptr, nullptr));
  ERR_clear_error();
  return certificate;
}

KeyPtr keyFromPem(std::string_view pem) {
  KeyPtr key(PEM_read_bio_PrivateKey(memoryOf(pem).get(), nullptr, nullptr, nullptr));
  ERR_clear_error();
  return key;
}

std::string takeOpenSSLError() {
  std::array<char, 256> text{};
  ERR_error_string_n(ERR_get_error(), text.data(), text.size());
  ERR_clear_error();
  return text.data();
}

Authority Authority::open(const StateDirectory& state) {
  const StateLock lock(state);
  CertificatePtr certificate = certificateFromPem(state.read(kCertificateFile).value_or(""));
  const SecretText secret(state.read(kKeyFile).value_or(""));
  KeyPtr key = keyFromPem(secret.text());
  if (isUsable(certificate.get(), key.get()))
    return Authority(std::move(certificate), std::move(key));
  return make(state);
}

Authority Authority::replace(const StateDirectory& state) {
  const StateLock lock(state);
  return make(state);
}

Authority Authority::make(const StateDirectory& state) {
  KeyPtr key = makeKey();
  const CertificateContent content{"kvlocal development authority",
                                   {kClockTolerance, kAuthorityLifetime},
                                   {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
                                    {NID_key_usage, "critical,keyCertSign,cRLSign"},
                                    {NID_subject_key_identifier, "hash"}}};
  CertificatePtr certificate = makeCertificate(content, key.get(), nullptr, key.get());
  const SecretText secret(pemText(key.get()));
  state.write(kKeyFile, secret.text());
  state.write(kCertificateFile, pemText(certificate.get()));
  log("made a new authority in " + state.file(kCertificateFile).string());
  return Authority(std::move(certificate), std::move(key));
}

CertificatePtr Authority::issueClient(EVP_PKEY* key, const std::string& commonName,
                                      std::chrono::seconds lifetime) const {
  return makeCertificate({commonName, {kClockTolerance, lifetime}, leafExtensions("clientAuth")},
                         key, certificate_.get(), key_.get());
}

CertificatePtr Authority::issueServer(EVP_PKEY* key, const std::vector<std::string>& hosts,
                                      Validity validity) const {
  CertificateContent content{hosts.front(), validity, leafExtensions("serverAuth")};
  content.extensions.push_back({NID_subject_alt_name, alternativeNames(hosts)});
  return makeCertificate(content, key, certificate_.get(), key_.get());
}

}  // namespace devservice
