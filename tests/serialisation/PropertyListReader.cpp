#include "tests/serialisation/PropertyListReader.h"

#include <bit>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kvltest {
namespace {

using Span = std::span<const std::uint8_t>;

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

// What is wrong ends the reading at once.
struct Malformed {};

void require(bool condition) {
  if (!condition) throw Malformed();
}

std::uint64_t number(Span bytes) {
  std::uint64_t result = 0;
  for (const auto byte : bytes) result = result << 8 | byte;
  return result;
}

std::size_t smallestSize(std::uint64_t number) {
  std::size_t size = 1;
  while (size < 8 && number >> (8 * size) != 0) size *= 2;
  return size;
}

std::string_view textOf(Span bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

void appendUTF8(std::string& text, std::uint32_t character) {
  const auto append = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (character < 0x80) return append(character);
  if (character < 0x800) {
    append(0xc0 | character >> 6);
  } else if (character < 0x10000) {
    append(0xe0 | character >> 12);
    append(0x80 | (character >> 6 & 0x3f));
  } else {
    append(0xf0 | character >> 18);
    append(0x80 | (character >> 12 & 0x3f));
    append(0x80 | (character >> 6 & 0x3f));
  }
  append(0x80 | (character & 0x3f));
}

class Reader {
 public:
  explicit Reader(Span bytes) : bytes_(bytes) {
    readTrailer();
    used_.resize(offsets_.size());
  }

  kvl::Value read() {
    kvl::Value value = readObject(0);
    for (const bool used : used_) require(used);
    return value;
  }

 private:
  Span at(std::size_t offset, std::size_t size) const {
    require(offset <= bytes_.size() && size <= bytes_.size() - offset);
    return bytes_.subspan(offset, size);
  }

  void readTrailer() {
    require(bytes_.size() > kHeaderSize + kTrailerSize);
    require(textOf(at(0, kHeaderSize)) == "bplist00");
    const Span trailer = bytes_.last(kTrailerSize);
    const std::uint64_t count = number(trailer.subspan(8, 8));
    const std::uint64_t table = number(trailer.subspan(24, 8));
    const std::size_t offsetSize = trailer[6];
    referenceSize_ = trailer[7];
    require(number(trailer.first(6)) == 0 && number(trailer.subspan(16, 8)) == 0);
    require(count > 0 && referenceSize_ == smallestSize(count - 1));
    require(offsetSize == smallestSize(table));
    require(table < bytes_.size() && count < bytes_.size());
    require(table + count * offsetSize + kTrailerSize == bytes_.size());
    for (std::size_t i = 0; i < count; ++i)
      offsets_.push_back(number(at(table + i * offsetSize, offsetSize)));
    require(offsets_.front() == kHeaderSize);
    for (std::size_t i = 1; i < count; ++i) require(offsets_[i - 1] < offsets_[i]);
    require(offsets_.back() < table);
    offsets_.push_back(table);
    checkLeaves();
    offsets_.pop_back();
    end_ = table;
  }

  // No two objects but containers and data have the same bytes.
  void checkLeaves() {
    std::set<std::string_view> leaves;
    for (std::size_t i = 0; i + 1 < offsets_.size(); ++i) {
      const Span object = at(offsets_[i], offsets_[i + 1] - offsets_[i]);
      if (object[0] >> 4 == 0x4 || object[0] >= 0xa0) continue;
      require(leaves.insert(textOf(object)).second);
    }
  }

  Span take(std::size_t size) {
    const Span taken = at(position_, size);
    position_ += size;
    return taken;
  }

  std::int64_t takeInteger(std::uint8_t marker) {
    require(marker >= 0x10 && marker <= 0x13);
    const std::size_t size = std::size_t{1} << (marker & 0xf);
    const std::uint64_t value = number(take(size));
    require(size == smallestSize(value));
    return static_cast<std::int64_t>(value);
  }

  std::size_t takeCount(std::uint8_t marker) {
    if ((marker & 0xf) != 0xf) return marker & 0xf;
    const std::int64_t count = takeInteger(take(1)[0]);
    require(count >= 0xf);
    return static_cast<std::size_t>(count);
  }

  // The number of the object that each reference stands for.
  std::vector<std::size_t> takeReferences(std::size_t count) {
    require(count <= bytes_.size());
    std::vector<std::size_t> references;
    for (std::size_t i = 0; i < count; ++i) references.push_back(number(take(referenceSize_)));
    return references;
  }

  std::string takeASCII(std::size_t count) {
    const auto text = textOf(take(count));
    for (const char c : text) require(static_cast<std::uint8_t>(c) < 0x80);
    return std::string(text);
  }

  std::string takeUTF16(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
      auto character = static_cast<std::uint32_t>(number(take(2)));
      require(character >> 10 != 0x37);
      if (character >> 10 == 0x36) {
        const auto low = static_cast<std::uint32_t>(number(take(2)));
        require(++i < count && low >> 10 == 0x37);
        character = 0x10000 + ((character & 0x3ff) << 10 | (low & 0x3ff));
      }
      appendUTF8(text, character);
    }
    require(text.size() > count);  // else it would be ASCII
    return text;
  }

  kvl::Array readArray(std::size_t count, std::size_t parent) {
    const auto references = takeReferences(count);
    checkEnd(parent);
    kvl::Array array;
    for (const auto reference : references) array.append(readObject(reference, parent));
    return array;
  }

  kvl::Dictionary readDictionary(std::size_t count, std::size_t parent) {
    const auto references = takeReferences(2 * count);
    checkEnd(parent);
    kvl::Dictionary dictionary;
    for (std::size_t i = 0; i < count; ++i) {
      const kvl::Value key = readObject(references[i], parent);
      require(key.string().has_value() && !dictionary.contains(*key.string()));
      dictionary.set(*key.string(), readObject(references[count + i], parent));
    }
    return dictionary;
  }

  // An object ends where the next one starts.
  void checkEnd(std::size_t object) const {
    require(position_ == (object + 1 < offsets_.size() ? offsets_[object + 1] : end_));
  }

  kvl::Value readObject(std::size_t object, std::size_t parent = 0) {
    require(object < offsets_.size());
    position_ = offsets_[object];
    const std::uint8_t marker = take(1)[0];
    const bool container = marker >= 0xa0;
    require(!container || (!used_[object] && (object > parent || object == 0)));
    used_[object] = true;
    if (marker >> 4 == 0xa) return readArray(takeCount(marker), object);
    if (marker >> 4 == 0xd) return readDictionary(takeCount(marker), object);
    kvl::Value value = readLeaf(marker);
    checkEnd(object);
    return value;
  }

  kvl::Value readLeaf(std::uint8_t marker) {
    if (marker == 0x08 || marker == 0x09) return marker == 0x09;
    if (marker == 0x23) return std::bit_cast<double>(number(take(8)));
    if (marker == 0x33) return kvl::Date(std::bit_cast<double>(number(take(8))));
    switch (marker >> 4) {
      case 0x4:
        return kvl::Data::fromText(textOf(take(takeCount(marker))));
      case 0x5:
        return takeASCII(takeCount(marker));
      case 0x6:
        return takeUTF16(takeCount(marker));
      default:
        return takeInteger(marker);
    }
  }

  Span bytes_;
  std::size_t referenceSize_ = 0;
  std::vector<std::size_t> offsets_;
  std::size_t end_ = 0;  // of the objects
  std::vector<bool> used_;
  std::size_t position_ = 0;
};

}  // namespace

std::optional<kvl::Value> valueFromStrictPropertyList(std::span<const std::uint8_t> bytes) {
  try {
    return Reader(bytes).read();
  } catch (const Malformed&) {
    return std::nullopt;
  }
}

}  // namespace kvltest
