#include "platform/serialisation/PropertyListWriter.h"

#include "platform/core/UTF8.h"
#include "platform/serialisation/PropertyListObjects.h"

#include <algorithm>
#include <string>

namespace kvl {
namespace {

using serialisation::PropertyListLeaf;
using serialisation::PropertyListObject;
using serialisation::PropertyListObjects;

constexpr std::size_t kMaximumDepth = 512;

constexpr std::string_view kHeader = "bplist00";
constexpr std::size_t kUnusedTrailerBytes = 6;

// The upper half of an object's first byte; the lower half is a size or a count.
constexpr std::uint8_t kFalse = 0x08;
constexpr std::uint8_t kTrue = 0x09;
constexpr std::uint8_t kInteger = 0x10;
constexpr std::uint8_t kReal = 0x23;  // 2^3 bytes
constexpr std::uint8_t kDate = 0x33;
constexpr std::uint8_t kData = 0x40;
constexpr std::uint8_t kASCII = 0x50;
constexpr std::uint8_t kUTF16 = 0x60;
constexpr std::uint8_t kArray = 0xa0;
constexpr std::uint8_t kDictionary = 0xd0;
constexpr std::uint8_t kCountFollows = 0x0f;

// What in the value a property list cannot hold; empty when there is nothing.
std::string_view obstacleIn(const Value& value, std::size_t depth = 0);

std::string_view obstacleInText(std::string_view text) {
  return core::isUTF8(text) ? "" : "text that is not UTF-8";
}

std::string_view obstacleInArray(const Array& array, std::size_t depth) {
  std::string_view obstacle;
  for (const auto& element : array) {
    if (!obstacle.empty()) break;
    obstacle = obstacleIn(element, depth);
  }
  return obstacle;
}

std::string_view obstacleInDictionary(const Dictionary& dictionary, std::size_t depth) {
  std::string_view obstacle;
  for (const auto& [key, element] : dictionary) {
    if (obstacle.empty()) obstacle = obstacleInText(key);
    if (obstacle.empty()) obstacle = obstacleIn(element, depth);
    if (!obstacle.empty()) break;
  }
  return obstacle;
}

std::string_view obstacleInContainer(const Value& value, std::size_t depth) {
  if (depth > kMaximumDepth) return "arrays and dictionaries more than 512 deep";
  if (const auto array = value.array()) return obstacleInArray(*array, depth);
  return obstacleInDictionary(*value.dictionary(), depth);
}

std::string_view obstacleIn(const Value& value, std::size_t depth) {
  switch (value.kind()) {
    case Value::Kind::null:
      return "null";
    case Value::Kind::object:
      return "an object";
    case Value::Kind::string:
      return obstacleInText(*value.string());
    case Value::Kind::array:
    case Value::Kind::dictionary:
      return obstacleInContainer(value, depth + 1);
    default:
      return {};
  }
}

// How many of 1, 2, 4 and 8 bytes hold the number.
std::uint8_t sizeOf(std::uint64_t number) {
  if (number <= UINT8_MAX) return 1;
  if (number <= UINT16_MAX) return 2;
  return number <= UINT32_MAX ? 4 : 8;
}

// In UTF-16 units. A text has as many as bytes exactly when it is ASCII.
std::size_t lengthInUTF16(std::string_view text) {
  std::size_t length = 0;
  for (const char c : text) {
    const auto byte = static_cast<std::uint8_t>(c);
    length +=
        static_cast<std::size_t>((byte & 0xc0) != 0x80) + static_cast<std::size_t>(byte >= 0xf0);
  }
  return length;
}

// Takes the first character off well-formed text.
char32_t takeCharacter(std::string_view& text) {
  const auto first = static_cast<std::uint8_t>(text.front());
  const std::size_t size = first < 0x80 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  char32_t character = size == 1 ? first : first & (0x7fU >> size);
  for (const char c : text.substr(1, size - 1)) {
    character = character << 6 | (static_cast<std::uint8_t>(c) & 0x3fU);
  }
  text.remove_prefix(size);
  return character;
}

// Writes the objects, the table of their offsets and the trailer.
class PropertyListEncoder {
 public:
  explicit PropertyListEncoder(const PropertyListObjects& objects)
      : objects_(objects), referenceSize_(sizeOf(objects.all().size() - 1)) {
    append(kHeader);
    std::vector<std::size_t> offsets;
    offsets.reserve(objects.all().size());
    for (const auto& object : objects.all()) {
      offsets.push_back(bytes_.size());
      writeObject(object);
    }
    writeOffsets(offsets);
  }

