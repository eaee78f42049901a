#include "platform/security/KeyPayload.h"

#include "platform/security/KeyStore.h"
#include "platform/security/RSAPrivateKey.h"

#include <algorithm>
#include <array>

namespace kvl::security {
namespace {

constexpr std::array<std::uint8_t, 4> kMagic{'K', 'V', 'L', 'K'};
constexpr std::uint8_t kWithEncoding = 1;
constexpr std::uint8_t kWithPrimes = 2;
constexpr std::size_t kLengthSize = 4;
constexpr std::uint8_t kPublicByte = 0;
constexpr std::uint8_t kPrivateByte = 1;

template <class Content>
void appendField(WipedBytes& payload, const Content& content) {
  for (std::size_t i = kLengthSize; i-- > 0;)
    payload.push_back(static_cast<std::uint8_t>(content.size() >> (8 * i)));
  payload.insert(payload.end(), content.begin(), content.end());
}

// Takes fields off the front; once one does not fit, all later ones fail too.
class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  bool take(std::size_t size, std::span<const std::uint8_t>& bytes) {
    if (failed_ || size > rest_.size()) return fail();
    bytes = rest_.first(size);
    rest_ = rest_.subspan(size);
    return true;
  }

  template <class Content>
  void field(Content& content) {
    std::span<const std::uint8_t> bytes;
    if (!take(kLengthSize, bytes)) return;
    std::size_t size = 0;
    for (const std::uint8_t byte : bytes) size = size << 8 | byte;
    if (take(size, bytes)) content.assign(bytes.begin(), bytes.end());
  }

  [[nodiscard]] bool finished() const { return !failed_ && rest_.empty(); }

 private:
  bool fail() {
    failed_ = true;
    return false;
  }

  std::span<const std::uint8_t> rest_;
  bool failed_ = false;
};

// Whether it is there, with the version and the class that it names.
bool takeHeader(Reader& reader, std::uint8_t& version, Key::Class& keyClass) {
  std::span<const std::uint8_t> magic;
  std::span<const std::uint8_t> bytes;
  if (!reader.take(kMagic.size(), magic) || !reader.take(2, bytes) ||
      !std::ranges::equal(magic, kMagic) || bytes[1] > kPrivateByte)
    return false;
  version = bytes[0];
  keyClass = bytes[1] == kPrivateByte ? Key::Class::privateKey : Key::Class::publicKey;
  return version == kWithEncoding || (version == kWithPrimes && keyClass == Key::Class::privateKey);
}

// The encoding that was put in, in whatever form.
WipedBytes takeEncoding(Reader& reader, std::uint8_t version) {
  WipedBytes encoded;
  RSAPrimes primes;
  if (version == kWithEncoding) {
    reader.field(encoded);
    return encoded;
  }
  for (WipedBytes* number : {&primes.exponent, &primes.first, &primes.second})
    reader.field(*number);
  return reader.finished() ? encodeRSAPrivateKey(primes) : encoded;
}

}  // namespace

WipedBytes encodePayload(const StoredKey& key) {
  const bool isPrivate = key.keyClass == Key::Class::privateKey;
  const auto primes = isPrivate ? primesOfRSAPrivateKey(key.encoded) : std::nullopt;
  WipedBytes payload(kMagic.begin(), kMagic.end());
  payload.push_back(primes ? kWithPrimes : kWithEncoding);
  payload.push_back(isPrivate ? kPrivateByte : kPublicByte);
  for (const std::string* text : {&key.tag, &key.label, &key.comment, &key.description})
    appendField(payload, *text);
  if (!primes) {
    appendField(payload, key.encoded);
    return payload;
  }
  for (const WipedBytes* number : {&primes->exponent, &primes->first, &primes->second})
    appendField(payload, *number);
  return payload;
}

std::optional<StoredKey> decodePayload(std::span<const std::uint8_t> payload) {
  Reader reader(payload);
  std::uint8_t version = 0;
  StoredKey key;
  if (!takeHeader(reader, version, key.keyClass)) return std::nullopt;
  for (std::string* text : {&key.tag, &key.label, &key.comment, &key.description})
    reader.field(*text);
  key.encoded = takeEncoding(reader, version);
  if (!reader.finished() || checkStorable(key) != kSuccess) return std::nullopt;
  // One key has one form of this version: no zeros stand in front of a number.
  if (version == kWithPrimes && !std::ranges::equal(encodePayload(key), payload))
    return std::nullopt;
  return key;
}

}  // namespace kvl::security
