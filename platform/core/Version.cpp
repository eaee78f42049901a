#include <local/platform/Version.h>

namespace kvl {

Version version() noexcept {
  return {KVL_VERSION, KVL_VERSION_STRING};
}

}  // namespace kvl
