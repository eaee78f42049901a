#include "platform/environment/Environment.h"

#include "platform/core/NoDestructor.h"

namespace kvl {

const std::shared_ptr<const Environment>& Environment::process() {
  static const NoDestructor<std::shared_ptr<const Environment>> environment(
      std::make_shared<const Environment>());
  return *environment;
}

}  // namespace kvl
