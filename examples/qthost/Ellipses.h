// Which items of a menu ask for something before they act.
#pragma once

#include <local/platform/Value.h>

namespace qthost {

// Whether a form has inputs, and is not for a browser to open.
[[nodiscard]] bool asks(const kvl::Dictionary& form);

// The descriptions with an ellipsis after the text of every item whose form asks, in sub-menus as
// well.
[[nodiscard]] kvl::Array withEllipses(const kvl::Array& descriptions);

}  // namespace qthost
