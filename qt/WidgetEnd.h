// Widgets that are left over.
#pragma once

class QWidget;

namespace kvl::qt {

// To be called in the destructor of a view. Qt asks the application about widgets that are still on
// the screen when they are destroyed, even where there is none any more: then nothing in `view` is
// on the screen.
void prepareToEnd(QWidget& view);

}  // namespace kvl::qt
