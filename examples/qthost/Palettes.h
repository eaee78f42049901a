// Light and dark.
#pragma once

#include <QPalette>

namespace qthost {

[[nodiscard]] QPalette darkPalette();

}  // namespace qthost
