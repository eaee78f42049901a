// The words of badges.
#pragma once

#include <local/platform/MenuItem.h>

#include <QString>

namespace kvl::qt {

// What a badge says, such as "3 updates", in the language of the user's messages; where the host
// has set a default `QLocale` of its own, in that. GUI thread.
[[nodiscard]] QString badgeWords(const MenuItemBadge& badge);

}  // namespace kvl::qt
