#include "platform/serialisation/PropertyListWriter.h"

#include "platform/core/UTF8.h"
#include "platform/serialisation/OutputBuffer.h"
#include "platform/serialisation/PropertyListObjects.h"

#include <bit>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl {
namespace {

using serialisation::PropertyListObject;
using serialisation::PropertyListObjects;

constexpr std::string_view kHeader = "bplist00";
constexpr std::size_t kUnusedTrailerBytes = 6;
constexpr std::size_t kTrailerBytes = 32;

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
  if (depth > serialisation::kPropertyListDepth)
    return "arrays and dictionaries more than 512 deep";
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

// In UTF-16 units.
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
    static_cast<void>(buffer_.reserve(mostBytes()));
    buffer_.append(kHeader);
    std::vector<std::size_t> offsets;
    offsets.reserve(objects.all().size());
    for (const auto& object : objects.all()) {
      offsets.push_back(buffer_.size());
      writeObject(object);
    }
    writeOffsets(offsets);
  }

  [[nodiscard]] Data take() { return std::move(buffer_).take(); }

 private:
  // What the whole list takes at most, and hardly less, so that the bytes stay where they are
  // written.
  [[nodiscard]] std::size_t mostBytes() const {
    std::size_t most = kHeader.size() + kTrailerBytes;
    for (const auto& object : objects_.all()) most += mostBytesOf(object);
    return most + objects_.all().size() * sizeOf(most);
  }

  [[nodiscard]] std::size_t mostBytesOf(const PropertyListObject& object) const {
    constexpr std::size_t kMarker = 1;
    if (object.size == 0) return kMarker + sizeof object.number;
    const std::size_t unit = object.bytes == nullptr ? referenceSize_ : object.isASCII ? 1 : 2;
    const std::size_t count = object.size < kCountFollows ? 0 : 1 + sizeOf(object.size);
    return kMarker + count + unit * object.size;
  }

  void append(std::uint8_t byte) { buffer_.append(static_cast<char>(byte)); }

  // The last `size` bytes of the number, the most significant first.
  void append(std::uint64_t number, std::uint8_t size) {
    buffer_.written(appended(buffer_.reserve(size), number, size));
  }
  static char* appended(char* out, std::uint64_t number, std::uint8_t size) {
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
      *out++ = static_cast<char>(number >> shift);
    }
    return out;
  }

  void writeObject(const PropertyListObject& object) {
    switch (object.kind) {
      case Value::Kind::boolean:
        return append(object.number != 0 ? kTrue : kFalse);
      case Value::Kind::integer:
        return writeInteger(object.number);
      case Value::Kind::string:
        return object.isASCII ? writeBytes(kASCII, object.text()) : writeUTF16(object.text());
      case Value::Kind::data:
        return writeBytes(kData, object.text());
      case Value::Kind::array:
        writeMarker(kArray, object.size);
        return writeReferences(object);
      case Value::Kind::dictionary:
        writeMarker(kDictionary, object.size / 2);
        return writeReferences(object);
      default:
        append(object.kind == Value::Kind::date ? kDate : kReal);
        append(object.number, sizeof object.number);
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

  void writeBytes(std::uint8_t kind, std::string_view bytes) {
    writeMarker(kind, bytes.size());
    buffer_.append(bytes);
  }

  void writeUTF16(std::string_view text) {
    const std::size_t length = lengthInUTF16(text);
    writeMarker(kUTF16, length);
    char* out = buffer_.reserve(2 * length);
    while (!text.empty()) {
      const char32_t character = takeCharacter(text);
      if (character < 0x10000) {
        out = appended(out, character, 2);
      } else {
        out = appended(out, 0xd800 + ((character - 0x10000) >> 10), 2);
        out = appended(out, 0xdc00 + (character & 0x3ff), 2);
      }
    }
    buffer_.written(out);
  }

  void writeReferences(const PropertyListObject& object) {
    const auto* reference = objects_.references().data() + object.number;
    writeNumbers(reference, reference + object.size, referenceSize_);
  }

  template <class Number>
  void writeNumbers(const Number* number, const Number* end, std::uint8_t size) {
    char* out = buffer_.reserve(static_cast<std::size_t>(end - number) * size);
    for (; number != end; ++number) out = appended(out, *number, size);
    buffer_.written(out);
  }

  // The offset table and the trailer, which says where it is and names the first object as the top.
  void writeOffsets(const std::vector<std::size_t>& offsets) {
    const std::size_t start = buffer_.size();
    const std::uint8_t size = sizeOf(start);
    writeNumbers(offsets.data(), offsets.data() + offsets.size(), size);
    for (std::size_t i = 0; i < kUnusedTrailerBytes; ++i) append(0);
    append(size);
    append(referenceSize_);
    for (const std::uint64_t number : {offsets.size(), std::size_t{0}, start}) append(number, 8);
  }

  const PropertyListObjects& objects_;
  const std::uint8_t referenceSize_;
  serialisation::OutputBuffer buffer_;
};

std::optional<Data> notHeld(std::string_view obstacle, std::optional<Error>* error) {
  const auto text = "a property list cannot hold " + std::string(obstacle);
  storeError(error, Error(NSCocoaErrorDomain, NSPropertyListWriteInvalidError,
                          {{NSDebugDescriptionErrorKey, text}}));
  return std::nullopt;
}

}  // namespace

bool isValidForBinaryPropertyList(const Value& value) {
  return obstacleIn(value).empty();
}

std::optional<Data> binaryPropertyListFromValue(const Value& value, std::optional<Error>* error) {
  const PropertyListObjects objects(value);
  // The objects come in another order than the value names what it holds.
  if (!objects.areComplete()) return notHeld(obstacleIn(value), error);
  storeError(error, std::nullopt);
  return PropertyListEncoder(objects).take();
}

}  // namespace kvl
