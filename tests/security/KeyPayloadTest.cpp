#include "platform/security/KeyPayload.h"
#include "platform/security/RSAPrivateKey.h"

#include <gtest/gtest.h>
#include <openssl/rsa.h>

namespace kvl::security {
namespace {

StoredKey example() {
  return {"app.tag", Key::Class::privateKey, "label", "", "descripti\xC3\xB6n", {1, 0, 255}};
}

WipedBytes encoded(std::string_view text) {
  return {text.begin(), text.end()};
}

TEST(KeyPayloadTest, HasTheDocumentedLayout) {
  const StoredKey key{"t", Key::Class::privateKey, "l", "", "d", {7, 8}};
  using namespace std::string_view_literals;
  EXPECT_EQ(encodePayload(key),
            encoded("KVLK\1\1\0\0\0\1t\0\0\0\1l\0\0\0\0\0\0\0\1d\0\0\0\2\7\10"sv));
}

TEST(KeyPayloadTest, ComesBackAsItWas) {
  StoredKey key = example();
  for (const Key::Class keyClass : {Key::Class::privateKey, Key::Class::publicKey}) {
    key.keyClass = keyClass;
    const std::optional<StoredKey> decoded = decodePayload(encodePayload(key));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->tag, key.tag);
    EXPECT_EQ(decoded->keyClass, key.keyClass);
    EXPECT_EQ(decoded->label, key.label);
    EXPECT_EQ(decoded->comment, key.comment);
    EXPECT_EQ(decoded->description, key.description);
    EXPECT_EQ(decoded->encoded, key.encoded);
  }
}

// As a host's are.
StoredKey realKey(Key::Class keyClass) {
  const OpenSSLPtr<EVP_PKEY> pair(EVP_RSA_gen(2048));
  const KeyRef key = makeKey(EVP_PKEY_up_ref(pair.get()) == 1 ? pair.get() : nullptr, keyClass);
  return {"org.example.Application",
          keyClass,
          "org.example.Application (Client certificate key)",
          "This is safe to delete. A key will be recreated as needed.",
          "Client certificate key",
          encodeKey(*key)};
}

WipedBytes payloadOfVersion1(const StoredKey& key) {
  StoredKey other = key;
  other.keyClass = Key::Class::publicKey;  // whose encoding is never taken apart
  WipedBytes payload = encodePayload(other);
  payload[5] = 1;
  return payload;
}

TEST(KeyPayloadTest, OfAPrivateKeyOnlyItsPrimesAreKeptAndItComesBackAsItWas) {
  const StoredKey key = realKey(Key::Class::privateKey);
  const WipedBytes payload = encodePayload(key);
  EXPECT_LE(payload.size(), 500U);
  EXPECT_EQ(decodePayload(payload).value().encoded, key.encoded);
}

TEST(KeyPayloadTest, APairTakesAThousandBytesAtMost) {
  EXPECT_LE(encodePayload(realKey(Key::Class::privateKey)).size() +
                encodePayload(realKey(Key::Class::publicKey)).size(),
            1000U);
}

TEST(KeyPayloadTest, PrivateKeysOfVersion1AreRead) {
  const StoredKey key = realKey(Key::Class::privateKey);
  const auto decoded = decodePayload(payloadOfVersion1(key));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->keyClass, Key::Class::privateKey);
  EXPECT_EQ(decoded->encoded, key.encoded);
}

TEST(KeyPayloadTest, AKeyWhoseNumbersDoNotFollowFromItsPrimesIsKeptWhole) {
  StoredKey key = realKey(Key::Class::privateKey);
  key.encoded[key.encoded.size() / 2] ^= 1;
  const WipedBytes payload = encodePayload(key);
  EXPECT_EQ(payload, payloadOfVersion1(key));
  EXPECT_EQ(decodePayload(payload).value().encoded, key.encoded);
}

TEST(KeyPayloadTest, RefusesPrimesOfNoKey) {
  using namespace std::string_view_literals;
  const std::string_view texts = "KVLK\2\1\0\0\0\1t\0\0\0\0\0\0\0\0\0\0\0\0"sv;
  for (const std::string_view numbers :
       {"\0\0\0\1\3\0\0\0\1\0\0\0\0\1\5"sv, "\0\0\0\1\3\0\0\0\1\1\0\0\0\1\1"sv,
        "\0\0\0\0\0\0\0\0\0\0\0\0"sv, "\0\0\0\1\4\0\0\0\1\5\0\0\0\1\7"sv,
        "\0\0\0\1\5\0\0\0\1\7\0\0\0\1\7"sv, "\0\0\0\1\0\0\0\0\1\7\0\0\0\1\13"sv}) {
    EXPECT_FALSE(decodePayload(encoded(std::string(texts) + std::string(numbers))));
  }
}

TEST(KeyPayloadTest, RefusesNumbersWithZeroesInFront) {
  using namespace std::string_view_literals;
  const std::string texts("KVLK\2\1\0\0\0\1t\0\0\0\0\0\0\0\0\0\0\0\0"sv);
  EXPECT_TRUE(decodePayload(encoded(texts + std::string("\0\0\0\1\3\0\0\0\1\5\0\0\0\1\13"sv))));
  EXPECT_FALSE(decodePayload(encoded(texts + std::string("\0\0\0\1\3\0\0\0\2\0\5\0\0\0\1\13"sv))));
}

TEST(KeyPayloadTest, RefusesEveryTruncation) {
  const WipedBytes payload = encodePayload(example());
  for (std::size_t size = 0; size < payload.size(); ++size)
    EXPECT_FALSE(decodePayload(std::span(payload).first(size))) << size;
}

TEST(KeyPayloadTest, RefusesWhatFollows) {
  WipedBytes payload = encodePayload(example());
  payload.push_back(0);
  EXPECT_FALSE(decodePayload(payload));
}

TEST(KeyPayloadTest, RefusesAnotherMagicVersionOrClass) {
  for (const std::size_t position : {0U, 4U, 5U}) {
    WipedBytes payload = encodePayload(example());
    payload[position] = 9;
    EXPECT_FALSE(decodePayload(payload)) << position;
  }
}

TEST(KeyPayloadTest, RefusesLengthsBeyondTheEnd) {
  for (const std::uint8_t high : {std::uint8_t{1}, std::uint8_t{255}}) {
    WipedBytes payload = encodePayload(example());
    payload[6] = high;
    EXPECT_FALSE(decodePayload(payload));
  }
}

TEST(KeyPayloadTest, SurvivesEveryChangedByte) {
  const WipedBytes payload = encodePayload(example());
  for (std::size_t position = 0; position < payload.size(); ++position) {
    for (int bit = 0; bit < 8; ++bit) {
      WipedBytes changed = payload;
      changed[position] = static_cast<std::uint8_t>(changed[position] ^ 1 << bit);
      const std::optional<StoredKey> decoded = decodePayload(changed);
      if (decoded) EXPECT_EQ(encodePayload(*decoded), changed);
    }
  }
}

TEST(KeyPayloadTest, RefusesWhatNoStoreWouldTake) {
  StoredKey key = example();
  key.label = "\xFF";
  EXPECT_FALSE(decodePayload(encodePayload(key)));
  key = example();
  key.tag.clear();
  EXPECT_FALSE(decodePayload(encodePayload(key)));
}

}  // namespace
}  // namespace kvl::security
