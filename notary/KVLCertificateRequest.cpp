#include "notary/Base64Lines.h"
#include "platform/security/Operations.h"

#include <local/KVLCertificateRequest.h>
#include <local/KVLNotaryASN1.h>

#include <array>
#include <string_view>
#include <utility>

namespace {

using kvl::Bytes;
using kvl::Error;
using MaybeError = std::optional<Error>;

constexpr std::array<std::uint8_t, 9> kRSAEncryption = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                                        0x0d, 0x01, 0x01, 0x01};
constexpr std::array<std::uint8_t, 9> kSHA256WithRSAEncryption = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                                                  0x0d, 0x01, 0x01, 0x0b};
constexpr std::uint8_t kTagAttributes = 0xa0;

Error missingKey(std::string_view what) {
  return {kvl::NSOSStatusErrorDomain, kvl::errSecParam, {{"error", what}}};
}

bool isKnownNotToBeRSA(const kvl::KeyRef& key) {
  const auto attributes = kvl::security::SecKeyCopyAttributes(key);
  if (!attributes) return false;
  return (*attributes)[kvl::security::kSecAttrKeyType].string() !=
         kvl::security::kSecAttrKeyTypeRSA;
}

void appendAlgorithm(KVLNotaryASN1& writer, const std::array<std::uint8_t, 9>& identifier) {
  writer.appendObjectIdentifier(identifier.data(), static_cast<std::uint8_t>(identifier.size()));
  writer.appendNull();
}

MaybeError appendPublicKey(KVLNotaryASN1& information, const kvl::Data& exported) {
  KVLNotaryASN1 algorithm;
  appendAlgorithm(algorithm, kRSAEncryption);
  KVLNotaryASN1 key;
  if (auto error = key.appendSequence(algorithm.data())) return error;
  if (auto error = key.appendBitString(exported.bytes())) return error;
  return information.appendSequence(key.data());
}

// CertificationRequestInfo (RFC 2986, 4.1) with an empty subject and no attributes.
MaybeError writeInformation(KVLNotaryASN1& information, const kvl::Data& exportedKey) {
  information.appendInt8(0);
  if (auto error = information.appendSequence({})) return error;
  if (auto error = appendPublicKey(information, exportedKey)) return error;
  information.appendEmptyTag(kTagAttributes);
  return information.finaliseAsSequence();
}

MaybeError writeSignature(KVLNotaryASN1& writer, const Bytes& information,
                          const kvl::KeyRef& privateKey) {
  MaybeError error;
  const auto digest = kvl::security::sha256(information);
  const auto signature = kvl::security::SecKeyCreateSignature(privateKey, digest, &error);
  if (error || !signature) return error;
  return writer.appendBitString(signature->bytes());
}

// CertificationRequest (RFC 2986, 4.2).
MaybeError writeRequest(KVLNotaryASN1& request, const kvl::Data& exportedKey,
                        const kvl::KeyRef& privateKey) {
  KVLNotaryASN1 information;
  if (auto error = writeInformation(information, exportedKey)) return error;
  KVLNotaryASN1 signature;
  if (auto error = writeSignature(signature, information.data(), privateKey)) return error;
  KVLNotaryASN1 algorithm;
  appendAlgorithm(algorithm, kSHA256WithRSAEncryption);
  if (auto error = algorithm.finaliseAsSequence()) return error;

  Bytes all = information.data();
  for (const auto* part : {&algorithm, &signature}) {
    const auto bytes = part->data();
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  return request.appendSequence(all);
}

std::string asPEM(const Bytes& request) {
  return "-----BEGIN CERTIFICATE REQUEST-----\n" + kvl::notary::base64Lines(request) +
         "\n-----END CERTIFICATE REQUEST-----";
}

// The key's PKCS#1 form; `publicKey` is given up once it has been exported.
std::optional<kvl::Data> exportAndRelease(kvl::KeyRef& publicKey, MaybeError& error) {
  auto exported = kvl::security::SecKeyCopyExternalRepresentation(publicKey, &error);
  publicKey.reset();
  return error ? std::nullopt : std::move(exported);
}

}  // namespace

std::optional<std::string> KVLCertificateRequest::createForPublicKey(
    kvl::KeyRef&& publicKey, const kvl::KeyRef& privateKey, std::optional<kvl::Error>* error) {
  const auto fail = [error](MaybeError failure) {
    kvl::storeError(error, std::move(failure));
    return std::nullopt;
  };
  if (!privateKey) return fail(missingKey("null private key"));
  if (!publicKey) return fail(missingKey("null public key"));
  if (error != nullptr) {
    if (isKnownNotToBeRSA(privateKey)) {
      return fail(Error(kvl::NSOSStatusErrorDomain, kvl::errSecInvalidKeyRef));
    }
    if (*error) return std::nullopt;
  }
  MaybeError failure;
  const auto exported = exportAndRelease(publicKey, failure);
  if (failure) return fail(std::move(failure));
  KVLNotaryASN1 request;
  if (auto written = writeRequest(request, exported.value_or(kvl::Data()), privateKey)) {
    return fail(std::move(written));
  }
  return asPEM(request.data());
}
