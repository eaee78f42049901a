// How Qt opens web addresses.
#pragma once

#include "qt/Errands.h"

#include <local/platform/Workspace.h>

#include <memory>

namespace kvl::qt {

// An opener that asks `QDesktopServices`, and with it the handlers that the host has set there. On
// another thread than the GUI thread it hands the address over and answers true; false when there
// is nobody left to hand it to. Nothing but addresses of the schemes "http" and "https" is opened,
// and relative references are not: they would be files. Whatever is not opened is one line in the
// log.
[[nodiscard]] URLOpener urlOpener(std::shared_ptr<Errands> errands);

}  // namespace kvl::qt
