#include "platform/core/ValueAccess.h"

#include <algorithm>
#include <vector>

namespace kvl {

using detail::ValueAccess;

namespace {

bool isContainer(const Value& value) noexcept {
  return value.kind() == Value::Kind::array || value.kind() == Value::Kind::dictionary;
}

// Compares containers level by level, so that depth of nesting costs no stack.
class Comparison {
 public:
  // Whether `a` and `b` are equal, containers at first sight only: what is in them is left to
  // `finish`. @pre both are of one kind
  bool compare(const Value& a, const Value& b);
  // Whether everything that was left is equal too.
  bool finish();

 private:
  struct Pair {
    const Value* a;
    const Value* b;
  };

  bool compareElements(const Pair& arrays);
  bool compareEntries(const Pair& dictionaries);

  std::vector<Pair> left_;
};

bool sameScalar(const Value& a, const Value& b) noexcept {
  using enum Value::Kind;
  switch (a.kind()) {
    case boolean:
    case integer:
      return *a.integer() == *b.integer();
    case real:
      return *a.real() == *b.real();
    case date:
      return *a.date() == *b.date();
    case string:
      return ValueAccess::text(a) == ValueAccess::text(b);
    case data:
      return ValueAccess::data(a) == ValueAccess::data(b);
    case object:
      return ValueAccess::object(a) == ValueAccess::object(b);
    default:
      return true;
  }
}

bool Comparison::compare(const Value& a, const Value& b) {
  if (a.kind() != b.kind()) return false;
  if (!isContainer(a)) return sameScalar(a, b);
  if (ValueAccess::identity(a) != ValueAccess::identity(b)) left_.push_back({&a, &b});
  return true;
}

bool Comparison::finish() {
  while (!left_.empty()) {
    const Pair pair = left_.back();
    left_.pop_back();
    const bool equal =
        pair.a->kind() == Value::Kind::array ? compareElements(pair) : compareEntries(pair);
    if (!equal) return false;
  }
  return true;
}

bool Comparison::compareElements(const Pair& arrays) {
  return std::ranges::equal(ValueAccess::elements(*arrays.a), ValueAccess::elements(*arrays.b),
                            [this](const Value& a, const Value& b) { return compare(a, b); });
}

bool Comparison::compareEntries(const Pair& dictionaries) {
  const auto entries = ValueAccess::entries(*dictionaries.a);
  if (entries.size() != ValueAccess::entries(*dictionaries.b).size()) return false;
  return std::ranges::all_of(entries, [&](const Dictionary::Entry& entry) {
    const auto* other = ValueAccess::find(*dictionaries.b, entry.first);
    return other != nullptr && compare(entry.second, other->second);
  });
}

}  // namespace

bool operator==(const Value& a, const Value& b) noexcept {
  Comparison comparison;
  return comparison.compare(a, b) && comparison.finish();
}

}  // namespace kvl
