// The security operations that the notary uses, under the platform's names and status codes.
// Attribute keys and values are texts spelled as the platform's constants.
//
// Operations on stored keys take the store. Each gives it kKeyStoreTimeLimit for its answer, so
// they may block that long.
#pragma once

#include "platform/security/KeyStore.h"
#include "platform/security/PairGeneration.h"

#include <local/platform/Security.h>
#include <local/platform/Value.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace kvl::security {

inline constexpr std::string_view kSecClass = "kSecClass";
inline constexpr std::string_view kSecClassKey = "kSecClassKey";
inline constexpr std::string_view kSecAttrKeyType = "kSecAttrKeyType";
inline constexpr std::string_view kSecAttrKeyTypeRSA = "kSecAttrKeyTypeRSA";
inline constexpr std::string_view kSecAttrKeyClass = "kSecAttrKeyClass";
inline constexpr std::string_view kSecAttrKeyClassPrivate = "kSecAttrKeyClassPrivate";
inline constexpr std::string_view kSecAttrKeyClassPublic = "kSecAttrKeyClassPublic";
inline constexpr std::string_view kSecAttrApplicationTag = "kSecAttrApplicationTag";
inline constexpr std::string_view kSecAttrKeySizeInBits = "kSecAttrKeySizeInBits";
inline constexpr std::string_view kSecAttrLabel = "kSecAttrLabel";
inline constexpr std::string_view kSecAttrComment = "kSecAttrComment";
inline constexpr std::string_view kSecAttrDescription = "kSecAttrDescription";
inline constexpr std::string_view kSecMatchLimit = "kSecMatchLimit";
inline constexpr std::string_view kSecMatchLimitAll = "kSecMatchLimitAll";
inline constexpr std::string_view kSecOIDX509V1ValidityNotAfter = "2.5.29.24.notAfter";
inline constexpr std::string_view kSecPropertyKeyValue = "value";

// Makes an RSA pair of kSecAttrKeySizeInBits, stores both halves under the parameters' tag, label,
// comment and description, and fills the slots that are not null with one reference each. On
// failure the slots stay untouched. errSecParam: a parameter is missing, of the wrong type or not
// supported (empty tag included); 2048, 3072 and 4096 bits are supported. A pair of that size that
// was begun before is taken for it.
[[nodiscard]] Status SecKeyGeneratePair(KeyStore& store, const Dictionary& parameters,
                                        KeyRef* publicKey, KeyRef* privateKey,
                                        PairGeneration* begun = nullptr);

// Deletes the keys that match the query (kSecClass and kSecAttrApplicationTag required; key class
// and key type narrow it when given). errSecItemNotFound when none did.
[[nodiscard]] Status SecItemDelete(KeyStore& store, const Dictionary& query);

// Finds the keys that match such a query: all with kSecMatchLimitAll, without it the first.
// errSecItemNotFound when there is none.
[[nodiscard]] Status SecItemCopyMatching(KeyStore& store, const Dictionary& query,
                                         std::vector<KeyRef>& keys);

// Joins the certificate to the private key that matches its public key: one that is held in a
// `HeldKey`, for which the store is not asked, or one in the store, of any tag unless one is given:
// other programs' keys are not even read then. errSecItemNotFound when there is none. As long as
// somebody holds an identity, the same certificate and key give the same object.
[[nodiscard]] Status SecIdentityCreateWithCertificate(
    KeyStore& store, const CertificateRef& certificate, IdentityRef& identity,
    std::optional<std::string_view> tag = std::nullopt);

// Imports a PEM sequence (RFC 7468). Text before, between and after blocks is skipped; blocks other
// than certificates are skipped too. errSecUnknownFormat: no PEM block at all; errSecDecode: a
// certificate block that does not decode.
[[nodiscard]] Status SecItemImportCertificates(std::string_view pem,
                                               std::vector<CertificateRef>& certificates);

// The key's attributes (kSecAttrKeyType, kSecAttrKeyClass, kSecAttrKeySizeInBits), or absent.
[[nodiscard]] std::optional<Dictionary> SecKeyCopyAttributes(const KeyRef& key);

// A public RSA key as PKCS#1 RSAPublicKey DER (RFC 8017, A.1.1). A private key is refused with
// errSecParam in NSOSStatusErrorDomain.
[[nodiscard]] std::optional<Data> SecKeyCopyExternalRepresentation(const KeyRef& key,
                                                                   std::optional<Error>* error);

// RSASSA-PKCS1-v1_5 over a ready SHA-256 digest of 32 bytes (RFC 8017, 8.2).
[[nodiscard]] std::optional<Data> SecKeyCreateSignature(const KeyRef& privateKey,
                                                        std::span<const std::uint8_t> digest,
                                                        std::optional<Error>* error);

// SHA-256 (FIPS 180-4), 32 bytes.
[[nodiscard]] Bytes sha256(std::span<const std::uint8_t> bytes);

// The values of a certificate under the given key; only kSecOIDX509V1ValidityNotAfter is known, any
// other gives an empty dictionary. Absent when the field cannot be read. The entry is a dictionary
// whose kSecPropertyKeyValue is a number: seconds since 2001-01-01.
[[nodiscard]] std::optional<Dictionary> SecCertificateCopyValues(const Certificate& certificate,
                                                                 std::string_view key);

}  // namespace kvl::security
