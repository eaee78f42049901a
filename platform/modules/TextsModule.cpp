// The entry of kvlocal-texts.so.
#include "platform/formatting/Texts.h"

#include <local/platform/Version.h>

#include <string_view>

extern "C" __attribute__((visibility("default"))) void* kvlocalTexts(const char* version) noexcept {
  if (std::string_view(version) != KVL_VERSION_STRING) return nullptr;
  return &kvl::formatting::icuTexts();
}
