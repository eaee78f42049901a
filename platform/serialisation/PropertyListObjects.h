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

// One object. Refers to the value that it was made from.
struct PropertyListObject {
  Value::Kind kind = Value::Kind::null;
  bool isASCII = true;  // all of a string
  // A boolean, an integer in two's complement, the bits of a double; of a container where its
  // references begin: an array's values, or a dictionary's keys and then its values.
  std::uint64_t number = 0;
  const char* bytes = nullptr;  // of a string, or of data
  std::size_t size = 0;         // in bytes, or in references

  [[nodiscard]] std::string_view text() const noexcept { return {bytes, size}; }
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
  [[nodiscard]] const std::vector<PropertyListObject>& all() const noexcept { return objects_; }
  // Object numbers, in the places that the containers name.
  [[nodiscard]] const std::vector<Number>& references() const noexcept { return references_; }

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
  Number addNumber(Value::Kind kind, std::uint64_t number);
  Number addLeaf(const PropertyListObject& leaf, std::uint32_t hash);
  Number addArray(const Value& value, std::size_t depth);
  Number addDictionary(const Value& value, std::size_t depth);
  Slot* findSlot(std::uint32_t hash, const PropertyListObject& leaf);
  void growSlots();
  Number append(const PropertyListObject& object);
  Number appendContainer(Value::Kind kind, std::size_t references);

  std::vector<PropertyListObject> objects_;
  std::vector<Number> references_;
  std::vector<Slot> slots_;  // a power of two, at most half of them taken
  std::size_t taken_ = 0;
  bool complete_ = false;
};

}  // namespace kvl::serialisation
