#include "platform/security/KeyPayload.h"

#include "platform/security/KeyStore.h"

#include <algorithm>
#include <array>

namespace kvl::security {
namespace {

constexpr std::array<std::uint8_t, 5> kMagicAndVersion{'K', 'V', 'L', 'K', 1};
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

std::optional<Key::Class> takeHeader(Reader& reader) {
  std::span<const std::uint8_t> magic;
  std::span<const std::uint8_t> keyClass;
  if (!reader.take(kMagicAndVersion.size(), magic) || !reader.take(1, keyClass) ||
      !std::ranges::equal(magic, kMagicAndVersion) || keyClass[0] > kPrivateByte)
    return std::nullopt;
  return keyClass[0] == kPrivateByte ? Key::Class::privateKey : Key::Class::publicKey;
}

}  // namespace

WipedBytes encodePayload(const StoredKey& key) {
  WipedBytes payload(kMagicAndVersion.begin(), kMagicAndVersion.end());
  payload.push_back(key.keyClass == Key::Class::privateKey ? kPrivateByte : kPublicByte);
  for (const std::string* text : {&key.tag, &key.label, &key.comment, &key.description})
    appendField(payload, *text);
  appendField(payload, key.encoded);
  return payload;
}

std::optional<StoredKey> decodePayload(std::span<const std::uint8_t> payload) {
  Reader reader(payload);
  const std::optional<Key::Class> keyClass = takeHeader(reader);
  if (!keyClass) return std::nullopt;
  StoredKey key;
  key.keyClass = *keyClass;
  for (std::string* text : {&key.tag, &key.label, &key.comment, &key.description})
    reader.field(*text);
  reader.field(key.encoded);
  if (!reader.finished() || checkStorable(key) != kSuccess) return std::nullopt;
  return key;
}

}  // namespace kvl::security
