// For programs into which ICU is linked from the start.
#include "platform/formatting/Texts.h"

namespace kvl::formatting {

Texts* texts() noexcept {
  return &icuTexts();
}

}  // namespace kvl::formatting
