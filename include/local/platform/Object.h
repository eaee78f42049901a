/// @file
/// The root of objects that a document value can hold.
#pragma once

#include <local/platform/Export.h>

#include <string>
#include <string_view>

namespace kvl {

/// What a class derives from so that its objects can stand in a `Value`, such as the file of a form
/// input. Objects are shared by reference and never copied.
class KVL_EXPORT Object {
 public:
  virtual ~Object();
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  /// The class's name, for diagnostics. Valid as long as the object.
  [[nodiscard]] virtual std::string_view typeName() const noexcept = 0;

  /// One line for logs; the class's name in angle brackets unless a class says more.
  [[nodiscard]] virtual std::string description() const;

 protected:
  Object() = default;
};

}  // namespace kvl
