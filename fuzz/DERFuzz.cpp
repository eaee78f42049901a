// A structure made from the bytes: the writer writes each of its elements as OpenSSL writes it, and
// refuses those that are too long.
#include "fuzz/Choices.h"
#include "platform/security/OpenSSLAccess.h"

#include <local/KVLNotaryASN1.h>

#include <openssl/asn1.h>

#include <string>

namespace {

using kvl::Bytes;
using kvl::fuzz::Choices;
using kvl::fuzz::require;

constexpr int kDeepestElement = 6;

// What the writer wrote so far, and what it should have written.
struct Written {
  KVLNotaryASN1 writer;
  Bytes expected;
};

void appendTo(Bytes& all, const Bytes& bytes) {
  all.insert(all.end(), bytes.begin(), bytes.end());
}

Bytes element(std::uint8_t tag, const Bytes& content) {
  const int constructed = (tag & V_ASN1_CONSTRUCTED) != 0 ? 1 : 0;
  const int number = tag & V_ASN1_PRIMITIVE_TAG;
  const int size = static_cast<int>(content.size());
  Bytes bytes(static_cast<std::size_t>(ASN1_object_size(constructed, size, number)));
  unsigned char* next = bytes.data();
  ASN1_put_object(&next, constructed, size, number, tag & V_ASN1_PRIVATE);
  bytes.resize(static_cast<std::size_t>(next - bytes.data()));
  appendTo(bytes, content);
  return bytes;
}

// Some of the lengths at which the octets of a length change.
Bytes contentFrom(Choices& choices) {
  constexpr std::array<std::size_t, 10> kLengths{0,   1,   127,   128,   255,
                                                 256, 300, 32766, 32767, 32768};
  const bool isLong = choices.yes();
  const auto length = isLong ? choices.of(kLengths) : 0;
  const auto text = choices.text();
  Bytes content(text.begin(), text.end());
  if (isLong) content.resize(length, 'x');
  return content;
}

// A tag of a single byte.
std::uint8_t tagFrom(Choices& choices) {
  const auto tag = choices.byte();
  return (tag & V_ASN1_PRIMITIVE_TAG) == V_ASN1_PRIMITIVE_TAG ? tag - 1 : tag;
}

void checkOutcome(const std::optional<kvl::Error>& error, std::size_t size, Written& written,
                  std::uint8_t tag, const Bytes& content) {
  require(error.has_value() == (size >= KVLNotaryASN1::kLengthLimit),
          "what is too long is refused");
  require(!error || error->code() == kvl::errSecDataTooLarge, "the refusal says why");
  // The tag stays behind: nothing is written after it, so that the rest can be compared.
  if (error) return written.expected.push_back(tag);
  appendTo(written.expected, element(tag, content));
}

void appendNumber(Choices& choices, Written& written) {
  const auto value = static_cast<std::int8_t>(choices.byte());
  written.writer.appendInt8(value);
  Bytes integer{static_cast<std::uint8_t>(value)};
  appendTo(written.expected, element(V_ASN1_INTEGER, integer));
}

void appendIdentifier(Choices& choices, Written& written) {
  const auto text = choices.text(choices.byte() & 0x7fU);
  const Bytes content(text.begin(), text.end());
  written.writer.appendObjectIdentifier(content.data(), static_cast<std::uint8_t>(content.size()));
  appendTo(written.expected, element(V_ASN1_OBJECT, content));
}

void appendBits(Choices& choices, Written& written) {
  Bytes content = contentFrom(choices);
  const auto error = written.writer.appendBitString(content);
  content.insert(content.begin(), 0);
  checkOutcome(error, content.size(), written, V_ASN1_BIT_STRING, content);
}

void appendElements(Choices& choices, Written& written, int depth);

void appendNested(Choices& choices, Written& written, int depth) {
  constexpr std::uint8_t kSequence = V_ASN1_SEQUENCE | V_ASN1_CONSTRUCTED;
  Written inner;
  appendElements(choices, inner, depth + 1);
  const auto content = inner.writer.data();
  checkOutcome(written.writer.appendSequence(content), content.size(), written, kSequence, content);
  std::optional<kvl::Error> error;
  const auto wrapped = inner.writer.asSequenceWithError(&error);
  require(wrapped.has_value() != error.has_value(), "there is either a sequence or an error");
  require(!wrapped || *wrapped == element(kSequence, content), "the sequence wraps its content");
  const auto refusal = inner.writer.finaliseAsSequence();
  require(refusal.has_value() == error.has_value(), "both refuse the same");
  require(inner.writer.data() == (wrapped ? *wrapped : content), "a refusal changes nothing");
}

void appendElements(Choices& choices, Written& written, int depth) {
  for (auto count = choices.below(6); count > 0; --count) {
    const auto kind = choices.below(depth < kDeepestElement ? 7 : 6);
    if (kind == 0) appendNumber(choices, written);
    if (kind == 1) appendIdentifier(choices, written);
    if (kind == 2) appendBits(choices, written);
    if (kind == 3) {
      written.writer.appendNull();
      appendTo(written.expected, element(V_ASN1_NULL, {}));
    }
    if (kind == 4) {
      const auto tag = tagFrom(choices);
      written.writer.appendEmptyTag(tag);
      appendTo(written.expected, {tag, 0});
    }
    if (kind == 5) {
      const auto tag = tagFrom(choices);
      const auto content = contentFrom(choices);
      checkOutcome(written.writer.embed(content, tag), content.size(), written, tag, content);
    }
    if (kind == 6) appendNested(choices, written, depth);
    require(written.writer.data() == written.expected, "the element is as OpenSSL writes it");
  }
}

void checkDER(kvl::fuzz::Input input) {
  Choices choices(input);
  Written written;
  appendElements(choices, written, 0);
}

const kvl::fuzz::Target derWriter("der", checkDER);

}  // namespace
