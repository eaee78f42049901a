#include "platform/environment/Environment.h"

#include "platform/core/NoDestructor.h"
#include "platform/dispatch/ThreadQueue.h"

namespace kvl {

const std::shared_ptr<const Environment>& Environment::process() {
  static const NoDestructor<std::shared_ptr<const Environment>> environment(
      std::make_shared<const Environment>());
  return *environment;
}

std::shared_ptr<DispatchQueue> Environment::processLookupQueue() {
  static const NoDestructor<std::shared_ptr<DispatchQueue>> queue(threadQueue("korvale.lookup"));
  return *queue;
}

}  // namespace kvl
