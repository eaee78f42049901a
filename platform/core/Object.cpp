#include <local/platform/Object.h>

namespace kvl {

Object::~Object() = default;

std::string Object::description() const {
  return "<" + std::string(typeName()) + ">";
}

}  // namespace kvl
