#include <local/KVLNotaryASN1.h>
#include <local/platform/Atomic.h>

#include <array>
#include <utility>

namespace {

constexpr std::uint8_t kTagInteger = 0x02;
constexpr std::uint8_t kTagBitString = 0x03;
constexpr std::uint8_t kTagNull = 0x05;
constexpr std::uint8_t kTagObjectIdentifier = 0x06;
constexpr std::uint8_t kTagSequence = 0x30;

// First octet of a length that takes one or two further octets.
constexpr std::uint8_t kLengthInOneOctet = 0x81;
constexpr std::uint8_t kLengthInTwoOctets = 0x82;

constexpr std::uint8_t byte(std::uint64_t value) {
  return static_cast<std::uint8_t>(value & 0xff);
}

}  // namespace

struct KVLNotaryASN1::Implementation {
  kvl::Atomic<kvl::Bytes> data;

  void append(Content bytes) {
    kvl::Bytes grown = data.exchange({});
    grown.insert(grown.end(), bytes.begin(), bytes.end());
    data.set(std::move(grown));
  }
  void append(std::initializer_list<std::uint8_t> bytes) {
    append(Content(bytes.begin(), bytes.size()));
  }
};

KVLNotaryASN1::KVLNotaryASN1() : implementation_(std::make_unique<Implementation>()) {}
KVLNotaryASN1::~KVLNotaryASN1() = default;

kvl::Bytes KVLNotaryASN1::data() const {
  return implementation_->data.get();
}
void KVLNotaryASN1::setData(kvl::Bytes data) {
  implementation_->data.set(std::move(data));
}

void KVLNotaryASN1::appendInt8(std::int8_t value) {
  implementation_->append({kTagInteger, 1, static_cast<std::uint8_t>(value)});
}

void KVLNotaryASN1::appendNull() {
  appendEmptyTag(kTagNull);
}

void KVLNotaryASN1::appendEmptyTag(std::uint8_t tag) {
  implementation_->append({tag, 0});
}

void KVLNotaryASN1::appendObjectIdentifier(const std::uint8_t* bytes, std::uint8_t length) {
  implementation_->append({kTagObjectIdentifier, length});
  implementation_->append(Content(bytes, length));
}

std::optional<kvl::Error> KVLNotaryASN1::appendLength(std::uint64_t length) {
  if (length >= kLengthLimit) return kvl::Error(kvl::NSPOSIXErrorDomain, kvl::errSecDataTooLarge);
  if (length < 0x80) {
    implementation_->append({byte(length)});
  } else if (length < 0x100) {
    implementation_->append({kLengthInOneOctet, byte(length)});
  } else {
    implementation_->append({kLengthInTwoOctets, byte(length >> 8), byte(length)});
  }
  return std::nullopt;
}

std::optional<kvl::Error> KVLNotaryASN1::appendBitString(Content content) {
  kvl::Bytes bits;
  bits.reserve(content.size() + 1);
  bits.push_back(0);  // no unused bits
  bits.insert(bits.end(), content.begin(), content.end());
  return embed(bits, kTagBitString);
}

std::optional<kvl::Error> KVLNotaryASN1::appendSequence(Content content) {
  return embed(content, kTagSequence);
}

std::optional<kvl::Error> KVLNotaryASN1::embed(Content content, std::uint8_t tag) {
  implementation_->append({tag});
  if (auto error = appendLength(content.size())) return error;
  implementation_->append(content);
  return std::nullopt;
}

std::optional<kvl::Bytes> KVLNotaryASN1::asSequenceWithError(
    std::optional<kvl::Error>* error) const {
  KVLNotaryASN1 wrapper;
  if (auto failure = wrapper.appendSequence(data())) {
    kvl::storeError(error, std::move(failure));
    return std::nullopt;
  }
  return wrapper.data();
}

std::optional<kvl::Error> KVLNotaryASN1::finaliseAsSequence() {
  std::optional<kvl::Error> error;
  if (auto sequence = asSequenceWithError(&error)) setData(*std::move(sequence));
  return error;
}
