/// @file
/// A minimal ASN.1 DER writer (ITU-T X.690) for certificate signing requests.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/Export.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

/// Writes DER elements one after the other. Nested structures are built bottom-up: an inner writer
/// makes its bytes, an outer one embeds them under a tag and a length. Nothing is ever parsed.
///
/// Every append goes to the end of `data()`. An append that fails may leave a stray tag byte
/// behind; abandon the writer after an error. One thread at a time: the `data` property is atomic,
/// but appends are not synchronised.
class KVL_EXPORT KVLNotaryASN1 {
 public:
  /// Content bytes of an element. They are only read during the call.
  using Content = std::span<const std::uint8_t>;

  /// Lengths from here on are refused, although two length octets could carry up to 65535.
  static constexpr std::uint64_t kLengthLimit = 32768;

  /// A writer that has written nothing.
  KVLNotaryASN1();
  ~KVLNotaryASN1();
  KVLNotaryASN1(const KVLNotaryASN1&) = delete;
  KVLNotaryASN1& operator=(const KVLNotaryASN1&) = delete;

  /// `data`: a copy of the bytes written so far.
  [[nodiscard]] kvl::Bytes data() const;
  /// `setData:`
  void setData(kvl::Bytes data);

  /// `appendInt8:` INTEGER of one content byte, the value's byte as it is.
  void appendInt8(std::int8_t value);

  /// `appendNull` NULL.
  void appendNull();

  /// `appendEmptyTag:` An element without content.
  void appendEmptyTag(std::uint8_t tag);

  /// `appendObjectIdentifier:length:` OBJECT IDENTIFIER from content bytes that are already in DER
  /// form. Nothing is checked: beyond 127 bytes the one-byte length is wrong.
  /// @pre `bytes` points to `length` readable bytes.
  void appendObjectIdentifier(const std::uint8_t* bytes, std::uint8_t length);

  /// `appendLength:` The shortest length octets (X.690, 8.1.3). For a length of 32768 or more it
  /// writes nothing and returns `NSPOSIXErrorDomain`, code -25302, which the operations below
  /// pass on.
  [[nodiscard]] std::optional<kvl::Error> appendLength(std::uint64_t length);

  /// `appendBitString:` BIT STRING without unused bits.
  [[nodiscard]] std::optional<kvl::Error> appendBitString(Content content);

  /// `appendSequence:` SEQUENCE.
  [[nodiscard]] std::optional<kvl::Error> appendSequence(Content content);

  /// `embed:within:` Any element. On failure the tag byte stays behind.
  [[nodiscard]] std::optional<kvl::Error> embed(Content content, std::uint8_t tag);

  /// `asSequenceWithError:` This writer's bytes wrapped in a SEQUENCE; the writer stays as it is.
  /// Absent on failure, with the error in `error` when given.
  [[nodiscard]] std::optional<kvl::Bytes> asSequenceWithError(
      std::optional<kvl::Error>* error = nullptr) const;

  /// `finaliseAsSequence` Replaces the bytes by the SEQUENCE that wraps them; on failure they stay.
  [[nodiscard]] std::optional<kvl::Error> finaliseAsSequence();

 private:
  struct KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};
