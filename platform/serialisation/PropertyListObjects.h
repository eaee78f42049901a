// The objects of a binary property list before they are written.
#pragma once

#include <local/platform/Value.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kvl::serialisation {

// So many containers may stand in one another.
inline constexpr std::size_t kPropertyListDepth = 512;

// One object. Refers to the value that it was made from. Small, since a document of some size has
// thousands of them.
class PropertyListObject {
 public:
  // A boolean, an integer in two's complement or the bits of a double. Or a container of so many
  // references, an array's values or a dictionary's keys and then its values: the number is where
  // they begin.
  PropertyListObject(Value::Kind kind, std::uint64_t number, std::size_t references = 0) noexcept
      : number_(number), form_(formOf(kind, references, false)) {}
  // A string or data.
  PropertyListObject(Value::Kind kind, std::string_view bytes, bool isASCII) noexcept
      : bytes_(bytes.data()), form_(formOf(kind, bytes.size(), isASCII)) {}

  [[nodiscard]] Value::Kind kind() const noexcept { return static_cast<Value::Kind>(form_ & 0xff); }
  [[nodiscard]] bool isASCII() const noexcept { return (form_ & kASCII) != 0; }
  // In bytes, or in references.
  [[nodiscard]] std::size_t size() const noexcept { return form_ >> kSizeShift; }
  // @pre neither a string nor data
  [[nodiscard]] std::uint64_t number() const noexcept { return number_; }
  // @pre a string, or data
  [[nodiscard]] std::string_view text() const noexcept { return {bytes_, size()}; }

  // Whether both are of one kind and size.
  [[nodiscard]] bool hasFormOf(const PropertyListObject& other) const noexcept {
    return form_ == other.form_;
  }

 private:
  static constexpr std::uint64_t kASCII = 0x100;
  static constexpr int kSizeShift = 16;  // no processor has more bytes than there is room for

  static std::uint64_t formOf(Value::Kind kind, std::size_t size, bool isASCII) noexcept {
    return static_cast<std::uint64_t>(kind) | (isASCII ? kASCII : 0) | size << kSizeShift;
  }

  union {
    std::uint64_t number_;
    const char* bytes_;
  };
  std::uint64_t form_;
};

// A value taken apart into numbered objects: number 0 is the value itself, a container comes before
// what it holds, and equal strings, numbers and dates are one object. Refers to the value, which
// must outlive it.
//
// Takes time in proportion to the value whatever it holds: leaves that somebody chose to collide in
// the table are written more than once instead of being looked for among many.
class PropertyListObjects {
 public:
  using Number = std::uint32_t;

  explicit PropertyListObjects(const Value& value);

  // Whether these are all objects: a property list can hold everything in the value.
  [[nodiscard]] bool areComplete() const noexcept { return complete_; }
  [[nodiscard]] std::vector<PropertyListObject>& all() noexcept { return objects_; }
  // Object numbers, in the places that the containers name.
  [[nodiscard]] const std::vector<Number>& references() const noexcept { return references_; }
  // What all objects take at most, and hardly less, when they are written without the references.
  [[nodiscard]] std::size_t mostBytes() const noexcept { return mostBytes_; }

 private:
  static constexpr Number kNone = UINT32_MAX;
  // One place of a table in which a leaf is looked for from the place of its hash on.
  struct Slot {
    std::uint32_t hash = 0;
    Number number = kNone;
  };

  // The number of the object, or none for what a property list cannot hold.
  Number add(const Value& value, std::size_t depth);
  Number addString(std::string_view text);
  Number addData(std::string_view bytes);
  Number addNumber(Value::Kind kind, std::uint64_t number);
  Number addArray(const Value& value, std::size_t depth);
  Number addDictionary(const Value& value, std::size_t depth);
  template <class IsSame>
  Slot* findSlot(std::uint32_t hash, IsSame isSame);
  Number enter(Slot* slot, std::uint32_t hash, Number number);
  void growSlots();
  Number append(const PropertyListObject& object, std::size_t mostBytes);
  Number appendContainer(Value::Kind kind, std::size_t references);

  std::vector<PropertyListObject> objects_;
  std::vector<Number> references_;
  std::vector<Slot> slots_;  // a power of two, at most half of them taken
  unsigned hashShift_ = 0;   // takes a hash to its place
  std::size_t free_ = 0;     // so many leaves may be added before there have to be more slots
  std::size_t mostBytes_ = 0;
  bool complete_ = false;
};

}  // namespace kvl::serialisation
