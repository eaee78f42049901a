#include "devservice/Authority.h"

#include "devservice/Log.h"

#include <arpa/inet.h>
#include <openssl/crypto.h>
#include <openssl/obj_mac.h>

#include <array>
#include <optional>
#include <utility>

namespace devservice {
namespace {

constexpr const char* kCertificateFile = "ca.pem";
constexpr const char* kKeyFile = "ca.key";
constexpr std::chrono::hours kAuthorityLifetime{24 * 365 * 10};

// Wipes a text when it goes.
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
