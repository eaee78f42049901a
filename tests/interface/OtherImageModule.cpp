// A module that knows no version of this library's.
#include "platform/interface/ImageEntryPoint.h"

#include <local/platform/Export.h>

extern "C" KVL_EXPORT const KVLImageFunctions* kvlImageFunctions(std::uint32_t /*version*/) {
  return nullptr;
}
