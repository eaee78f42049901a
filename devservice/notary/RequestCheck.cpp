#include "devservice/notary/RequestCheck.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <optional>
#include <vector>

namespace devservice {
namespace {

constexpr std::string_view kHead = "-----BEGIN CERTIFICATE REQUEST-----\n";
constexpr std::string_view kTail = "-----END CERTIFICATE REQUEST-----";
constexpr std::size_t kMaximumLine = 64;

using DER = std::vector<unsigned char>;

bool isBase64(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '+' ||
         character == '/' || character == '=';
}

// The text between the labels without its line ends; absent when lines are not well formed.
std::optional<std::string> joinedLines(std::string_view body) {
  std::string joined;
  while (!body.empty()) {
    const std::size_t end = body.find('\n');
    if (end == std::string_view::npos || end == 0) return std::nullopt;
    // Lines may end in CR LF (RFC 7468, 3).
    const std::string_view line = body.substr(0, body[end - 1] == '\r' ? end - 1 : end);
    if (line.size() > kMaximumLine) return std::nullopt;
    joined += line;
    body.remove_prefix(end + 1);
  }
  return std::all_of(joined.begin(), joined.end(), isBase64) ? std::optional(joined) : std::nullopt;
}

std::optional<DER> decoded(const std::string& base64) {
  if (base64.empty() || base64.size() % 4 != 0) return std::nullopt;
  DER bytes(base64.size() / 4 * 3);
  const int size =
      EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(base64.data()),
                      static_cast<int>(base64.size()));
  if (size < 0) return std::nullopt;
  const std::size_t content = base64.find('=');
  const std::size_t padding = content == std::string::npos ? 0 : base64.size() - content;
  if (padding > 2) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(size) - padding);
  return bytes;
}

std::optional<DER> decodedBlock(std::string_view pem) {
  if (pem.ends_with('\n')) pem.remove_suffix(1);
  if (!pem.starts_with(kHead) || !pem.ends_with(kTail)) return std::nullopt;
  pem.remove_prefix(kHead.size());
  if (pem.size() < kTail.size()) return std::nullopt;
  pem.remove_suffix(kTail.size());
  const std::optional<std::string> base64 = joinedLines(pem);
  return base64 ? decoded(*base64) : std::nullopt;
}

bool isDistinguished(X509_REQ* request, const DER& der) {
  // Encoded anew from the parts: the cached bytes of the signed part would hide a difference.
  unsigned char* tbs = nullptr;
  OPENSSL_free(i2d_re_X509_REQ_tbs(request, &tbs) >= 0 ? tbs : nullptr);
  unsigned char* bytes = nullptr;
  const int size = i2d_X509_REQ(request, &bytes);
  const bool equal = size >= 0 && static_cast<std::size_t>(size) == der.size() &&
                     std::memcmp(bytes, der.data(), der.size()) == 0;
  OPENSSL_free(bytes);
  return equal;
}

bool isStrongRSA(EVP_PKEY* key) {
  return key != nullptr && EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA &&
         EVP_PKEY_get_bits(key) >= kMinimumKeyBits && EVP_PKEY_get_bits(key) <= kMaximumKeyBits;
}

bool isStrongSignature(int nid) {
  constexpr std::array strong{NID_sha256WithRSAEncryption, NID_sha384WithRSAEncryption,
                              NID_sha512WithRSAEncryption};
  return std::find(strong.begin(), strong.end(), nid) != strong.end();
}

std::string firstFault(X509_REQ* request, const DER& der) {
  EVP_PKEY* const key = X509_REQ_get0_pubkey(request);
  if (X509_REQ_get_version(request) != 0) return "The request's version is not 0.";
  if (!isStrongRSA(key)) return "The request's key is not an RSA key of 2048 to 16384 bits.";
  if (!isStrongSignature(X509_REQ_get_signature_nid(request)))
    return "The request is not signed with RSA and SHA-2.";
  if (X509_REQ_verify(request, key) != 1) return "The request's signature does not verify.";
  if (!isDistinguished(request, der)) return "The request is not in DER.";
  return {};
}

}  // namespace

std::variant<RequestPtr, Refusal> checkRequest(std::string_view pem) {
  if (pem.size() > kMaximumRequestSize) return Refusal{"The request is too large."};
  const std::optional<DER> der = decodedBlock(pem);
  if (!der) return Refusal{"The request is not one PEM block labelled CERTIFICATE REQUEST."};
  const unsigned char* next = der->data();
  RequestPtr request(d2i_X509_REQ(nullptr, &next, static_cast<long>(der->size())));
  ERR_clear_error();
  if (!request) return Refusal{"The request is not a PKCS#10 request."};
  if (next != der->data() + der->size()) return Refusal{"The request has trailing bytes."};
  std::string fault = firstFault(request.get(), *der);
  ERR_clear_error();
  if (!fault.empty()) return Refusal{std::move(fault)};
  return request;
}

}  // namespace devservice