  [[nodiscard]] Data take() { return Data(std::move(bytes_)); }

 private:
  void append(std::uint8_t byte) { bytes_.push_back(byte); }
  void append(std::string_view text) { bytes_.insert(bytes_.end(), text.begin(), text.end()); }

  // The last `size` bytes of the number, the most significant first.
  void append(std::uint64_t number, std::uint8_t size) {
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
      bytes_.push_back(static_cast<std::uint8_t>(number >> shift));
    }
  }

  void writeObject(const PropertyListObject& object) {
    switch (object.leaf.kind) {
      case Value::Kind::data:
        return writeData(*object.value->data());
      case Value::Kind::array:
        writeMarker(kArray, object.references);
        return writeReferences(object);
      case Value::Kind::dictionary:
        writeMarker(kDictionary, object.references / 2);
        return writeReferences(object);
      default:
        return writeLeaf(object.leaf);
    }
  }

  void writeLeaf(const PropertyListLeaf& leaf) {
    switch (leaf.kind) {
      case Value::Kind::boolean:
        return append(leaf.bits != 0 ? kTrue : kFalse);
      case Value::Kind::integer:
        return writeInteger(leaf.bits);
      case Value::Kind::string:
        return writeText(leaf.text);
      default:
        append(leaf.kind == Value::Kind::date ? kDate : kReal);
        append(leaf.bits, sizeof leaf.bits);
    }
  }

  // Eight bytes are a signed number, fewer are not.
  void writeInteger(std::uint64_t number) {
    const std::uint8_t size = sizeOf(number);
    append(static_cast<std::uint8_t>(kInteger | std::countr_zero(size)));
    append(number, size);
  }

  void writeMarker(std::uint8_t kind, std::size_t count) {
    if (count < kCountFollows) return append(static_cast<std::uint8_t>(kind | count));
    append(static_cast<std::uint8_t>(kind | kCountFollows));
    writeInteger(count);
  }

  void writeText(std::string_view text) {
    const std::size_t length = lengthInUTF16(text);
    if (length != text.size()) return writeUTF16(text, length);
    writeMarker(kASCII, length);
    append(text);
  }

  void writeUTF16(std::string_view text, std::size_t length) {
    writeMarker(kUTF16, length);
    while (!text.empty()) {
      const char32_t character = takeCharacter(text);
      if (character < 0x10000) {
        append(character, 2);
      } else {
        append(0xd800 + ((character - 0x10000) >> 10), 2);
        append(0xdc00 + (character & 0x3ff), 2);
      }
    }
  }

  void writeData(const Data& data) {
    writeMarker(kData, data.size());
    append(data.text());
  }

  void writeReferences(const PropertyListObject& object) {
    const auto* reference = objects_.references().data() + object.firstReference;
    for (std::size_t i = 0; i < object.references; ++i) append(reference[i], referenceSize_);
  }

  // The offset table and the trailer, which says where it is and names the first object as the top.
  void writeOffsets(const std::vector<std::size_t>& offsets) {
    const std::size_t start = bytes_.size();
    const std::uint8_t size = sizeOf(start);
    for (const auto offset : offsets) append(offset, size);
    bytes_.resize(bytes_.size() + kUnusedTrailerBytes);
    append(size);
    append(referenceSize_);
    for (const std::uint64_t number : {offsets.size(), std::size_t{0}, start}) append(number, 8);
  }

  const PropertyListObjects& objects_;
  const std::uint8_t referenceSize_;
  Bytes bytes_;
};

}  // namespace

bool isValidForBinaryPropertyList(const Value& value) {
  return obstacleIn(value).empty();
}

std::optional<Data> binaryPropertyListFromValue(const Value& value, std::optional<Error>* error) {
  const auto obstacle = obstacleIn(value);
  if (!obstacle.empty()) {
    const auto text = "a property list cannot hold " + std::string(obstacle);
    storeError(error, Error(NSCocoaErrorDomain, NSPropertyListWriteInvalidError,
                            {{NSDebugDescriptionErrorKey, text}}));
    return std::nullopt;
  }
  storeError(error, std::nullopt);
  return PropertyListEncoder(PropertyListObjects(value)).take();
}

}  // namespace kvl
