#include "platform/core/PartsFolder.h"
#include "platform/formatting/Texts.h"
#include "platform/modules/LateModule.h"

namespace kvl::formatting {

Texts* texts() noexcept {
  constinit static modules::LateModule module(KVL_PARTS_FOLDER "/kvlocal-texts.so", "kvlocalTexts");
  return static_cast<Texts*>(module.get());
}

}  // namespace kvl::formatting
