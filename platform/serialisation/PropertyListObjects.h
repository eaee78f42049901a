// The objects of a binary property list before they are written.
#pragma once

#include <local/platform/Value.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kvl::serialisation {

// What an object holds that refers to no other one.
struct PropertyListLeaf {
  Value::Kind kind = Value::Kind::null;
  std::uint64_t bits = 0;  // a boolean, an integer in two's complement, or the bits of a double
  std::string_view text;   // a string

  friend bool operator==(const PropertyListLeaf&, const PropertyListLeaf&) = default;
};

struct PropertyListObject {
  PropertyListLeaf leaf;
  const Value* value = nullptr;    // data, array or dictionary
  std::size_t firstReference = 0;  // of an array's values, or a dictionary's keys and then values
  std::size_t references = 0;
};

// A value taken apart into numbered objects: number 0 is the value itself, a container comes before
// what it holds, and equal strings, numbers and dates are one object. Refers to the value, which
// must outlive it and be valid for a property list.
//
// Takes time in proportion to the value whatever it holds: leaves that somebody chose to collide in
// the table are written more than once instead of being looked for among many.
class PropertyListObjects {
 public:
  explicit PropertyListObjects(const Value& value) { add(value); }

  [[nodiscard]] const std::vector<PropertyListObject>& all() const { return objects_; }
  // Object numbers, in the places that the containers name.
  [[nodiscard]] const std::vector<std::size_t>& references() const { return references_; }

 private:
  static constexpr std::size_t kFree = SIZE_MAX;
  // One place of a table in which a leaf is looked for from the place of its hash on.
  struct Slot {
    std::size_t hash = 0;
    std::size_t number = kFree;
  };

  std::size_t add(const Value& value);
  std::size_t addLeaf(const PropertyListLeaf& leaf);
  std::size_t addArray(const Value& value);
  std::size_t addDictionary(const Value& value);
  Slot* findSlot(std::size_t hash, const PropertyListLeaf& leaf);
  void growSlots();
  std::size_t append(const PropertyListObject& object);
  std::size_t appendContainer(const Value& value, std::size_t references);

  std::vector<PropertyListObject> objects_;
  std::vector<std::size_t> references_;
  std::vector<Slot> slots_;  // a power of two, at most half of them taken
  std::size_t taken_ = 0;
};

}  // namespace kvl::serialisation
