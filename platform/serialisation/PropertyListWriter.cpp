#include "platform/serialisation/PropertyListWriter.h"

#include "platform/core/UTF8.h"
#include "platform/serialisation/OutputBuffer.h"
#include "platform/serialisation/PropertyListObjects.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

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
  // An object's number becomes its offset.
  explicit PropertyListEncoder(PropertyListObjects& objects)
      : objects_(objects), referenceSize_(sizeOf(objects.all().size() - 1)) {
    start_ = buffer_.reserve(mostBytes());
    next_ = start_;
    put(kHeader);
    for (auto& object : objects.all()) {
      const std::size_t offset = position();
      putObject(object);
      object = {object.kind(), offset};
    }
    putOffsets();
    buffer_.written(next_);
  }

  [[nodiscard]] Data take() { return std::move(buffer_).take(); }

 private:
  // What the whole list takes at most, and hardly less, so that the bytes stay where they are
  // written.
  [[nodiscard]] std::size_t mostBytes() const {
    const std::size_t offsets =
        kHeader.size() + objects_.mostBytes() + objects_.references().size() * referenceSize_;
    return offsets + objects_.all().size() * sizeOf(offsets) + kTrailerBytes;
  }

  [[nodiscard]] std::size_t position() const noexcept {
    return static_cast<std::size_t>(next_ - start_);
  }

  void put(std::uint8_t byte) noexcept { *next_++ = static_cast<char>(byte); }

  void put(std::string_view bytes) noexcept {
    next_ = std::copy(bytes.begin(), bytes.end(), next_);
  }

  // The last `size` bytes of the number, the most significant first. Eight are written, and what
  // comes next goes over those that do not count: there is always the trailer behind them.
  void put(std::uint64_t number, std::uint8_t size) noexcept {
    number <<= 8 * (sizeof number - size);
    if constexpr (std::endian::native == std::endian::little) number = __builtin_bswap64(number);
    std::memcpy(next_, &number, sizeof number);
    next_ += size;
  }

  void putObject(const PropertyListObject& object) {
    switch (object.kind()) {
      case Value::Kind::boolean:
        return put(object.number() != 0 ? kTrue : kFalse);
      case Value::Kind::integer:
        return putInteger(object.number());
      case Value::Kind::string:
        return object.isASCII() ? putBytes(kASCII, object.text()) : putUTF16(object.text());
      case Value::Kind::data:
        return putBytes(kData, object.text());
      case Value::Kind::array:
        putMarker(kArray, object.size());
        return putReferences(object);
      case Value::Kind::dictionary:
        putMarker(kDictionary, object.size() / 2);
        return putReferences(object);
      default:
        put(object.kind() == Value::Kind::date ? kDate : kReal);
        put(object.number(), sizeof object.number());
    }
  }

  // Eight bytes are a signed number, fewer are not.
  void putInteger(std::uint64_t number) noexcept {
    const std::uint8_t size = sizeOf(number);
    put(static_cast<std::uint8_t>(kInteger | std::countr_zero(size)));
    put(number, size);
  }

  void putMarker(std::uint8_t kind, std::size_t count) noexcept {
    if (count < kCountFollows) return put(static_cast<std::uint8_t>(kind | count));
    put(static_cast<std::uint8_t>(kind | kCountFollows));
    putInteger(count);
  }

  void putBytes(std::uint8_t kind, std::string_view bytes) noexcept {
    putMarker(kind, bytes.size());
    put(bytes);
  }

  void putUTF16(std::string_view text) noexcept {
    putMarker(kUTF16, lengthInUTF16(text));
    while (!text.empty()) {
      const char32_t character = takeCharacter(text);
      if (character < 0x10000) {
        put(character, 2);
      } else {
        put(0xd800 + ((character - 0x10000) >> 10), 2);
        put(0xdc00 + (character & 0x3ff), 2);
      }
    }
  }

  void putReferences(const PropertyListObject& object) noexcept {
    const auto* reference = objects_.references().data() + object.number();
    const auto* const end = reference + object.size();
    const std::uint8_t size = referenceSize_;
    for (; reference != end; ++reference) put(*reference, size);
  }

  // The offset table and the trailer, which says where it is and names the first object as the top.
  void putOffsets() noexcept {
    const std::size_t start = position();
    const std::uint8_t size = sizeOf(start);
    for (const auto& object : objects_.all()) put(object.number(), size);
    for (std::size_t i = 0; i < kUnusedTrailerBytes; ++i) put(0);
    put(size);
    put(referenceSize_);
    for (const std::uint64_t number : {objects_.all().size(), std::size_t{0}, start})
      put(number, sizeof number);
  }

  PropertyListObjects& objects_;
  const std::uint8_t referenceSize_;
  serialisation::OutputBuffer buffer_;
  char* start_ = nullptr;
  char* next_ = nullptr;
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
  PropertyListObjects objects(value);
  // The objects come in another order than the value names what it holds.
  if (!objects.areComplete()) return notHeld(obstacleIn(value), error);
  storeError(error, std::nullopt);
  return PropertyListEncoder(objects).take();
}

}  // namespace kvl
